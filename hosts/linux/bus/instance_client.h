// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"

namespace linux_host {

// Calls to the running program, over the bus or its control socket. The calls block, for programs
// that do nothing else, and return within their timeout. Main thread.
class InstanceClient {
 public:
  enum class Outcome {
    kDone,
    kNothingRecorded,
    kNotRunning,  // no such program, or gone before it answered
    kFailed,
  };
  struct Reply {
    Outcome outcome = Outcome::kFailed;
    std::string text;  // the result, or what failed
  };

  // Over a message bus, by the program's name. Does not own the connection.
  static InstanceClient onBus(GDBusConnection* connection);
  // Over a connection to its control socket.
  static InstanceClient onSocket(ConnectionPtr connection);

  // Whether the program is running right now.
  [[nodiscard]] bool isRunning() const;
  Reply activate();
  Reply open(const std::vector<std::string>& uris);
  Reply action(const std::string& name, int timeout_ms);
  Reply status();

 private:
  InstanceClient(GDBusConnection* connection, ConnectionPtr owned, const char* name)
      : connection_(connection), owned_(std::move(owned)), name_(name) {}
  // An answer of another type than `answerType`, "()" or "(s)", is a failure.
  Reply call(const char* interfaceName, const char* method, GVariant* parameters,
             const char* answerType, int timeout_ms);

  GDBusConnection* connection_;
  ConnectionPtr owned_;
  const char* name_;  // null between peers
};

// The launching desktop's data for the program that it starts; an "a{sv}" for the calls above.
GVariant* platformData();

}  // namespace linux_host
