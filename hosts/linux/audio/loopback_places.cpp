// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/loopback_places.h"

#include <cstdlib>
#include <filesystem>

#include "driver/installed_paths.h"

namespace linux_host {

LoopbackPlaces LoopbackPlaces::fromEnvironment() {
  if (const char* tried = std::getenv("KORVEL_LOOPBACK_DRIVER"); tried != nullptr && *tried) {
    std::error_code failed;
    const std::string program = std::filesystem::canonical(tried, failed).string();
    return {failed ? tried : program, tried};
  }
  using namespace loopback;
  return {std::string(kPlugInDirectory) + "/" + kDriverBundleName + "/" + kBundleProgram,
          std::string(kDropInDirectory) + "/" + kDropInName};
}

}  // namespace linux_host
