// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace linux_host {

// Why root must not run or copy the file or folder at that path; empty when it may.
using TrustCheck = std::function<std::string(const std::string& path)>;

// Only root can have written the path, any folder above it included.
[[nodiscard]] std::string refusalBySystem(const std::string& path);

}  // namespace linux_host
