// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/foundation.h"
#include "platform/host_clock.h"

// What the system says about itself: clocks, the process, the user.

namespace linux_host {

class LinuxWallClock : public platform::WallClock {
 public:
  [[nodiscard]] platform::Date now() const override;
};

// CLOCK_MONOTONIC; one tick is a nanosecond.
class LinuxHostClock : public platform::HostClock {
 public:
  [[nodiscard]] std::uint64_t absoluteTime() const override;
  [[nodiscard]] platform::TimebaseInfo timebaseInfo() const override { return {1, 1}; }
};

class LinuxProcessInfo : public platform::ProcessInfo {
 public:
  explicit LinuxProcessInfo(std::vector<std::string> arguments)
      : arguments_(std::move(arguments)) {}

  [[nodiscard]] std::vector<std::string> arguments() const override { return arguments_; }
  // "uuid-pid-counter". Any thread.
  [[nodiscard]] std::string globallyUniqueString() override;

 private:
  const std::vector<std::string> arguments_;
  // Relaxed: only uniqueness matters, no ordering.
  std::atomic<std::uint64_t> counter_{0};
};

class LinuxUserAccount : public platform::UserAccount {
 public:
  [[nodiscard]] std::optional<std::string> homeDirectory() const override;
  [[nodiscard]] bool accessExists(const std::string& path) const override;
};

}  // namespace linux_host
