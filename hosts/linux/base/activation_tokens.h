// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <string>
#include <utility>

#include "platform/thread_role.h"

namespace linux_host {

// The desktop's permission to bring a window forward, which comes with a click on a launcher, a
// tray icon or a notification: an activation token, or the startup id of an X11 desktop. It is
// valid for one window, ours or that of a program that opens something for us. Main thread.
class ActivationTokens {
 public:
  // Replaces a token that has not been taken; does nothing if `token` is empty.
  void give(const std::string& token) {
    mainThread_.assertHeld();
    if (!token.empty()) token_ = token;
  }
  // Takes the token that this process was started with and removes it from the environment, so that
  // neither a window toolkit nor a child process uses it later, when it is old.
  void giveFromEnvironment() {
    for (const char* variable : {"DESKTOP_STARTUP_ID", "XDG_ACTIVATION_TOKEN"}) {
      const char* token = std::getenv(variable);
      give(token != nullptr ? token : "");
      unsetenv(variable);
    }
  }
  // Empty when there is none.
  std::string take() {
    mainThread_.assertHeld();
    return std::exchange(token_, {});
  }

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::string token_;
};

}  // namespace linux_host
