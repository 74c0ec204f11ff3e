// SPDX-License-Identifier: MIT
#pragma once

#include <iosfwd>
#include <string>

#include "hosts/linux/bus/instance.h"

namespace linux_host {

// The command line's requests to a running instance. Each returns the exit status: 0; 3 with a
// message on `err` when nothing runs or nothing is being recorded; 1 when the instance fails.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitNothingThere = 3;
// Not from these commands: the program had something to show but no screen.
inline constexpr int kExitNoScreen = 4;
// Not from these commands either: another instance runs, and a start could not be handed over to
// it.
inline constexpr int kExitNoAnswer = 5;

// Ends and saves the recording, waits until its file is closed and prints the file's path.
int stopCommand(Instance& instance, std::ostream& out, std::ostream& err);
// Ends the recording and deletes its file.
int cancelCommand(Instance& instance, std::ostream& err);
// Prints one line of JSON.
int statusCommand(Instance& instance, std::ostream& out, std::ostream& err);

}  // namespace linux_host
