// SPDX-License-Identifier: MIT
#include "platform/property_list.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace platform {
namespace {

// The functions below read at most the NUL that ends every text. It is no sign, digit or letter.

std::size_t afterBlanks(const std::string& text) {
  return std::min(text.find_first_not_of(" \t\n"), text.size());
}

bool isSign(char character) {
  return character == '+' || character == '-';
}

std::int64_t leadingInteger(const std::string& text) {
  std::size_t at = afterBlanks(text);
  const bool negative = text[at] == '-';
  if (isSign(text[at])) ++at;
  std::uint64_t magnitude = 0;  // stays 0 without a digit
  const std::errc error = std::from_chars(&text[at], &text[text.size()], magnitude).ec;
  constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (error == std::errc::result_out_of_range || magnitude > kMax) {
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  return negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
}

std::int64_t truncated(double number) {
  if (std::isnan(number)) return 0;
  // 2^63 is exact in a double; anything at or beyond it would overflow the cast.
  constexpr double kLimit = 9223372036854775808.0;
  if (number >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (number < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

bool saysYes(const std::string& text) {
  std::size_t at = afterBlanks(text);
  if (isSign(text[at])) ++at;
  while (text[at] == '0') ++at;
  return std::string_view("YyTt123456789").find(text[at]) != std::string_view::npos;
}

std::string shortestText(double number) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  return {buffer, result.ptr};
}

}  // namespace

std::int64_t integerValue(const Value& value) {
  if (const auto* flag = value.as<bool>()) return *flag ? 1 : 0;
  if (const auto* number = value.as<std::int64_t>()) return *number;
  if (const auto* number = value.as<std::uint64_t>()) {
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return static_cast<std::int64_t>(std::min(*number, kMax));
  }
  if (const auto* number = value.as<double>()) return truncated(*number);
  if (const auto* text = value.as<std::string>()) return leadingInteger(*text);
  return 0;
}

bool boolValue(const Value& value) {
  if (const auto* number = value.as<double>()) return *number != 0.0;
  if (const auto* text = value.as<std::string>()) return saysYes(*text);
  return integerValue(value) != 0;
}

bool stringValue(const Value& value, std::string* out) {
  if (const auto* text = value.as<std::string>()) {
    *out = *text;
  } else if (const auto* flag = value.as<bool>()) {
    *out = *flag ? "1" : "0";
  } else if (const auto* number = value.as<std::int64_t>()) {
    *out = std::to_string(*number);
  } else if (const auto* unsigned_number = value.as<std::uint64_t>()) {
    *out = std::to_string(*unsigned_number);
  } else if (const auto* real = value.as<double>()) {
    *out = shortestText(*real);
  } else {
    return false;
  }
  return true;
}

}  // namespace platform
