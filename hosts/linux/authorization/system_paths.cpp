// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/system_paths.h"

#include <array>
#include <string_view>
#include <utility>

#include "driver/installed_paths.h"

namespace linux_host {

std::string mappedSystemPath(const std::string& path) {
  static constexpr std::array<std::pair<std::string_view, const char*>, 2> kPlaces = {{
      {"/Library/Audio/Plug-Ins/HAL", loopback::kPlugInDirectory},
      {"/Applications/Vantrel Korvel.app", loopback::kSuiteDirectory},
  }};
  for (const auto& [known, place] : kPlaces) {
    if (!path.starts_with(known)) continue;
    const std::string rest = path.substr(known.size());
    if (rest.empty() || rest.front() == '/') return place + rest;
  }
  return path;
}

}  // namespace linux_host
