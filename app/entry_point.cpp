// SPDX-License-Identifier: MIT
#include "app/entry_point.h"

#include <ostream>
#include <variant>

#include "app/recording_recovery.h"

namespace record_audio {

int runCommand(const std::vector<std::string>& arguments, const std::string& version,
               const HostCommands& host, std::ostream& out, std::ostream& err) {
  const auto parsed = parseCommandLine(arguments);
  if (const auto* error = std::get_if<CommandLineError>(&parsed)) {
    err << error->text << '\n';
    return kExitUsage;
  }
  const auto& commandLine = std::get<CommandLine>(parsed);
  switch (commandLine.command) {
    case CommandLine::Command::kHelp:
      out << helpText();
      return kExitDone;
    case CommandLine::Command::kVersion:
      out << versionText(version);
      return kExitDone;
    case CommandLine::Command::kRecover:
      return host.recover();
    case CommandLine::Command::kRun:
      return host.run(commandLine);
    case CommandLine::Command::kStop:
    case CommandLine::Command::kCancel:
    case CommandLine::Command::kStatus:
      return host.askInstance(commandLine.command);
  }
  return kExitUsage;
}

int recoverRecordings(const suite::Environment& environment, std::ostream& out, std::ostream& err) {
  const auto folder = environment.suite.locationManager.locationForCurrentTool();
  // The log has said what is wrong with the folder.
  if (!folder) return kExitFailed;
  return printRecovery(RecordingRecovery::create(environment, *folder)->run(), out, err);
}

}  // namespace record_audio
