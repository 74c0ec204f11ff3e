// SPDX-License-Identifier: MIT
#include "platform/file_url.h"

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

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
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
