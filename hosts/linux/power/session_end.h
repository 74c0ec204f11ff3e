// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace linux_host {

// What a session manager asks the program to do when the user logs out. Main thread.
struct SessionEnd {
  // Saves the recording and calls `saved` on the main thread once every file is closed; never if
  // the program's main loop ends first.
  std::function<void(std::function<void()> saved)> save;
  // The session is over: end without the time in which the notification is still shown.
  std::function<void()> quit;
};

}  // namespace linux_host
