// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace e2e {

using WallClock = std::chrono::system_clock;

// When the file was made; null when there is none or its file system does not remember.
std::optional<WallClock::time_point> birthOf(const std::string& path);

}  // namespace e2e
