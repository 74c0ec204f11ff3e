// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <string>
#include <utility>

#include "hosts/linux/base/main_thread.h"

namespace linux_host {

// The desktop's leave to bring a window forward, as it comes with a click on a launcher, a tray
// icon or a notification: an activation token, or the startup id of an X11 desktop. It is good for
// one window, ours or that of a program we have open something. Main thread.
class ActivationTokens {
 public:
  // Replaces one that nobody has taken; empty: does nothing.
  void give(const std::string& token) {
    mainThread_.check();
    if (!token.empty()) token_ = token;
  }
  // The one this process was started with. Neither a window toolkit nor a child finds it there
  // afterwards, when it is old.
  void giveFromEnvironment() {
    for (const char* variable : {"DESKTOP_STARTUP_ID", "XDG_ACTIVATION_TOKEN"}) {
      const char* token = std::getenv(variable);
      give(token != nullptr ? token : "");
      unsetenv(variable);
    }
  }
  // Empty when there is none.
  std::string take() {
    mainThread_.check();
    return std::exchange(token_, {});
  }

 private:
  MainThreadOnly mainThread_;
  std::string token_;
};

}  // namespace linux_host
