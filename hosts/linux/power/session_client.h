// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/power/session_end.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Registers a recording program with the desktop's session manager on the bus, so that a log-out
// waits until the recording is saved. The name is org.gnome.SessionManager in several desktops.
// Xfce 4.18's manager has a similar interface but crashes on it; XsmpClient handles it, like all
// managers that are not on the bus. The log-out itself is never refused. Main thread; no call waits
// for an answer.
class SessionClient : public suite::ToolDataObserver {
 public:
  // `bus` may be null and outlives the client. `startupId` is the id that the manager gave a
  // program that it started; empty for others. `onNobody` is called when a recording runs and there
  // is no such manager or it does not accept the program.
  SessionClient(GDBusConnection* bus, std::string startupId, SessionEnd end,
                std::function<void()> onNobody);
  ~SessionClient() override;
  SessionClient(const SessionClient&) = delete;
  SessionClient& operator=(const SessionClient&) = delete;

  // Registers once the recording's clock has advanced, so as not to delay the start.
  void toolDataDidChange(const suite::ToolData& data) override;

 private:
  //   kUnasked   the manager has not been asked during this recording -> kAsking, kNobody
  //   kAsking    the call is pending                                  -> kClient, kNobody
  //   kClient    the manager knows the program, until it ends
  //   kNobody    there is none, or it refused                         -> kUnasked (the next
  //                                                                      recording)
  enum class Phase { kUnasked, kAsking, kClient, kNobody };

  // The only function that changes the phase.
  void enter(Phase next) RA_REQUIRES(mainThread_);
  void registerOnBus() RA_REQUIRES(mainThread_);
  void answer();
  static void onRegistered(GObject* bus, GAsyncResult* result, gpointer self);
  static void onSignal(GDBusConnection* connection, const gchar* sender, const gchar* path,
                       const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                       gpointer self);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  const std::string startupId_;
  const SessionEnd end_;
  const std::function<void()> onNobody_;
  const ObjectPtr<GCancellable> cancellable_;
  std::string path_;  // the client's object at the manager; empty while not registered
  guint subscription_ = 0;
  Phase phase_ RA_GUARDED_BY(mainThread_) = Phase::kUnasked;
};

// The id that the session manager gave to a program that it started. Removes it from the
// environment, because child processes must not use it. Call before other threads read the
// environment.
std::string takeStartupId();

}  // namespace linux_host
