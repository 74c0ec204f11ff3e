// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace platform {

// "file://" and the absolute path, percent-encoded as RFC 3986 wants it.
std::string fileURLWithPath(const std::string& path);

// The path of a file URL; null when it is no file URL, names another host or is badly encoded.
std::optional<std::string> pathWithFileURL(const std::string& url);

}  // namespace platform
