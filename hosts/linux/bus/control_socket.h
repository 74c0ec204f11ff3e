// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "driver/unique_fd.h"
#include "hosts/linux/base/expected.h"
#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/bus/tool_object.h"
#include "platform/thread_role.h"

namespace linux_host {

// How the user's other programs reach a program without a session bus: through a socket that speaks
// peer-to-peer D-Bus. A lock file beside it is held by only one instance. Main thread.
class ControlSocket {
 public:
  // `folder` must belong to this user and be closed to others.
  explicit ControlSocket(const std::string& folder);
  // Removes the socket and releases the lock.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  // Returns $XDG_RUNTIME_DIR, or else a folder of mode 0700 in `temporaryDirectory`, created if
  // missing. Fails if that folder is not safe: it belongs to another user or is open to others.
  static Expected<std::string> safeFolder(const std::function<std::string()>& temporaryDirectory);

  // Takes the lock. False when another instance has it; fails when that is unknown.
  Expected<bool> lock();
  // Whether another instance has the lock. Does not take it.
  [[nodiscard]] bool isHeldByOther() const;

  // Offers `object` to every client that connects. Call with the lock held. The object outlives the
  // socket.
  Status listen(ToolObject& object);

  // Connects to the instance that holds the lock, even if it is still starting. Waits at most
  // `timeout_ms`.
  Expected<ConnectionPtr> connect(int timeout_ms) const;

 private:
  static gboolean onConnection(GDBusServer* server, GDBusConnection* connection, gpointer object);
  [[nodiscard]] std::string address() const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string socket_;
  const std::string lockFile_;
  // The lock file stays: removing it could remove one that another instance has just locked.
  loopback::UniqueFd lockFd_;
  ObjectPtr<GDBusServer> server_;
};

}  // namespace linux_host
