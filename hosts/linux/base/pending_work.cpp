// SPDX-License-Identifier: MIT
#include "hosts/linux/base/pending_work.h"

#include <cassert>
#include <utility>

namespace linux_host {

void PendingWork::begin() {
  const std::lock_guard lock(mutex_);
  ++count_;
  ++changes_;
}

void PendingWork::end() {
  std::vector<std::function<void()>> callbacks;
  {
    const std::lock_guard lock(mutex_);
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
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [this] { return count_ == 0; });
}

bool PendingWork::waitUntilIdle(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, limit, [this] { return count_ == 0; });
}

std::uint64_t PendingWork::changes() {
  const std::lock_guard lock(mutex_);
  return changes_;
}

void PendingWork::whenIdle(std::function<void()> callback) {
  {
    const std::lock_guard lock(mutex_);
    if (count_ > 0) {
      callbacks_.push_back(std::move(callback));
      return;
    }
  }
  callback();
}

}  // namespace linux_host
