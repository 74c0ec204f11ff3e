// SPDX-License-Identifier: MIT
#include "driver/default_value.h"

#include <spa/utils/json.h>

#include <array>
#include <cstring>

namespace loopback {
namespace {

// "\u001f"
constexpr std::size_t kLongestEscape = 6;

}  // namespace

std::optional<std::string> nameInDefault(const std::string& json) {
  std::array<spa_json, 2> levels{};
  spa_json_init(&levels[0], json.data(), json.size());
  if (spa_json_enter_object(&levels[0], &levels[1]) <= 0) return std::nullopt;
  // No string in the value is longer than the value.
  std::string key(json.size() + 1, '\0');
  while (spa_json_get_string(&levels[1], key.data(), static_cast<int>(key.size())) > 0) {
    const char* value = nullptr;
    const int length = spa_json_next(&levels[1], &value);
    if (length <= 0) break;
    if (std::strcmp(key.c_str(), "name") != 0) continue;
    if (!spa_json_is_string(value, length)) return std::nullopt;
    std::string name(static_cast<std::size_t>(length) + 1, '\0');
    if (spa_json_parse_stringn(value, length, name.data(), static_cast<int>(name.size())) <= 0) {
      return std::nullopt;
    }
    name.resize(std::strlen(name.c_str()));
    return name;
  }
  return std::nullopt;
}

std::string defaultWithName(const std::string& nodeName) {
  std::string quoted(kLongestEscape * nodeName.size() + 3, '\0');
  const int length =
      spa_json_encode_string(quoted.data(), static_cast<int>(quoted.size()), nodeName.c_str());
  quoted.resize(static_cast<std::size_t>(length));
  return "{\"name\":" + quoted + "}";
}

}  // namespace loopback
