// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace record_audio {

// What became of the recordings whose processes died.
struct RecoveryReport {
  std::vector<std::string> recovered;  // their paths in the output folder
  std::vector<std::string> problems;   // why others stay where they are; texts for the user
  std::vector<std::string> soundless;  // leftovers without any sound; they stay too
};

}  // namespace record_audio
