// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/thread_annotations.h"

// The standard library's mutex and condition variable, so that the compiler checks who holds what.
// Never on an audio callback.

namespace platform {

class RA_CAPABILITY("mutex") Mutex {
 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a mutex to the end of the block, but for what lies between unlock() and lock().
class RA_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) RA_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() RA_RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() RA_RELEASE() { lock_.unlock(); }
  void lock() RA_ACQUIRE() { lock_.lock(); }

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

// Wakes who waits for a change of what a mutex guards. The predicates run under the lock, and say
// so: [this]() RA_REQUIRES(mutex_) { return isOver_; }.
class Condition {
 public:
  void notify_one() { condition_.notify_one(); }
  void notify_all() { condition_.notify_all(); }

  template <typename Predicate>
  void wait(MutexLock& lock, Predicate isDone) {
    condition_.wait(lock.lock_, isDone);
  }
  // Both false when the time is up and it is still not done.
  template <typename Rep, typename Period, typename Predicate>
  bool wait_for(MutexLock& lock, std::chrono::duration<Rep, Period> limit, Predicate isDone) {
    return condition_.wait_for(lock.lock_, limit, isDone);
  }
  template <typename Clock, typename Duration, typename Predicate>
  bool wait_until(MutexLock& lock, std::chrono::time_point<Clock, Duration> end, Predicate isDone) {
    return condition_.wait_until(lock.lock_, end, isDone);
  }

 private:
  std::condition_variable condition_;
};

}  // namespace platform
