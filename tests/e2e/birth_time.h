// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace e2e {

using WallClock = std::chrono::system_clock;

// The file's creation time; null when there is no file or its file system does not store it.
std::optional<WallClock::time_point> birthOf(const std::string& path);

}  // namespace e2e
