// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

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
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Change> changes;  // guarded by mutex
    bool busy = false;           // guarded by mutex
    bool over = false;           // guarded by mutex
  };

  static void run(Shared& shared);
  static void apply(const Change& change);

  const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::thread thread_;
};

}  // namespace linux_host
