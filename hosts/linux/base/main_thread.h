// SPDX-License-Identifier: MIT
#pragma once

#include <cassert>
#include <thread>

namespace linux_host {

// Remembers the thread on which it was created; for objects that belong to the main thread.
class MainThreadOnly {
 public:
  void check() const { assert(std::this_thread::get_id() == thread_); }

 private:
  std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace linux_host
