// SPDX-License-Identifier: MIT
#include "hosts/linux/power/login_session.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <cassert>
#include <string_view>
#include <utility>

namespace linux_host {
namespace {

constexpr const char* kLogin1 = "org.freedesktop.login1";
constexpr const char* kLogin1Path = "/org/freedesktop/login1";
// This path names the caller's own session.
constexpr const char* kOwnSession = "/org/freedesktop/login1/session/auto";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

// A duplicate of the descriptor that the answer "(h)" names; none if it names none of those that
// came with it.
loopback::UniqueFd descriptorOf(GVariant* answer, GUnixFDList* descriptors) {
  gint32 index = -1;
  g_variant_get(answer, "(h)", &index);
  const int count = descriptors != nullptr ? g_unix_fd_list_get_length(descriptors) : 0;
  return loopback::UniqueFd(
      index >= 0 && index < count ? g_unix_fd_list_get(descriptors, index, nullptr) : -1);
}

}  // namespace

bool isRecording(const suite::ToolData& data) {
  // The status changes only when the start is confirmed; the icon is there once it is accepted, and
  // blinks later.
  return !data.menuText.empty() && (data.toolStatus == 1 || !data.toolIcon.empty());
}

// A pending call. If the session is gone when the answer comes, the call was cancelled.
struct LoginSession::Lock {
  LoginSession* session;
  loopback::UniqueFd LoginSession::*descriptor;
};

LoginSession::LoginSession(std::string why, std::function<void()> onShutdown,
                           std::function<void()> onLogout)
    : why_(std::move(why)),
      onShutdown_(std::move(onShutdown)),
      onLogout_(std::move(onLogout)),
      cancellable_(g_cancellable_new()) {}

LoginSession::~LoginSession() {
  g_cancellable_cancel(cancellable_.get());
  forgetBus();
}

void LoginSession::toolDataDidChange(const suite::ToolData& data) {
  mainThread_.assertHeld();
  const bool recording = isRecording(data);
  if (recording == isRecordingNow()) return;
  if (recording) {
    enter(Phase::kRecording);
    inhibitBoth();
    return;
  }
  enter(phase_ == Phase::kShuttingDown ? Phase::kSaving : Phase::kResting);
  sleepLock_.reset();
  if (phase_ == Phase::kResting) shutdownLock_.reset();
}

void LoginSession::enter(Phase next) {
  assert(next != Phase::kResting || phase_ != Phase::kShuttingDown);
  assert(next != Phase::kShuttingDown || phase_ == Phase::kRecording);
  assert(next != Phase::kSaving || phase_ == Phase::kShuttingDown);
  assert(next != phase_);
  phase_ = next;
}

void LoginSession::forgetBus() {
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_.get(), subscription_);
  subscription_ = 0;
  bus_.reset();
}

