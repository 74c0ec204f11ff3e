// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "driver/unique_fd.h"
#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Keeps the machine from suspending while a recording runs, and makes a shutdown wait until it is
// saved, with inhibitors of org.freedesktop.login1. That service also reports when the user has
// logged out. Without the service nothing happens. Main thread; no call waits for an answer.
class LoginSession : public suite::ToolDataObserver {
 public:
  // `why` is the reason that the desktop shows. `onShutdown` is called when the machine shuts down
  // during a recording, `onLogout` when this user's session is over.
  LoginSession(std::string why, std::function<void()> onShutdown, std::function<void()> onLogout);
  ~LoginSession() override;
  LoginSession(const LoginSession&) = delete;
  LoginSession& operator=(const LoginSession&) = delete;

  void toolDataDidChange(const suite::ToolData& data) override;

  // The recording's files are closed: the machine may shut down.
  void releaseShutdown();

 private:
  // The allowed changes:
  //   kResting       nothing is recorded, no lock is held         -> kRecording
  //   kRecording     both locks are held, or have been asked for  -> kResting, kShuttingDown
  //   kShuttingDown  the shutdown waits; the recording still runs -> kSaving, kRecording
  //   kSaving        it has ended; the shutdown lock is kept
  //                  until its files are closed                   -> kResting, kRecording
  enum class Phase { kResting, kRecording, kShuttingDown, kSaving };

  struct Lock;

  void enter(Phase next) RA_REQUIRES(mainThread_);
  [[nodiscard]] bool isRecordingNow() const RA_REQUIRES(mainThread_) {
    return phase_ == Phase::kRecording || phase_ == Phase::kShuttingDown;
  }
  void connect();
  void forgetBus();
  // Asks for the locks.
  void inhibitBoth();
  void inhibit(const char* what, const char* mode, loopback::UniqueFd LoginSession::*descriptor);
  void askForSession();
  void prepareForShutdown(GVariant* parameters);
  void sessionRemoved(GVariant* parameters);
  static void onSignal(GDBusConnection* connection, const gchar* sender, const gchar* path,
                       const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                       gpointer self);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string why_;
  std::function<void()> onShutdown_;
  std::function<void()> onLogout_;
  std::string sessionId_;  // empty until it is known
  const ObjectPtr<GCancellable> cancellable_;
  ConnectionPtr bus_;
  guint subscription_ = 0;
  bool connecting_ = false;
  Phase phase_ RA_GUARDED_BY(mainThread_) = Phase::kResting;
  loopback::UniqueFd sleepLock_;
  loopback::UniqueFd shutdownLock_;
};

// Whether a recording runs or has been accepted, by what the suite's menu shows.
bool isRecording(const suite::ToolData& data);

}  // namespace linux_host
