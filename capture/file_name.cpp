#include "capture/file_name.h"

namespace record_audio {

std::string fitForFileName(std::string_view name) {
  constexpr std::string_view kRefused = "/\\:*?\"<>|";
  constexpr std::string_view kNoBreakSpaces[] = {"\u00A0", "\u202F"};

  std::string fit;
  while (!name.empty()) {
    std::size_t taken = 1;
    char character = name.front();
    for (const std::string_view space : kNoBreakSpaces) {
      if (name.starts_with(space)) {
        taken = space.size();
        character = ' ';
      }
    }
    const auto code = static_cast<unsigned char>(character);
    const bool refused = code < 0x20 || kRefused.find(character) != std::string_view::npos;
    fit += refused ? '-' : character;
    name.remove_prefix(taken);
  }
  return fit;
}

}  // namespace record_audio
