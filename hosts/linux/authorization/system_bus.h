// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>

#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"

namespace linux_host {

// The machine's system bus. Connects when it is first needed, and again after the connection was
// lost. Main thread.
class SystemBus {
 public:
  // `address`: empty for the environment's bus.
  explicit SystemBus(std::string address = {}) : address_(std::move(address)) {}

  struct Method {
    const char* service;
    const char* object;
    const char* interface;
    const char* name;
  };
  // `value` is null when the call failed; `error` says why.
  struct Reply {
    VariantPtr value;
    ErrorPtr error;
  };
  inline static constexpr int kNoTimeLimit = G_MAXINT;

  // False, with a message in the log, when there is no bus.
  bool connect();
  // Calls, and runs the main loop until the answer is there, so that windows stay responsive while
  // the user is asked something. `arguments` may be floating. `resultType`: the type of a valid
  // reply.
  Reply call(const Method& method, GVariant* arguments, const char* resultType, int timeout_ms);

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::string address_;
  ConnectionPtr connection_;
};

}  // namespace linux_host
