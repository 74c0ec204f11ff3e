// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace platform {

// Finds installed applications. Main thread. Free for the host: which it trusts and prefers.
class LaunchServices {
 public:
  virtual ~LaunchServices() = default;
  // The paths of all applications with that bundle identifier, preferred one first; empty when
  // there is none or the service fails.
  [[nodiscard]] virtual std::vector<std::string> copyApplicationPathsForBundleIdentifier(
      const std::string& identifier) = 0;
};

}  // namespace platform
