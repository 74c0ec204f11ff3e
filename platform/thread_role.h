// SPDX-License-Identifier: MIT
#pragma once

#include "platform/thread_annotations.h"

#ifndef NDEBUG
#include <atomic>
#include <cassert>
#include <thread>
#endif

namespace platform {

// Something that only one thread may do: write a ring, drain it, or use a class that belongs to the
// main thread. Debug builds hold the role to one thread and abort when another one plays it; in
// others it is nothing. REAL-TIME: no lock, no system call, no allocation.
//
//     void draw() {
//       mainThread_.assertHeld();  // from here on the compiler lets us use picture_
//       ...
//     }
//     platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
//     Picture picture_ RA_GUARDED_BY(mainThread_);
//
// A class of the core whose comment says "Main thread" has such a member and asserts it where
// others call in. Without one are interfaces (whoever implements them has it), and functions and
// classes without state of their own (what they call has it).
class RA_CAPABILITY("role") ThreadRole {
 public:
  enum class Holder {
    kFirst,  // the first thread that plays it
    kMaker,  // the thread that makes the role
  };

  ThreadRole(const ThreadRole&) = delete;
  ThreadRole& operator=(const ThreadRole&) = delete;

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
  // Gives the role up: whoever plays it next has it. No thread may be playing it now.
  void release() {
    holder_.store({}, std::memory_order_relaxed);
  }

 private:
  mutable std::atomic<std::thread::id> holder_{};
  static_assert(std::atomic<std::thread::id>::is_always_lock_free);
#endif
};

}  // namespace platform
