// SPDX-License-Identifier: MIT
#include "shared/file_name.h"

namespace record_audio {

std::string fitForFileName(std::string_view text, char substitute) {
  constexpr std::string_view kRefused = "/\\:*?\"<>|";
  // No-break, figure, thin and narrow no-break space.
  constexpr std::string_view kBlanks[] = {"\u00A0", "\u2007", "\u2009", "\u202F"};

  std::string fit;
  while (!text.empty()) {
    std::size_t taken = 1;
    char character = text.front();
    for (const std::string_view blank : kBlanks) {
      if (text.starts_with(blank)) {
        taken = blank.size();
        character = ' ';
      }
    }
    const auto code = static_cast<unsigned char>(character);
    const bool isRefused =
        code < 0x20 || code == 0x7F || kRefused.find(character) != std::string_view::npos;
    fit += isRefused ? substitute : character;
    text.remove_prefix(taken);
  }
  return fit;
}

}  // namespace record_audio
