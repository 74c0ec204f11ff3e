// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// The path of the genuine loopback driver, and of the file that makes the daemon start it.
struct LoopbackPlaces {
  std::string program;
  std::string startUpFile;

  // KORVEL_LOOPBACK_DRIVER names the program of a driver to be tried without installation.
  [[nodiscard]] static LoopbackPlaces fromEnvironment();
};

}  // namespace linux_host
