// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/foundation.h"

namespace linux_host {

// Dates by ICU, which is opened when the first date is formatted: it is large and nothing before
// the end of a recording needs it. Without ICU the date is formatted in the C locale's way.
//
// The locale is that of LC_ALL, LC_TIME or LANG, the time zone that of TZ or the system, both as
// they are at the call.
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