void LoginSession::connect() {
  if (std::exchange(connecting_, true)) return;
  g_bus_get(
      G_BUS_TYPE_SYSTEM, cancellable_.get(),
      [](GObject*, GAsyncResult* result, gpointer self) {
        GError* failure = nullptr;
        GDBusConnection* bus = g_bus_get_finish(result, &failure);
        const ErrorPtr error(failure);
        if (error && g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;
        auto* session = static_cast<LoginSession*>(self);
        session->connecting_ = false;
        if (bus == nullptr) return;
        session->bus_.reset(bus);
        g_dbus_connection_set_exit_on_close(bus, FALSE);
        session->subscription_ = g_dbus_connection_signal_subscribe(
            bus, kLogin1, kInterface, nullptr, kLogin1Path, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            onSignal, session, nullptr);
        session->mainThread_.assertHeld();
        if (session->isRecordingNow()) session->inhibitBoth();
      },
      this);
}

void LoginSession::inhibitBoth() {
  mainThread_.assertHeld();
  if (bus_ && g_dbus_connection_is_closed(bus_.get()) != FALSE) forgetBus();
  if (!bus_) {
    connect();
    return;
  }
  inhibit("sleep:idle", "block", &LoginSession::sleepLock_);
  inhibit("shutdown", "delay", &LoginSession::shutdownLock_);
  if (sessionId_.empty()) askForSession();
}

// A program started by the bus belongs to no session. It then counts as part of its user's
// graphical session.
void LoginSession::askForSession() {
  g_dbus_connection_call(
      bus_.get(), kLogin1, kOwnSession, "org.freedesktop.DBus.Properties", "Get",
      g_variant_new("(ss)", "org.freedesktop.login1.Session", "Id"), G_VARIANT_TYPE("(v)"),
      G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, cancellable_.get(),
      [](GObject* bus, GAsyncResult* result, gpointer self) {
        GError* failure = nullptr;
        const VariantPtr answer(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &failure));
        const ErrorPtr error(failure);
        if (!answer) return;
        const VariantPtr boxed(g_variant_get_child_value(answer.get(), 0));
        const VariantPtr id(g_variant_get_variant(boxed.get()));
        if (g_variant_is_of_type(id.get(), G_VARIANT_TYPE_STRING) == FALSE) return;
        static_cast<LoginSession*>(self)->sessionId_ = g_variant_get_string(id.get(), nullptr);
      },
      this);
}

void LoginSession::releaseShutdown() {
  mainThread_.assertHeld();
  if (phase_ == Phase::kSaving) enter(Phase::kResting);
  if (phase_ == Phase::kShuttingDown) enter(Phase::kRecording);
  shutdownLock_.reset();
}

void LoginSession::inhibit(const char* what, const char* mode,
                           loopback::UniqueFd LoginSession::*descriptor) {
  g_dbus_connection_call_with_unix_fd_list(
      bus_.get(), kLogin1, kLogin1Path, kInterface, "Inhibit",
      g_variant_new("(ssss)", what, "Record Audio", why_.c_str(), mode), G_VARIANT_TYPE("(h)"),
      G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, cancellable_.get(),
      [](GObject* bus, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Lock> lock(static_cast<Lock*>(data));
        GUnixFDList* sent = nullptr;
        const VariantPtr answer(g_dbus_connection_call_with_unix_fd_list_finish(
            G_DBUS_CONNECTION(bus), &sent, result, nullptr));
        const ObjectPtr<GUnixFDList> descriptors(sent);
        if (!answer) return;
        loopback::UniqueFd granted = descriptorOf(answer.get(), descriptors.get());
        if (!granted.valid()) return;
        // The recording may have ended before the answer came.
        lock->session->mainThread_.assertHeld();
        if (!lock->session->isRecordingNow()) granted.reset();
        lock->session->*lock->descriptor = std::move(granted);
      },
      new Lock{this, descriptor});
}

void LoginSession::onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                            const gchar* signal, GVariant* parameters, gpointer self) {
  auto* session = static_cast<LoginSession*>(self);
  const std::string_view name = signal;
  if (name == "PrepareForShutdown") {
    session->prepareForShutdown(parameters);
  } else if (name == "SessionRemoved") {
    session->sessionRemoved(parameters);
  }
}

void LoginSession::prepareForShutdown(GVariant* parameters) {
  mainThread_.assertHeld();
  if (!areOfType(parameters, "(b)", "PrepareForShutdown")) return;
  gboolean goingDown = FALSE;
  g_variant_get(parameters, "(b)", &goingDown);
  if (goingDown == FALSE || !isRecordingNow()) return;
  if (phase_ == Phase::kRecording) enter(Phase::kShuttingDown);
  onShutdown_();
}

void LoginSession::sessionRemoved(GVariant* parameters) {
  mainThread_.assertHeld();
  if (!areOfType(parameters, "(so)", "SessionRemoved")) return;
  const gchar* id = nullptr;
  g_variant_get(parameters, "(&so)", &id, nullptr);
  if (isRecordingNow() && !sessionId_.empty() && sessionId_ == id) onLogout_();
}

}  // namespace linux_host
