// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace base_test {

// Whether the condition becomes true within twenty seconds.
inline bool soon(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace base_test
