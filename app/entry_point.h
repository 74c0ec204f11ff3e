// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "suite/environment.h"

namespace record_audio {

// The commands that need a machine. Each host's entry point fills them in; each returns the exit
// status of the process.
struct HostCommands {
  // Records, or does what the instance that already runs is asked to do by a second start.
  std::function<int(const CommandLine&)> run;
  // kStop, kCancel or kStatus: asks the instance that runs.
  std::function<int(CommandLine::Command)> askInstance;
  // Makes the host's environment without a need for sound, and calls recoverRecordings().
  std::function<int()> recover;
};

// What the entry points of all hosts share: reads the arguments (without the program's path and
// without what only the host understands), prints what can be said without a machine and leaves the
// rest to the host. Returns the exit status of the process. Main thread.
int runCommand(const std::vector<std::string>& arguments, const std::string& version,
               const HostCommands& host, std::ostream& out, std::ostream& err);

// The command --recover on a machine: saves what killed processes left behind, and prints what
// became of it. Returns the exit status of the process. Main thread.
int recoverRecordings(const suite::Environment& environment, std::ostream& out, std::ostream& err);

}  // namespace record_audio
