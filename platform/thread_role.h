// SPDX-License-Identifier: MIT
#pragma once

#include "platform/thread_annotations.h"

#ifndef NDEBUG
#include <atomic>
#include <cassert>
#include <thread>
#endif

namespace platform {

// What one thread alone does: writing a ring, or all that is left to the main thread. Members that
// belong to the role are RA_GUARDED_BY it, and who touches them calls assertHeld() first. Debug
// builds hold the role to one thread; in others it is nothing. REAL-TIME.
class RA_CAPABILITY("role") ThreadRole {
 public:
  enum class Holder {
    kFirst,  // the first thread that plays it
    kMaker,  // the thread that makes the role
  };

#ifdef NDEBUG
  explicit ThreadRole(Holder = Holder::kFirst) {}
  void assertHeld() const RA_ASSERT_HELD(this) {}
  void release() {}
#else
  explicit ThreadRole(Holder holder = Holder::kFirst) {
    if (holder == Holder::kMaker) assertHeld();
  }
  void assertHeld() const RA_ASSERT_HELD(this) {
    std::thread::id nobody;
    const std::thread::id self = std::this_thread::get_id();
    const bool isFirst = holder_.compare_exchange_strong(nobody, self, std::memory_order_relaxed);
    assert((isFirst || nobody == self) && "a second thread plays a role that is another's");
  }
  // Whoever plays it next has it. No thread may be playing it.
  void release() {
    holder_.store({}, std::memory_order_relaxed);
  }

 private:
  mutable std::atomic<std::thread::id> holder_{};
  static_assert(std::atomic<std::thread::id>::is_always_lock_free);
#endif
};

}  // namespace platform
