// SPDX-License-Identifier: MIT
#include "hosts/linux/base/pending_work.h"

#include <cassert>
#include <utility>

namespace linux_host {

void PendingWork::begin() {
  const platform::MutexLock lock(mutex_);
  ++count_;
  ++changes_;
}

void PendingWork::end() {
  std::vector<std::function<void()>> callbacks;
  {
    const platform::MutexLock lock(mutex_);
    assert(count_ > 0);
    ++changes_;
    if (--count_ > 0) return;
    callbacks.swap(callbacks_);
    // Under the lock: a waiting thread may destroy this object as soon as it gets the lock.
    idle_.notify_all();
  }
  for (const auto& callback : callbacks) callback();
}

void PendingWork::waitUntilIdle() {
  platform::MutexLock lock(mutex_);
  idle_.wait(lock, [this]() RA_REQUIRES(mutex_) { return count_ == 0; });
}

bool PendingWork::waitUntilIdle(std::chrono::milliseconds limit) {
  platform::MutexLock lock(mutex_);
  return idle_.wait_for(lock, limit, [this]() RA_REQUIRES(mutex_) { return count_ == 0; });
}

std::uint64_t PendingWork::changes() {
  const platform::MutexLock lock(mutex_);
  return changes_;
}

void PendingWork::whenIdle(std::function<void()> callback) {
  {
    const platform::MutexLock lock(mutex_);
    if (count_ > 0) {
      callbacks_.push_back(std::move(callback));
      return;
    }
  }
  callback();
}

}  // namespace linux_host
