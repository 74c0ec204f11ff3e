// SPDX-License-Identifier: MIT
#include "hosts/linux/base/date_formatter.h"

#include <dlfcn.h>
#include <glib.h>
#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "hosts/linux/base/glib_owners.h"
#include "hosts/linux/base/library_pages.h"
#include "hosts/linux/base/log.h"

#define RA_STRINGIZE_EXPANDED(text) #text
#define RA_STRINGIZE(text) RA_STRINGIZE_EXPANDED(text)
// ICU's symbols contain the version of the headers, so the library must have exactly that version.
#define RA_ICU_LIBRARY(name) name ".so." RA_STRINGIZE(U_ICU_VERSION_MAJOR_NUM)

namespace linux_host {
namespace {

struct Icu {
  decltype(&udat_open) open = nullptr;
  decltype(&udat_format) format = nullptr;
  decltype(&udat_close) close = nullptr;
  [[nodiscard]] bool complete() const {
    return open != nullptr && format != nullptr && close != nullptr;
  }
};

template <typename Function>
void find(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
}

Icu loadIcu() {
  Icu icu;
  void* library = dlopen(RA_ICU_LIBRARY("libicui18n"), RTLD_NOW | RTLD_LOCAL);
  if (library != nullptr) {
    find(library, RA_STRINGIZE(udat_open), &icu.open);
    find(library, RA_STRINGIZE(udat_format), &icu.format);
    find(library, RA_STRINGIZE(udat_close), &icu.close);
  }
  if (!icu.complete()) {
    logMessage(LogLevel::kWarning, std::string("ICU (") + RA_ICU_LIBRARY("libicui18n") +
                                       ") cannot be loaded; file names get a plain date and time. "
                                       "Install it to get them in your language.");
  }
  return icu;
}

// Stays loaded: ICU caches what it read for the locale.
const Icu& icu() {
  static const Icu loaded = loadIcu();
  return loaded;
}

std::string environmentLocale() {
  for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

std::tm localTime(platform::Date date) {
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::tm local{};
  tzset();
  localtime_r(&seconds, &local);
  return local;
}

std::string plainDate(const std::tm& local) {
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d", &local)};
}

std::string plainTime(const std::tm& local) {
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%H:%M:%S", &local)};
}

// The C library understands TZ in all its forms; ICU gets the offset that the C library found for
// this date.
std::u16string zoneOf(const std::tm& local) {
  const long offset_s = local.tm_gmtoff;
  const long magnitude_s = std::labs(offset_s);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "GMT%c%02ld:%02ld:%02ld", offset_s < 0 ? '-' : '+',
                magnitude_s / 3600, magnitude_s / 60 % 60, magnitude_s % 60);
  return {text.data(), text.data() + std::char_traits<char>::length(text.data())};
}

std::u16string utf16(const std::string& text) {
  glong length = 0;
  const std::unique_ptr<gunichar2, MemoryFree> converted(
      g_utf8_to_utf16(text.data(), static_cast<glong>(text.size()), nullptr, &length, nullptr));
  if (converted == nullptr) return {};
  return {converted.get(), converted.get() + length};
}

std::string utf8(const std::u16string& text) {
  const TextPtr converted(g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(text.data()),
                                          static_cast<glong>(text.size()), nullptr, nullptr,
                                          nullptr));
  return converted == nullptr ? "" : converted.get();
}

// Empty when ICU fails.
std::string formatted(const Icu& library, platform::Date date, UDateFormatStyle timeStyle,
                      const std::u16string& pattern, const std::tm& local) {
  const std::string locale = icuLocale(environmentLocale());
  const std::u16string zone = zoneOf(local);
  UErrorCode status = U_ZERO_ERROR;
  UDateFormat* formatter =
      library.open(timeStyle, timeStyle == UDAT_PATTERN ? UDAT_PATTERN : UDAT_NONE, locale.c_str(),
                   zone.data(), static_cast<int32_t>(zone.size()), pattern.data(),
                   static_cast<int32_t>(pattern.size()), &status);
  if (U_FAILURE(status)) return {};
  const auto milliseconds =
      std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count();
  std::u16string text(64, u'\0');
  int32_t length = library.format(formatter, static_cast<UDate>(milliseconds), text.data(),
                                  static_cast<int32_t>(text.size()), nullptr, &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    text.resize(static_cast<std::size_t>(length) + 1);
    length = library.format(formatter, static_cast<UDate>(milliseconds), text.data(),
                            static_cast<int32_t>(text.size()), nullptr, &status);
  }
  library.close(formatter);
  if (U_FAILURE(status)) return {};
  text.resize(static_cast<std::size_t>(length));
  return utf8(text);
}

// Empty when ICU is missing or fails.
std::string byIcu(platform::Date date, UDateFormatStyle timeStyle, const std::u16string& pattern,
                  const std::tm& local) {
  const Icu& library = icu();
  if (!library.complete()) return {};
  const std::string text = formatted(library, date, timeStyle, pattern, local);
  // An m4a gets its title at the start; otherwise ICU would stay in memory for the whole recording.
  releaseLibraryPages("libicu");
  return text;
}

}  // namespace

std::string icuLocale(const std::string& posixName) {
  const std::size_t at = posixName.find('@');
  const std::string modifier = at == std::string::npos ? "" : posixName.substr(at + 1);
  std::string name = posixName.substr(0, posixName.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return "en_US_POSIX";
  const std::string script = modifier == "latin" ? "Latn" : modifier == "cyrillic" ? "Cyrl" : "";
  if (script.empty()) return name;
  const std::size_t country = name.find('_');
  if (country == std::string::npos) return name + "_" + script;
  return name.insert(country, "_" + script);
}

std::string LinuxDateFormatter::stringFromDate(platform::Date date,
                                               const std::string& pattern) const {
  const std::tm local = localTime(date);
  const std::string text = byIcu(date, UDAT_PATTERN, utf16(pattern), local);
  return text.empty() ? plainDate(local) : text;
}

std::string LinuxDateFormatter::localizedMediumTime(platform::Date date) const {
  const std::tm local = localTime(date);
  const std::string text = byIcu(date, UDAT_MEDIUM, {}, local);
  return text.empty() ? plainTime(local) : text;
}

}  // namespace linux_host
