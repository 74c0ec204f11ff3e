// SPDX-License-Identifier: MIT
#include "hosts/linux/files/background_flush.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace linux_host {

using loopback::UniqueFd;

namespace {

// Some file systems have nothing to flush and report that as an error.
bool isFailure(int error) {
  return error != EINVAL && error != EROFS && error != ENOSYS && error != ENOTSUP;
}

}  // namespace

BackgroundFlush::BackgroundFlush(Flush flush, std::chrono::milliseconds interval)
    : flush_(flush != nullptr ? flush : &fdatasync), interval_(interval) {
  state_->nextBegin = Clock::now() + interval_;
}

void BackgroundFlush::nowAndThen(int fd) {
  const platform::MutexLock lock(state_->mutex);
  if (state_->underWay == 0 && Clock::now() >= state_->nextBegin) begin(fd, nullptr);
}

void BackgroundFlush::now(int fd, OnError onError) {
  const platform::MutexLock lock(state_->mutex);
  begin(fd, std::move(onError));
}

SystemStatus BackgroundFlush::takeResult() {
  const platform::MutexLock lock(state_->mutex);
  return std::exchange(state_->result, {});
}

void BackgroundFlush::begin(int fd, OnError onError) {
  state_->nextBegin = Clock::now() + interval_;
  UniqueFd own(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!own.valid()) return;
  ++state_->underWay;
  try {
    std::thread([state = state_, own = std::move(own), flush = flush_, interval = interval_,
                 onError = std::move(onError)]() mutable {
      run(*state, std::move(own), flush, interval, onError);
    }).detach();
  } catch (const std::system_error&) {
    // If no thread can be started, the system flushes at its own pace.
    --state_->underWay;
  }
}

void BackgroundFlush::run(State& state, UniqueFd fd, Flush flush,
                          std::chrono::milliseconds interval, const OnError& onError) {
  const Clock::time_point began = Clock::now();
  SystemStatus result;
  if (flush(fd.get()) != 0 && isFailure(errno)) result = systemError();
  // A late error of close() has already been reported by the flush.
  fd.reset();
  if (!result && onError) onError(result.error());
  const Clock::time_point ended = Clock::now();
  const platform::MutexLock lock(state.mutex);
  --state.underWay;
  if (!result) state.result = result;
  state.nextBegin = std::max(began + interval, ended + kPauseFactor * (ended - began));
}

}  // namespace linux_host
