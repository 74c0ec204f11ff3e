// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// Where the loopback driver lies that may call itself so, and what has the daemon start it.
struct LoopbackPlaces {
  std::string program;
  std::string startUpFile;

  // KORVEL_LOOPBACK_DRIVER names the program of a driver that is tried without being installed.
  [[nodiscard]] static LoopbackPlaces fromEnvironment();
};

}  // namespace linux_host
