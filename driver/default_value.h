// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

// The value of a default device's key in the session managers' format: {"name": <node.name>}.

namespace loopback {

// The name; null when the text is anything else.
[[nodiscard]] std::optional<std::string> nameInDefault(const std::string& json);
// The value that names a node.
[[nodiscard]] std::string defaultWithName(const std::string& nodeName);

}  // namespace loopback
