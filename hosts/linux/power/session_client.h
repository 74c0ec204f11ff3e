// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/power/session_end.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Makes a program that records a client of the desktop's session manager on the bus, so that a
// log-out waits until the recording is saved: org.gnome.SessionManager, which is the name in
// several desktops. The manager of Xfce 4.18 has a like interface and crashes on it; it is reached
// by XsmpClient, as all that are not on the bus. The log-out itself is never refused. Main thread;
// no call waits for an answer.
class SessionClient : public suite::ToolDataObserver {
 public:
  // `bus` may be null and outlives the client. `startupId` is what the manager gave a program that
  // it started, empty for others. `onNobody` is called when a recording runs and there is no such
  // manager or it does not take the program.
  SessionClient(GDBusConnection* bus, std::string startupId, SessionEnd end,
                std::function<void()> onNobody);
  ~SessionClient() override;
  SessionClient(const SessionClient&) = delete;
  SessionClient& operator=(const SessionClient&) = delete;

  // Asks the manager when the recording's clock has moved on: its start has other things to do.
  void toolDataDidChange(const suite::ToolData& data) override;

 private:
  void registerOnBus();
  void answer();
  static void onRegistered(GObject* bus, GAsyncResult* result, gpointer self);
  static void onSignal(GDBusConnection* connection, const gchar* sender, const gchar* path,
                       const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                       gpointer self);

  GDBusConnection* const bus_;
  const std::string startupId_;
  const SessionEnd end_;
  const std::function<void()> onNobody_;
  GCancellable* const cancellable_;
  std::string path_;  // the client's object at the manager; empty while it is nobody's client
  guint subscription_ = 0;
  bool asking_ = false;  // the answer is on its way
  bool asked_ = false;   // for the recording that runs
};

// The id by which the session manager knows the program it has started; taken out of the
// environment, as it is nobody else's. Before other threads look into the environment.
std::string takeStartupId();

}  // namespace linux_host
