// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace linux_host {

// What a session manager asks of the program when the user logs out. Main thread.
struct SessionEnd {
  // Saves what is being recorded, and calls `saved` on the main thread once every file is closed;
  // never when the program's main loop ends before that.
  std::function<void(std::function<void()> saved)> save;
  // The session is over: end without the time in which the user is still shown what was saved.
  std::function<void()> quit;
};

}  // namespace linux_host
