#include "hosts/linux/power/login_session.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <utility>

namespace linux_host {
namespace {

constexpr const char* kLogin1 = "org.freedesktop.login1";
constexpr const char* kLogin1Path = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

void closeAndForget(int* descriptor) {
  if (*descriptor >= 0) close(*descriptor);
  *descriptor = -1;
}

// The caller's own copy of the descriptor that the answer "(h)" names; -1 when it names none of
// those that came with it.
int descriptorOf(GVariant* answer, GUnixFDList* descriptors) {
  gint32 index = -1;
  g_variant_get(answer, "(h)", &index);
  const int count = descriptors != nullptr ? g_unix_fd_list_get_length(descriptors) : 0;
  return index >= 0 && index < count ? g_unix_fd_list_get(descriptors, index, nullptr) : -1;
}

}  // namespace

bool isRecording(const suite::ToolData& data) {
  return data.toolStatus == 1 && !data.menuText.empty();
}

// A call under way. The answer may come when the session is gone; then it was cancelled.
struct LoginSession::Lock {
  LoginSession* session;
  int LoginSession::*descriptor;
};

LoginSession::LoginSession(std::string why, std::function<void()> onShutdown)
    : why_(std::move(why)), onShutdown_(std::move(onShutdown)), cancellable_(g_cancellable_new()) {}

LoginSession::~LoginSession() {
  g_cancellable_cancel(cancellable_);
  g_object_unref(cancellable_);
  forgetBus();
  closeAndForget(&sleepLock_);
  closeAndForget(&shutdownLock_);
}

void LoginSession::toolDataDidChange(const suite::ToolData& data) {
  const bool recording = isRecording(data);
  if (recording == std::exchange(recording_, recording)) return;
  if (recording) {
    begin();
  } else {
    end();
  }
}

void LoginSession::forgetBus() {
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_.get(), subscription_);
  subscription_ = 0;
  bus_.reset();
}

void LoginSession::connect() {
  if (std::exchange(connecting_, true)) return;
  g_bus_get(
      G_BUS_TYPE_SYSTEM, cancellable_,
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
            bus, kLogin1, kInterface, "PrepareForShutdown", kLogin1Path, nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE, onSignal, session, nullptr);
        if (session->recording_) session->begin();
      },
      this);
}

void LoginSession::begin() {
  if (bus_ && g_dbus_connection_is_closed(bus_.get()) != FALSE) forgetBus();
  if (!bus_) {
    connect();
    return;
  }
  saving_ = false;
  inhibit("sleep:idle", "block", &LoginSession::sleepLock_);
  inhibit("shutdown", "delay", &LoginSession::shutdownLock_);
}

void LoginSession::end() {
  closeAndForget(&sleepLock_);
  if (!saving_) closeAndForget(&shutdownLock_);
}

void LoginSession::releaseShutdown() {
  saving_ = false;
  closeAndForget(&shutdownLock_);
}

void LoginSession::inhibit(const char* what, const char* mode, int LoginSession::*descriptor) {
  g_dbus_connection_call_with_unix_fd_list(
      bus_.get(), kLogin1, kLogin1Path, kInterface, "Inhibit",
      g_variant_new("(ssss)", what, "Record Audio", why_.c_str(), mode), G_VARIANT_TYPE("(h)"),
      G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, cancellable_,
      [](GObject* bus, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Lock> lock(static_cast<Lock*>(data));
        GUnixFDList* sent = nullptr;
        const VariantPtr answer(g_dbus_connection_call_with_unix_fd_list_finish(
            G_DBUS_CONNECTION(bus), &sent, result, nullptr));
        const std::unique_ptr<GUnixFDList, ObjectUnref> descriptors(sent);
        if (!answer) return;
        int granted = descriptorOf(answer.get(), descriptors.get());
        if (granted < 0) return;
        closeAndForget(&(lock->session->*lock->descriptor));
        // The recording may have ended while the answer was on its way.
        if (lock->session->recording_) {
          lock->session->*lock->descriptor = granted;
        } else {
          closeAndForget(&granted);
        }
      },
      new Lock{this, descriptor});
}

void LoginSession::onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                            const gchar*, GVariant* parameters, gpointer self) {
  if (!areOfType(parameters, "(b)", "PrepareForShutdown")) return;
  gboolean goingDown = FALSE;
  g_variant_get(parameters, "(b)", &goingDown);
  auto* session = static_cast<LoginSession*>(self);
  if (goingDown == FALSE || !session->recording_) return;
  session->saving_ = true;
  session->onShutdown_();
}

}  // namespace linux_host
