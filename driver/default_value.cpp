// SPDX-License-Identifier: MIT
#include "driver/default_value.h"

#include <spa/utils/json.h>

#include <algorithm>
#include <string_view>

namespace loopback {
namespace {

// The next key or value of an object; empty behind the last one.
std::string_view nextIn(spa_json& object) {
  const char* token = nullptr;
  const int length = spa_json_next(&object, &token);
  return {token, static_cast<std::size_t>(std::max(length, 0))};
}

}  // namespace

std::optional<std::string> nameInDefault(const std::string& json) {
  spa_json document{};
  spa_json object{};
  spa_json_init(&document, json.data(), json.size());
  // Anything but an object leaves `object` empty.
  spa_json_enter_object(&document, &object);
  const auto textOf = [&](std::string_view token) {
    // The token stands behind a brace, so there is room for it and its end.
    std::string text(json.size(), '\0');
    spa_json_parse_stringn(token.data(), static_cast<int>(token.size()), text.data(),
                           static_cast<int>(text.size()));
    return std::string(text.c_str());
  };
  for (auto key = nextIn(object); !key.empty(); key = nextIn(object)) {
    const std::string_view value = nextIn(object);
    if (textOf(key) != "name") continue;
    const bool isString = spa_json_is_string(value.data(), static_cast<int>(value.size()));
    return isString ? std::optional(textOf(value)) : std::nullopt;
  }
  return std::nullopt;
}

std::string defaultWithName(const std::string& nodeName) {
  const int length = spa_json_encode_string(nullptr, 0, nodeName.c_str());
  std::string quoted(static_cast<std::size_t>(length), '\0');
  spa_json_encode_string(quoted.data(), length, nodeName.c_str());
  return "{\"name\":" + quoted + "}";
}

}  // namespace loopback
