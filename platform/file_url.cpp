// SPDX-License-Identifier: MIT
#include "platform/file_url.h"

#include <charconv>
#include <string_view>

namespace platform {
namespace {

constexpr std::string_view kScheme = "file://";
constexpr std::string_view kLocalHost = "localhost";
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

bool isPlain(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-._~/").find(static_cast<char>(c)) != std::string_view::npos;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    unsigned char byte = 0;
    const char* const end = std::from_chars(digits.begin(), digits.end(), byte, 16).ptr;
    if (end - digits.begin() != 2 || byte == 0) return std::nullopt;
    decoded += static_cast<char>(byte);
    i += 2;
  }
  return decoded;
}

}  // namespace

std::string fileURLWithPath(const std::string& path) {
  std::string url(kScheme);
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (isPlain(byte)) {
      url += character;
    } else {
      url += '%';
      url += kHexDigits[byte >> 4];
      url += kHexDigits[byte & 15];
    }
  }
  return url;
}

std::optional<std::string> pathWithFileURL(const std::string& url) {
  std::string_view rest(url);
  if (!rest.starts_with(kScheme)) return std::nullopt;
  rest.remove_prefix(kScheme.size());
  if (rest.starts_with(kLocalHost)) rest.remove_prefix(kLocalHost.size());
  if (!rest.starts_with('/')) return std::nullopt;
  return percentDecoded(rest);
}

}  // namespace platform
