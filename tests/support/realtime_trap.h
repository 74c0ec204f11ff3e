// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

// Catches what an audio callback must not do: allocate, free, take a lock, make a system call. In a
// program that links ra_realtime_trap, the allocator and the locks are watched; a kernel filter in
// a forked child catches system calls.
//
// Under a sanitizer only allocations and frees are watched: its runtime replaces the locks and
// makes its own system calls inside instrumented code.

namespace realtime_trap {

struct Report {
  // "malloc", "pthread_mutex_lock", "system call 202" ..., one entry for each kind, followed by its
  // count.
  std::vector<std::string> violations;
  // What ended the body early; empty if nothing did.
  std::string abnormalEnd;
  [[nodiscard]] bool clean() const { return violations.empty() && abnormalEnd.empty(); }
};
// For messages of failing tests.
std::string describe(const Report& report);

// Whether system calls and locks are watched in this build, or only allocations.
bool watchesLocksAndSystemCalls();

// Runs the body in a forked, single-threaded child with everything watched, including all system
// calls. The body's changes are lost with the child, and its output and expectations do not count:
// it reports a failure by returning false, which is an abnormal end.
Report runTrapped(const std::function<bool()>& body);

// Watches allocations and locks of the current thread within the scope, without a fork or a kernel
// filter; for callbacks that run on their own thread.
class Scope {
 public:
  Scope();
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};
// Returns what the scopes of all threads have caught so far, and resets it.
Report takeScopeReport();

}  // namespace realtime_trap
