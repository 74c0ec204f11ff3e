// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

// Catches what an audio callback must not do: allocate, free, take a lock, make a system call.
// A program that links ra_realtime_trap has its allocator and its locks watched; system calls are
// caught by a kernel filter in a forked child.
//
// Under a sanitizer only allocations and frees are watched: its runtime replaces the locks and
// makes system calls of its own inside of instrumented code.

namespace realtime_trap {

struct Report {
  // "malloc", "pthread_mutex_lock", "system call 202" ..., one entry a kind and its count behind
  // it.
  std::vector<std::string> violations;
  // What ended the body before it was through; empty if nothing did.
  std::string abnormalEnd;
  [[nodiscard]] bool clean() const { return violations.empty() && abnormalEnd.empty(); }
};
// For messages of failing tests.
std::string describe(const Report& report);

// Whether system calls and locks are watched in this build, or only allocations.
bool watchesLocksAndSystemCalls();

// Runs the body in a forked child of one thread with everything watched, including all system
// calls. What the body changes is lost with the child; what it prints or expects counts nothing:
// it hands out its findings by returning false, which is reported as an abnormal end.
Report runTrapped(const std::function<bool()>& body);

// Watches allocations and locks of the current thread for the scope, without a fork and without a
// kernel filter; for callbacks that run on a thread of their own.
class Scope {
 public:
  Scope();
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};
// What the scopes of all threads have caught so far; starts afresh.
Report takeScopeReport();

}  // namespace realtime_trap
