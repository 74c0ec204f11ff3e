// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace linux_host {

// Brings what is written to a file to its disk, on threads of its own. Else the system keeps it in
// memory for half a minute, and a power cut or a disk that is pulled out takes it away. Also, a
// disk or server that accepts bytes and fails later is known of while the recording can still say
// so. Any thread, except audio callbacks.
//
// A flush may take seconds on a disk that is busy and well, so nobody waits for one, and it is not
// counted among the calls of FileCalls. One that hangs stays behind and uses nothing but its own.
class BackgroundFlush {
 public:
  // As much as a recording may lack at its end.
  static constexpr std::chrono::milliseconds kInterval{1000};
  // A flush holds up who writes at the same time, on some file systems. So as much is left between
  // two as this many times what the last one took.
  static constexpr int kPauseFactor = 4;

  // What brings the bytes of a descriptor to the disk: 0, or -1 with errno set.
  using Flush = int (*)(int fd);

  using OnError = std::function<void(int error)>;

  explicit BackgroundFlush(Flush flush = nullptr, std::chrono::milliseconds interval = kInterval);

  // To be called after each write: begins a flush when the last one is over and long enough ago.
  void nowAndThen(int fd);
  // Begins one in any case. The descriptor may be closed afterwards. `onError` is called on the
  // flush's thread, with the errno of one that failed.
  void now(int fd, OnError onError = nullptr);
  // The errno of a flush that failed, once; 0 when none has.
  int takeError();

 private:
  using Clock = std::chrono::steady_clock;
  struct State {
    std::mutex mutex;
    int underWay = 0;             // guarded by mutex
    int error = 0;                // guarded by mutex
    Clock::time_point nextBegin;  // guarded by mutex
  };
  // With the state's mutex held.
  void begin(int fd, OnError onError);
  static void run(State& state, int fd, Flush flush, std::chrono::milliseconds interval,
                  const OnError& onError);

  Flush flush_;
  std::chrono::milliseconds interval_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace linux_host
