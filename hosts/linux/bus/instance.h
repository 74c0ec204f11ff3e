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
#include "platform/thread_role.h"

namespace linux_host {

// Becomes the only running instance, or finds it: by the name on the session bus, or without a bus
// by the control socket. Main thread. The bus and the object outlive this.
class Instance {
 public:
  enum class Claim {
    kOurs,    // this process is the instance and can be reached from now on
    kOthers,  // another process is the instance
  };

  // `temporaryDirectory` returns the file manager's. It is called only if the socket has no other
  // place, because the folder may hang.
  Instance(SessionBus& bus, std::function<std::string()> temporaryDirectory);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  // Offers `object` and takes the name. If there is neither a bus nor a safe place for a socket,
  // returns kOurs although the instance cannot be reached, and says so on stderr.
  Claim claim(ToolObject& object);

  // A connection to the instance in another process; null when there is none.
  [[nodiscard]] std::optional<InstanceClient> find();

  // Releases the name, so that a new start does not wait for a process that is ending.
  void release();

 private:
  Claim claimOnBus(ToolObject& object);
  Claim claimSocket(ToolObject& object, const std::string& why);
  ControlSocket* socket();
  static void onBusClosed(GDBusConnection* connection, gboolean remotePeerVanished, GError* error,
                          gpointer self);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  SessionBus& bus_;
  const std::function<std::string()> temporaryDirectory_;
  std::string socketError_;
  std::unique_ptr<ControlSocket> socket_;
  ToolObject* object_ = nullptr;
  gulong closedHandler_ = 0;
  bool ownsName_ = false;
};

// The result of a start when another instance may be running.
enum class HandOver {
  kBecameInstance,
  kDelivered,     // the other instance has the request
  kNotDelivered,  // it does not answer; said in the log
};

// Becomes the instance, or hands the request over: as Open with `uris`, as Activate without. Tries
// again if the other instance is just ending.
[[nodiscard]] HandOver claimOrHandOver(Instance& instance, ToolObject& object,
                                       const std::vector<std::string>& uris);

}  // namespace linux_host
