// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"

struct pw_loop;
struct spa_source;

namespace linux_host {

// A PipeWire loop on a thread of its own. Everything that belongs to the loop is created, used and
// destroyed by work posted to it, so it needs no lock.
//
// Construction only starts the thread. The library is loaded there, while the caller goes on.
class PipeWireLoop {
 public:
  // `threadName`: the name that the system shows, at most 15 bytes. Throws std::system_error if the
  // thread cannot be started.
  explicit PipeWireLoop(std::string threadName);
  // Runs the posted work, then ends the thread. Not on the loop's own thread.
  ~PipeWireLoop();
  PipeWireLoop(const PipeWireLoop&) = delete;
  PipeWireLoop& operator=(const PipeWireLoop&) = delete;

  // Gets null when the system has no descriptors left for a loop; the work then reports that.
  using Work = std::function<void(pw_loop*)>;
  // Any thread except an audio callback. Runs in the order posted.
  void post(Work work);

 private:
  static void onWake(void* self, std::uint64_t count);
  void run(const std::string& threadName);
  void runPosted();
  void runWithoutLoop();
  void wake() RA_REQUIRES(mutex_);

  platform::Mutex mutex_;
  platform::Condition changed_;  // for a thread without a loop
  std::vector<Work> posted_ RA_GUARDED_BY(mutex_);
  pw_loop* loop_ RA_GUARDED_BY(mutex_) = nullptr;  // null until the thread is up
  spa_source* wakeSource_ RA_GUARDED_BY(mutex_) = nullptr;
  bool quit_ RA_GUARDED_BY(mutex_) = false;
  bool isRunning_ = true;  // on the loop's thread
  std::thread thread_;
};

}  // namespace linux_host
