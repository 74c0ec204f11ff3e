// SPDX-License-Identifier: MIT
#include "hosts/linux/power/session_client.h"

#include <cassert>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/power/login_session.h"

namespace linux_host {

namespace {

constexpr const char* kManager = "org.gnome.SessionManager";
constexpr const char* kManagerPath = "/org/gnome/SessionManager";
constexpr const char* kClientInterface = "org.gnome.SessionManager.ClientPrivate";

}  // namespace

std::string takeStartupId() {
  constexpr const char* kVariable = "DESKTOP_AUTOSTART_ID";
  const char* value = std::getenv(kVariable);
  if (value == nullptr) return {};
  std::string id = value;
  unsetenv(kVariable);
  return id;
}

SessionClient::SessionClient(GDBusConnection* bus, std::string startupId, SessionEnd end,
                             std::function<void()> onNobody)
    : bus_(bus),
      startupId_(std::move(startupId)),
      end_(std::move(end)),
      onNobody_(std::move(onNobody)),
      cancellable_(g_cancellable_new()) {}

SessionClient::~SessionClient() {
  g_cancellable_cancel(cancellable_.get());
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_, subscription_);
}

void SessionClient::toolDataDidChange(const suite::ToolData& data) {
  mainThread_.assertHeld();
  const bool hasJustBegun = data.menuText == "00:00";
  if (!isRecording(data) || hasJustBegun) {
    if (phase_ == Phase::kNobody) enter(Phase::kUnasked);
    return;
  }
  if (phase_ != Phase::kUnasked) return;
  if (bus_ != nullptr) {
    registerOnBus();
  } else {
    enter(Phase::kNobody);
    onNobody_();
  }
}

void SessionClient::enter(Phase next) {
  assert(next != Phase::kUnasked || phase_ == Phase::kNobody);
  assert(next != Phase::kAsking || phase_ == Phase::kUnasked);
  assert(next != Phase::kClient || phase_ == Phase::kAsking);
  assert(phase_ != Phase::kClient);
  phase_ = next;
}

void SessionClient::registerOnBus() {
  // Subscribe before registering: a signal right after the manager's answer must not be missed.
  if (subscription_ == 0) {
    subscription_ = g_dbus_connection_signal_subscribe(bus_, kManager, kClientInterface, nullptr,
                                                       nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                       onSignal, this, nullptr);
  }
  enter(Phase::kAsking);
  g_dbus_connection_call(bus_, kManager, kManagerPath, kManager, "RegisterClient",
                         g_variant_new("(ss)", kApplicationId, startupId_.c_str()),
                         G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, kBusTimeout_ms,
                         cancellable_.get(), onRegistered, this);
}

void SessionClient::onRegistered(GObject* bus, GAsyncResult* result, gpointer self) {
  GError* failure = nullptr;
  const VariantPtr answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &failure));
  const ErrorPtr error(failure);
  if (error && g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;
  auto* client = static_cast<SessionClient*>(self);
  client->mainThread_.assertHeld();
  client->enter(answer ? Phase::kClient : Phase::kNobody);
  if (!answer) {
    client->onNobody_();
    return;
  }
  const gchar* path = nullptr;
  g_variant_get(answer.get(), "(&o)", &path);
  client->path_ = path;
}

void SessionClient::onSignal(GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                             const gchar* signal, GVariant* parameters, gpointer self) {
  auto* client = static_cast<SessionClient*>(self);
  // Signals for other clients arrive here, too.
  if (client->path_ != path) return;
  const std::string_view name = signal;
  if (name == "QueryEndSession") {
    if (areOfType(parameters, "(u)", signal)) client->answer();
  } else if (name == "EndSession") {
    if (!areOfType(parameters, "(u)", signal)) return;
    client->end_.save([client] { client->answer(); });
  } else if (name == "Stop") {
    if (areOfType(parameters, "()", signal)) client->end_.quit();
  }
}

void SessionClient::answer() {
  mainThread_.assertHeld();
  g_dbus_connection_call(bus_, kManager, path_.c_str(), kClientInterface, "EndSessionResponse",
                         g_variant_new("(bs)", TRUE, ""), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         kBusTimeout_ms, nullptr, nullptr, nullptr);
}

}  // namespace linux_host
