// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>

#include "platform/audio_hardware.h"
#include "platform/mutex.h"

namespace linux_host {

// Gives every name an id for the life of the process, so that a device that is unplugged and
// plugged in again is the same object. Never 0 or the system object. Any thread except audio
// callbacks.
class AudioObjectIds {
 public:
  platform::AudioObjectID idOf(const std::string& name) {
    const platform::MutexLock lock(mutex_);
    const auto [entry, isNew] = ids_.try_emplace(name, next_);
    if (isNew) names_[next_++] = name;
    return entry->second;
  }

  // Null for an unknown id.
  [[nodiscard]] std::optional<std::string> nameOf(platform::AudioObjectID id) const {
    const platform::MutexLock lock(mutex_);
    const auto found = names_.find(id);
    if (found == names_.end()) return std::nullopt;
    return found->second;
  }

 private:
  mutable platform::Mutex mutex_;
  platform::AudioObjectID next_ RA_GUARDED_BY(mutex_) = platform::kAudioObjectSystemObject + 1;
  std::map<std::string, platform::AudioObjectID> ids_ RA_GUARDED_BY(mutex_);
  std::map<platform::AudioObjectID, std::string> names_ RA_GUARDED_BY(mutex_);
};

}  // namespace linux_host
