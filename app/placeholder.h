// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace record_audio {

// The text with its first %@ replaced.
inline std::string withFirstPlaceholder(std::string format, const std::string& text) {
  constexpr std::string_view kPlaceholder = "%@";
  const std::size_t at = format.find(kPlaceholder);
  if (at != std::string::npos) format.replace(at, kPlaceholder.size(), text);
  return format;
}

}  // namespace record_audio
