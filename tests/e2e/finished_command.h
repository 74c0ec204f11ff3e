// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace e2e {

// The time limit for one step of a program, on a busy machine.
inline constexpr std::chrono::seconds kStepLimit{30};

// A command that ran to its end.
struct FinishedCommand {
  int exitStatus = -1;  // -1: it did not end within kStepLimit
  std::string output;
  std::string errors;
};

// `environment` ("KEY=value") is added to the test's own; `scratch` is a folder for the outputs.
FinishedCommand runToEnd(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment, const std::string& scratch);

// Empty when the file cannot be read.
std::string contentsOf(const std::string& path);

}  // namespace e2e
