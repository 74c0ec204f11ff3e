// SPDX-License-Identifier: MIT
#include "app/command_line.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <string_view>

namespace record_audio {
namespace {

struct Option {
  std::string_view name;
  CommandLine::Command command;
};

constexpr std::array kOptions = {
    Option{"--stop", CommandLine::Command::kStop},
    Option{"--cancel", CommandLine::Command::kCancel},
    Option{"--status", CommandLine::Command::kStatus},
    Option{"--recover", CommandLine::Command::kRecover},
    Option{"--help", CommandLine::Command::kHelp},
    Option{"--version", CommandLine::Command::kVersion},
};

// The suite passes it to all its tools; this one ignores it.
constexpr std::string_view kPreferences = "--preferences";
constexpr std::string_view kEndOfOptions = "--";

const Option* optionNamed(std::string_view name) {
  const auto* found = std::find_if(kOptions.begin(), kOptions.end(),
                                   [name](const Option& option) { return option.name == name; });
  return found == kOptions.end() ? nullptr : found;
}

CommandLineError usageError(const std::string& what) {
  return {what + "\nTry record-audio --help."};
}

}  // namespace

std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments) {
  CommandLine line;
  std::string chosen;
  bool optionsOver = false;
  for (const std::string& argument : arguments) {
    if (optionsOver || !argument.starts_with('-') || argument == "-") {
      if (argument.empty()) return usageError("An argument is empty; give a path.");
      line.pathsToOpen.push_back(argument);
    } else if (argument == kEndOfOptions) {
      optionsOver = true;
    } else if (const Option* option = optionNamed(argument)) {
      if (!chosen.empty() && chosen != argument) {
        return usageError(chosen + " and " + argument + " exclude each other.");
      }
      chosen = argument;
      line.command = option->command;
    } else if (argument != kPreferences) {
      return usageError("Unknown option " + argument + ".");
    }
  }
  if (!chosen.empty() && !line.pathsToOpen.empty()) {
    return usageError(chosen + " takes no path, but " + line.pathsToOpen.front() + " was given.");
  }
  return line;
}

std::string helpText() {
  return "Usage: record-audio [PATH]\n"
         "       record-audio --stop | --cancel | --status | --recover | --help | --version\n"
         "\n"
         "Records sound into a file. Started again while it records, it stops and saves.\n"
         "A PATH that ends with the tool identifier a5f597ea-d3f3-4347-bbe6-344e240acc7e\n"
         "opens the preferences.\n"
         "\n"
         "  --stop      end the running recording, save it and print the file's path\n"
         "  --cancel    end the running recording and delete its file\n"
         "  --status    print what the running program does, as one line of JSON\n"
         "  --recover   save the recordings of programs that were killed, as every start does,\n"
         "              print their paths, and record nothing\n"
         "  --help      print this text\n"
         "  --version   print the version\n"
         "\n"
         "Exit status: 0 on success (also when there was nothing to recover), 1 on failure, 2 for\n"
         "wrong arguments, 3 when nothing runs or nothing is being recorded, 4 when there was no\n"
         "screen to show an alert or the preferences on, 5 when another instance runs and does "
         "not\n"
         "answer.\n";
}

std::string versionText(const std::string& version) {
  return "record-audio " + version + "\n";
}

int printRecovery(const RecoveryReport& report, std::ostream& out, std::ostream& err) {
  for (const std::string& path : report.recovered) out << path << '\n';
  for (const std::string& path : report.soundless) {
    err << "record-audio: " << path << " ended before it had any sound; you may delete it.\n";
  }
  for (const std::string& problem : report.problems) err << "record-audio: " << problem << '\n';
  return report.problems.empty() ? kExitDone : kExitFailed;
}

}  // namespace record_audio
