// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "hosts/linux/base/expected.h"
#include "platform/property_list.h"

namespace linux_host {

// Keeps the order of the keys, so that a file edited by hand stays as it was arranged.
using Json = nlohmann::ordered_json;

// Deeper nesting counts as damage: reading and writing recurse.
inline constexpr std::size_t kDeepestJson = 64;

// Parses `bytes` as a JSON object. For anything else (no JSON, invalid UTF-8, another type at the
// top, nesting deeper than kDeepestJson) says what is wrong with "it". Safe for arbitrary bytes.
Expected<Json> parsedJsonObject(std::string_view bytes);

// The parser has turned integers beyond 64 bits into floating point; null stays null.
platform::Value valueOf(const Json& json);
// Invalid UTF-8 is replaced when the result is written out; NaN and infinities become null.
Json jsonOf(const platform::Value& value);

// One line without spaces.
std::string jsonLine(const Json& json);
// Indented by two, with a newline at the end.
std::string jsonText(const Json& json);

}  // namespace linux_host
