// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace linux_host {

// Keeps the order of the keys, so that a file that people edit stays as they arranged it.
using Json = nlohmann::ordered_json;

// Deeper nesting counts as damage: reading and writing recurse.
inline constexpr std::size_t kDeepestJson = 64;

// The JSON object that `bytes` hold. Null with *error telling what is wrong when they hold
// anything else: no JSON, invalid UTF-8, another type at the top, nesting deeper than kDeepestJson.
// Any bytes are safe.
std::optional<Json> parsedJsonObject(std::string_view bytes, std::string* error);

// Whole numbers beyond 64 bits have become real ones in parsing; null stays null.
platform::Value valueOf(const Json& json);
// Bytes that are no UTF-8 are replaced when the result is written out; NaN and infinities become
// null.
Json jsonOf(const platform::Value& value);

// One line without blanks.
std::string jsonLine(const Json& json);
// Indented by two, with a newline at the end.
std::string jsonText(const Json& json);

}  // namespace linux_host
