// SPDX-License-Identifier: MIT
#include "hosts/linux/base/json_values.h"

namespace linux_host {
namespace {

// Counted before parsing, outside strings.
std::size_t nesting(std::string_view bytes) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  bool inString = false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    if (inString) {
      if (c == '\\') ++i;
      if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '{' || c == '[') {
      deepest = std::max(deepest, ++depth);
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

}  // namespace

Expected<Json> parsedJsonObject(std::string_view bytes) {
  if (nesting(bytes) > kDeepestJson) return Unexpected("it is nested too deeply");
  try {
    Json json = Json::parse(bytes);
    if (!json.is_object()) return Unexpected("it does not contain a JSON object");
    return json;
  } catch (const Json::exception& exception) {
    return Unexpected(exception.what());
  }
}

platform::Value valueOf(const Json& json) {
  switch (json.type()) {
    case Json::value_t::boolean:
      return json.get<bool>();
    case Json::value_t::number_integer:
      return json.get<std::int64_t>();
    case Json::value_t::number_unsigned: {
      const auto number = json.get<std::uint64_t>();
      // Small numbers have the same type whether they were written signed or not.
      if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return number;
      }
      return static_cast<std::int64_t>(number);
    }
    case Json::value_t::number_float:
      return json.get<double>();
    case Json::value_t::string:
      return json.get<std::string>();
    case Json::value_t::array: {
      platform::Array array;
      for (const Json& element : json) array.push_back(valueOf(element));
      return array;
    }
    case Json::value_t::object: {
      platform::Dictionary dictionary;
      for (const auto& [key, element] : json.items()) dictionary[key] = valueOf(element);
      return dictionary;
    }
    default:
      return {};
  }
}

Json jsonOf(const platform::Value& value) {
  if (const auto* flag = value.as<bool>()) return *flag;
  if (const auto* number = value.as<std::int64_t>()) return *number;
  if (const auto* number = value.as<std::uint64_t>()) return *number;
  if (const auto* number = value.as<double>()) return *number;
  if (const auto* text = value.as<std::string>()) return *text;
  if (const auto* array = value.as<platform::Array>()) {
    Json json = Json::array();
    for (const platform::Value& element : *array) json.push_back(jsonOf(element));
    return json;
  }
  if (const auto* dictionary = value.as<platform::Dictionary>()) {
    Json json = Json::object();
    for (const auto& [key, element] : *dictionary) json[key] = jsonOf(element);
    return json;
  }
  return nullptr;
}

std::string jsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string jsonText(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace linux_host
