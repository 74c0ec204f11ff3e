// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "platform/mutex.h"
#include "platform/thread_role.h"

namespace linux_host {

// Sets the custom icons of files, one after the other, on a separate thread: the service that
// stores them may be slow or hang. Its answers are ignored. Main thread.
class FileIcons {
 public:
  FileIcons() = default;
  // Does not wait for a service that hangs; the thread is abandoned then.
  ~FileIcons();
  FileIcons(const FileIcons&) = delete;
  FileIcons& operator=(const FileIcons&) = delete;

  // `iconFile` empty: removes the icon.
  void set(const std::string& file, const std::string& iconFile);
  // Waits until all are set, for at most `timeout_ms`.
  void finish(int timeout_ms);

 private:
  struct Change {
    std::string file;
    std::string iconFile;
  };
  // Shared with the thread, which may outlive this object.
  struct Shared {
    platform::Mutex mutex;
    platform::Condition changed;
    std::deque<Change> changes RA_GUARDED_BY(mutex);
    bool busy RA_GUARDED_BY(mutex) = false;
    bool over RA_GUARDED_BY(mutex) = false;
  };

  static void run(Shared& shared);
  static void apply(const Change& change);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::thread thread_;
};

}  // namespace linux_host
