// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/bus/tool_object.h"

namespace linux_host {

// Where a program without a session bus is found by its user's other programs: a socket that
// speaks D-Bus, peer to peer, and a lock beside it that only one instance holds. Main thread.
class ControlSocket {
 public:
  // In `folder`, which is this user's alone.
  explicit ControlSocket(const std::string& folder);
  // Removes the socket and releases the lock.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  // $XDG_RUNTIME_DIR, else a folder of mode 0700 under `temporaryDirectory`, made if missing. Empty
  // with *error set when there is none that is safe: one of another user, or open to others.
  static std::string safeFolder(const std::function<std::string()>& temporaryDirectory,
                                std::string* error);

  // Takes the lock. False when another instance has it, or, with *error set, when that cannot be
  // known.
  bool lock(std::string* error);
  // Whether another instance has it; takes nothing.
  [[nodiscard]] bool isHeldByOther() const;

  // With the lock: offers `object` to who connects. False with *error set on failure. The object
  // outlives the socket.
  bool listen(ToolObject& object, std::string* error);

  // Connects to the instance that holds the lock, waiting at most `timeout_ms` also for one that is
  // just coming up. Null with *error set when that fails.
  [[nodiscard]] ConnectionPtr connect(int timeout_ms, std::string* error) const;

 private:
  static gboolean onConnection(GDBusServer* server, GDBusConnection* connection, gpointer object);
  [[nodiscard]] std::string address() const;

  const std::string socket_;
  const std::string lockFile_;
  int lockFd_ = -1;
  std::unique_ptr<GDBusServer, ObjectUnref> server_;
};

}  // namespace linux_host
