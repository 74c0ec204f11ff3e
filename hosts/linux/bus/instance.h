// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/bus/control_socket.h"
#include "hosts/linux/bus/instance_client.h"
#include "hosts/linux/bus/session_bus.h"
#include "hosts/linux/bus/tool_object.h"

namespace linux_host {

// The one running instance: becomes it, or finds it. By the name on the session bus; without a bus
// by the control socket. Main thread. The bus and the object outlive it.
class Instance {
 public:
  enum class Claim {
    kOurs,    // this process is the instance and can be called from now on
    kOthers,  // another one is
  };

  // `temporaryDirectory` as the file manager names it: asked for only where the socket has no other
  // place, for the folder may hang.
  Instance(SessionBus& bus, std::function<std::string()> temporaryDirectory);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  // Offers `object` and takes the name. Where neither a bus nor a safe place for a socket exists
  // the instance is ours and cannot be reached, which is said on stderr.
  Claim claim(ToolObject& object);

  // A connection to the instance that runs in another process; null when none does.
  [[nodiscard]] std::optional<InstanceClient> find();

  // Gives the name up, so that who starts from now on does not wait for a process that ends.
  void release();

 private:
  Claim claimOnBus(ToolObject& object);
  Claim claimSocket(ToolObject& object, const std::string& why);
  ControlSocket* socket();
  static void onBusClosed(GDBusConnection* connection, gboolean remotePeerVanished, GError* error,
                          gpointer self);

  SessionBus& bus_;
  const std::function<std::string()> temporaryDirectory_;
  std::string socketError_;
  std::unique_ptr<ControlSocket> socket_;
  ToolObject* object_ = nullptr;
  gulong closedHandler_ = 0;
  bool ownsName_ = false;
};

// What came of a start of the program when another instance may run.
enum class HandOver {
  kBecameInstance,
  kDelivered,     // the other instance has the request
  kNotDelivered,  // it does not answer; said in the log
};

// Becomes the instance, or hands the request over, with `uris` as Open and without as Activate.
// Where the other one ends in this moment it is tried again.
[[nodiscard]] HandOver claimOrHandOver(Instance& instance, ToolObject& object,
                                       const std::vector<std::string>& uris);

}  // namespace linux_host
