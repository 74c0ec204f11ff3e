// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/settings_in_range.h"

#include "hosts/linux/base/log.h"

namespace linux_host {

std::int64_t SettingsInRange::integerForKey(const std::string& key) const {
  const std::int64_t value = settings_.integerForKey(key);
  for (const Code& code : codes_) {
    if (code.key != key || (value >= code.first && value <= code.last)) continue;
    logMessage(LogLevel::kWarning, "The setting " + key + " is " + std::to_string(value) +
                                       ", which means nothing; " + std::to_string(code.fallback) +
                                       " is used instead. Choose it again in the preferences.");
    return code.fallback;
  }
  return value;
}

}  // namespace linux_host
