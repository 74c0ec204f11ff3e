// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

// The value of a default device's key as session managers write it: {"name": <node.name>}.

namespace loopback {

// The name; null when the text is something else.
[[nodiscard]] std::optional<std::string> nameInDefault(const std::string& json);
// The value that names a node.
[[nodiscard]] std::string defaultWithName(const std::string& nodeName);

}  // namespace loopback
