// SPDX-License-Identifier: MIT
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/recovery_report.h"

namespace record_audio {

// What the program was started for.
struct CommandLine {
  enum class Command { kRun, kStop, kCancel, kStatus, kRecover, kHelp, kVersion };
  Command command = Command::kRun;
  // With kRun: paths as given, or the bare tool identifier.
  std::vector<std::string> pathsToOpen;
};

// The exit statuses that the core decides. A host adds its own from 3 on.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// What is wrong with the arguments, for the user. The process exits with kExitUsage.
struct CommandLineError {
  std::string text;
};

// `arguments` without the program's path. Pure.
std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments);

// The text of --help, and the one line of --version.
std::string helpText();
std::string versionText(const std::string& version);

// Prints what --recover did. `out` gets the recovered paths, one per line; `err` gets what stays
// where it is, and why. Returns the exit status: 1 when a recording could not be recovered, else 0.
// A leftover without any sound is not a recording.
int printRecovery(const RecoveryReport& report, std::ostream& out, std::ostream& err);

}  // namespace record_audio
