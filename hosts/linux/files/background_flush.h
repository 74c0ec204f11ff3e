// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "driver/unique_fd.h"
#include "hosts/linux/base/small_files.h"
#include "platform/mutex.h"

namespace linux_host {

// Flushes written data to the disk, on separate threads. Otherwise the system keeps it in memory
// for half a minute, and a power cut or pulling out the disk loses it. Flushing also reveals a disk
// or server that accepts bytes and fails later, while the recording can still report it. Any
// thread, except audio callbacks.
//
// A flush may take seconds on a healthy but busy disk, so nothing waits for it, and it is not
// counted in FileCalls. A flush that hangs is abandoned; it uses only its own data.
class BackgroundFlush {
 public:
  // How much a recording may lack at its end.
  static constexpr std::chrono::milliseconds kInterval{1000};
  // On some file systems a flush holds up concurrent writes. So the pause between two flushes is
  // this many times the duration of the last one.
  static constexpr int kPauseFactor = 4;

  // A function that flushes a descriptor: returns 0, or -1 with errno set.
  using Flush = int (*)(int fd);

  using OnError = std::function<void(std::errc error)>;

  explicit BackgroundFlush(Flush flush = nullptr, std::chrono::milliseconds interval = kInterval);

  // Call after each write: starts a flush if the last one ended long enough ago.
  void nowAndThen(int fd);
  // Always starts a flush. The descriptor may be closed afterwards. If the flush fails, `onError`
  // is called on its thread.
  void now(int fd, OnError onError = nullptr);
  // Says once that a flush has failed.
  SystemStatus takeResult();

 private:
  using Clock = std::chrono::steady_clock;
  struct State {
    platform::Mutex mutex;
    int underWay RA_GUARDED_BY(mutex) = 0;
    SystemStatus result RA_GUARDED_BY(mutex);
    Clock::time_point nextBegin RA_GUARDED_BY(mutex);
  };
  void begin(int fd, OnError onError) RA_REQUIRES(state_->mutex);
  static void run(State& state, loopback::UniqueFd fd, Flush flush,
                  std::chrono::milliseconds interval, const OnError& onError);

  Flush flush_;
  std::chrono::milliseconds interval_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace linux_host
