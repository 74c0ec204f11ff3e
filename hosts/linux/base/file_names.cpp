#include "hosts/linux/base/file_names.h"

#include <glib.h>

#include <algorithm>
#include <array>

namespace linux_host {
namespace {

constexpr std::string_view kRefused = "\"*/:<>?\\|";
constexpr std::size_t kLongestName_bytes = 255;
constexpr gunichar kNoBreakSpace = 0x00A0;
constexpr gunichar kFigureSpace = 0x2007;
constexpr gunichar kNarrowNoBreakSpace = 0x202F;
constexpr gunichar kFirstC1Control = 0x80;
constexpr gunichar kLastC1Control = 0x9F;

bool isControl(gunichar c) {
  return c < 0x20 || c == 0x7F || (c >= kFirstC1Control && c <= kLastC1Control);
}

bool isNoBreakBlank(gunichar c) {
  return c == kNoBreakSpace || c == kFigureSpace || c == kNarrowNoBreakSpace;
}

bool isReserved(const std::string& name) {
  std::string stem = name.substr(0, name.find('.'));
  std::transform(stem.begin(), stem.end(), stem.begin(), g_ascii_toupper);
  constexpr std::array<std::string_view, 4> kDevices = {"CON", "PRN", "AUX", "NUL"};
  if (std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) &&
         stem[3] >= '1' && stem[3] <= '9';
}

void trimEnd(std::string* name) {
  while (!name->empty() && (name->back() == ' ' || name->back() == '.')) name->pop_back();
}

void shorten(std::string* name) {
  if (name->size() <= kLongestName_bytes) return;
  std::size_t end = kLongestName_bytes;
  while (end > 0 && (static_cast<unsigned char>((*name)[end]) & 0xC0) == 0x80) --end;
  name->resize(end);
}

}  // namespace

std::string fileNameText(std::string_view text, std::string_view keep) {
  std::string out;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at < end) {
    const gunichar c = g_utf8_get_char_validated(at, end - at);
    if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) {
      ++at;
      continue;
    }
    const char* next = g_utf8_next_char(at);
    const bool refused = c < 0x80 &&
                         kRefused.find(static_cast<char>(c)) != std::string_view::npos &&
                         keep.find(static_cast<char>(c)) == std::string_view::npos;
    if (isNoBreakBlank(c)) {
      out += ' ';
    } else if (!isControl(c) && !refused) {
      out.append(at, next);
    }
    at = next;
  }
  return out;
}

std::string sanitisedFileName(std::string_view name) {
  std::string out = fileNameText(name);
  trimEnd(&out);
  if (isReserved(out)) out.insert(0, "_");
  shorten(&out);
  trimEnd(&out);
  return out.empty() ? "_" : out;
}

}  // namespace linux_host
