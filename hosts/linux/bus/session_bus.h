// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/bus/dbus_support.h"

namespace linux_host {

// The user's session bus, if there is one. Main thread.
class SessionBus {
 public:
  // Connects at once, through DBUS_SESSION_BUS_ADDRESS or $XDG_RUNTIME_DIR/bus; never starts a bus.
  SessionBus();

  // Null when there is none.
  [[nodiscard]] GDBusConnection* connection() const { return connection_.get(); }
  // Why there is none; empty otherwise.
  [[nodiscard]] const std::string& error() const { return error_; }

  // The address to connect to; empty when the environment names no bus.
  [[nodiscard]] static std::string address();

 private:
  std::string error_;
  ConnectionPtr connection_;
};

}  // namespace linux_host
