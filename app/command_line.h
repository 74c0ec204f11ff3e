#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace record_audio {

// What the program was started for.
struct CommandLine {
  enum class Command { kRun, kStop, kCancel, kStatus, kHelp, kVersion };
  Command command = Command::kRun;
  // With kRun: paths as given, or the bare tool identifier.
  std::vector<std::string> pathsToOpen;
  // With kRun: started by the bus on behalf of a request that follows.
  bool startedByBus = false;
};

// Why the arguments make no sense, for the user; the process exits with kExitUsage.
struct CommandLineError {
  std::string text;
};
inline constexpr int kExitUsage = 2;

// `arguments` without the program's path. Pure.
std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments);

// The text of --help, and the one line of --version.
std::string helpText();
std::string versionText(const std::string& version);

}  // namespace record_audio
