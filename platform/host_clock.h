// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace platform {

// Ticks times numerator / denominator are nanoseconds.
struct TimebaseInfo {
  std::uint32_t numerator = 1;
  std::uint32_t denominator = 1;
};

// The monotonic clock of the machine. Any thread.
class HostClock {
 public:
  virtual ~HostClock() = default;
  // Ticks since an arbitrary start; never goes back.
  [[nodiscard]] virtual std::uint64_t absoluteTime() const = 0;
  [[nodiscard]] virtual TimebaseInfo timebaseInfo() const = 0;
};

}  // namespace platform
