// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace linux_host {

// Listens whether anything but digital silence comes in on the channels that are recorded: a muted
// device, an unplugged plug or the wrong input is silent to the last bit.
class SoundWatch {
 public:
  // Silence of that length, from the start or after sound, says that something is not right.
  static constexpr std::uint64_t kSilentStart_s = 3;
  static constexpr std::uint64_t kLongSilence_s = 10;

  explicit SoundWatch(std::uint32_t rate_Hz) : rate_Hz_(rate_Hz) {}

  // The next `frames` of all `channels`, of which the first `recorded` are recorded. One thread.
  void listen(const float* const* planes, std::uint32_t channels, std::uint32_t recorded,
              std::uint32_t frames);
  // It has been silent for long. Any thread.
  [[nodiscard]] bool isSilent() const { return isSilent_.load(std::memory_order_relaxed); }
  // It has been so although another channel is not. The listening thread.
  [[nodiscard]] bool hasSoundElsewhere() const { return hasSoundElsewhere_; }

 private:
  const std::uint32_t rate_Hz_;
  std::uint64_t silent_frames_ = 0;  // at the end of what was heard
  bool hasHeardSound_ = false;
  bool hasSoundElsewhere_ = false;
  std::atomic<bool> isSilent_{false};
};

}  // namespace linux_host
