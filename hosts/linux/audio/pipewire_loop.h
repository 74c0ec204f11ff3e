// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct pw_loop;
struct spa_source;

namespace linux_host {

// A PipeWire loop on a thread of its own. Whatever belongs to the loop is made, used and destroyed
// by work posted to it, so nothing of it needs a lock.
//
// Construction only starts the thread: loading the library happens there, while the caller goes on.
class PipeWireLoop {
 public:
  // `threadName`: 15 bytes at most, as the system shows it. Throws std::system_error when there is
  // no thread to be had.
  explicit PipeWireLoop(std::string threadName);
  // Runs what was posted, then ends the thread. Not on the loop's own thread.
  ~PipeWireLoop();
  PipeWireLoop(const PipeWireLoop&) = delete;
  PipeWireLoop& operator=(const PipeWireLoop&) = delete;

  // Gets null when the system has no descriptors left for a loop: the work then says so.
  using Work = std::function<void(pw_loop*)>;
  // Any thread except an audio callback. Runs in the order posted.
  void post(Work work);

 private:
  static void onWake(void* self, std::uint64_t count);
  void run(const std::string& threadName);
  void runPosted();
  void runWithoutLoop();
  void wake();  // with mutex_ held

  std::mutex mutex_;
  std::condition_variable changed_;   // for a thread that has no loop
  std::vector<Work> posted_;          // guarded by mutex_
  pw_loop* loop_ = nullptr;           // guarded by mutex_; null until the thread is up
  spa_source* wakeSource_ = nullptr;  // guarded by mutex_
  bool quit_ = false;                 // guarded by mutex_
  bool isRunning_ = true;             // on the loop's thread
  std::thread thread_;
};

}  // namespace linux_host
