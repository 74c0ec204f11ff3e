// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/foundation.h"

namespace linux_host {

// Formats dates with ICU, which is large. It is opened when the first date is formatted, and stays
// in memory only while a date is being formatted. Without ICU the date is formatted as in the C
// locale.
//
// The locale comes from LC_ALL, LC_TIME or LANG, the time zone from TZ or the system, both at the
// time of the call.
class LinuxDateFormatter : public platform::DateFormatter {
 public:
  [[nodiscard]] std::string stringFromDate(platform::Date date,
                                           const std::string& pattern) const override;
  [[nodiscard]] std::string localizedMediumTime(platform::Date date) const override;
};

// The ICU locale of a POSIX locale name: "de_DE.UTF-8" gives "de_DE", "sr_RS@latin" "sr_Latn_RS",
// "C" and the empty name "en_US_POSIX".
std::string icuLocale(const std::string& posixName);

}  // namespace linux_host
