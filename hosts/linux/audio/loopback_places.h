#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "driver/installed_paths.h"

namespace linux_host {

// Where the loopback driver lies that may call itself so, and what has the daemon start it.
struct LoopbackPlaces {
  std::string program;
  std::string startUpFile;

  // KORVEL_LOOPBACK_DRIVER names the program of a driver that is tried without being installed.
  [[nodiscard]] static LoopbackPlaces fromEnvironment() {
    if (const char* tried = std::getenv("KORVEL_LOOPBACK_DRIVER"); tried != nullptr && *tried) {
      std::error_code failed;
      const std::string program = std::filesystem::canonical(tried, failed).string();
      return {failed ? tried : program, tried};
    }
    using namespace loopback;
    return {std::string(kPlugInDirectory) + "/" + kDriverBundleName + "/" + kBundleProgram,
            std::string(kDropInDirectory) + "/" + kDropInName};
  }
};

}  // namespace linux_host
