// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/service_start.h"

#include <algorithm>

namespace linux_host {

bool takeServiceStart(std::vector<std::string>* arguments) {
  const auto endOfOptions = std::find(arguments->begin(), arguments->end(), "--");
  const auto kept = std::remove(arguments->begin(), endOfOptions, "--gapplication-service");
  const bool isGiven = kept != endOfOptions;
  arguments->erase(kept, endOfOptions);
  return isGiven;
}

}  // namespace linux_host
