// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/notification_server.h"

#include <string_view>
#include <utility>

namespace linux_host {
namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kBusService = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

bool isEmptyText(GVariant* parameters, gsize index) {
  const VariantPtr text(g_variant_get_child_value(parameters, index));
  return *g_variant_get_string(text.get(), nullptr) == '\0';
}

NotificationServer::Capabilities capabilitiesIn(GVariant* answer) {
  const VariantPtr list(g_variant_get_child_value(answer, 0));
  NotificationServer::Capabilities names;
  for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
    const VariantPtr name(g_variant_get_child_value(list.get(), i));
    names.insert(g_variant_get_string(name.get(), nullptr));
  }
  return names;
}

guint32 idIn(GVariant* answer) {
  guint32 id = 0;
  g_variant_get_child(answer, 0, "u", &id);
  return id;
}

}  // namespace

// Travels with an asynchronous call, which may outlive the server.
struct NotificationServer::Call {
  std::weak_ptr<int> server;
  Answer answer;
};

NotificationServer::NotificationServer(GDBusConnection* bus, Events events)
    : bus_(bus), events_(std::move(events)) {
  if (bus_ == nullptr) return;
  if (events_.onToken) listenTo("ActivationToken");
  listenTo("ActionInvoked");
  listenTo("NotificationClosed");
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, kBusService, kBusService, "NameOwnerChanged", kBusPath, kService,
      G_DBUS_SIGNAL_FLAGS_NONE, &NotificationServer::onOwnerChanged, this, nullptr));
}

NotificationServer::~NotificationServer() {
  for (const guint subscription : subscriptions_) {
    g_dbus_connection_signal_unsubscribe(bus_, subscription);
  }
}

void NotificationServer::listenTo(const char* signal) {
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, kService, kService, signal, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      &NotificationServer::onSignal, this, nullptr));
}

void NotificationServer::askCapabilities(std::function<void(Expected<Capabilities>)> answer) {
  call("GetCapabilities", nullptr, "(as)", [answer = std::move(answer)](const auto& value) {
    if (!value) return answer(Unexpected(value.error()));
    answer(capabilitiesIn(value->get()));
  });
}

void NotificationServer::notify(GVariant* parameters,
                                std::function<void(Expected<guint32>)> answer) {
  call("Notify", parameters, "(u)", [answer = std::move(answer)](const auto& value) {
    if (!value) return answer(Unexpected(value.error()));
    answer(idIn(value->get()));
  });
}

void NotificationServer::close(guint32 id) {
  mainThread_.assertHeld();
  g_dbus_connection_call(bus_, kService, kPath, kService, "CloseNotification",
                         g_variant_new("(u)", id), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         kBusTimeout_ms, nullptr, nullptr, nullptr);
}

void NotificationServer::call(const char* method, GVariant* parameters, const char* answerType,
                              Answer answer) {
  mainThread_.assertHeld();
  g_dbus_connection_call(bus_, kService, kPath, kService, method, parameters,
                         G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms,
                         nullptr, &NotificationServer::onAnswer,
                         new Call{life_, std::move(answer)});
}

void NotificationServer::onAnswer(GObject* source, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Call> call(static_cast<Call*>(raw));
  GError* error = nullptr;
  VariantPtr value(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error));
  const ErrorPtr failure(error);
  if (call->server.expired()) return;
  if (value == nullptr) return call->answer(Unexpected(failure->message));
  call->answer(std::move(value));
}

void NotificationServer::onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                  const gchar* signal, GVariant* parameters, gpointer raw) {
  const Events& events = static_cast<NotificationServer*>(raw)->events_;
  const std::string_view name = signal;
  const bool isClosed = name == "NotificationClosed";
  if (!areOfType(parameters, isClosed ? "(uu)" : "(us)", signal)) return;
  const guint32 id = idIn(parameters);
  if (isClosed) {
    if (events.onClosed) events.onClosed(id);
    return;
  }
  const auto& told = name == "ActionInvoked" ? events.onAction : events.onToken;
  const VariantPtr text(g_variant_get_child_value(parameters, 1));
  if (told) told(id, g_variant_get_string(text.get(), nullptr));
}

void NotificationServer::onOwnerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                        const gchar*, GVariant* parameters, gpointer raw) {
  const Events& events = static_cast<NotificationServer*>(raw)->events_;
  if (!areOfType(parameters, "(sss)", "NameOwnerChanged")) return;
  // Without an old owner there was no server. One that our own call has started answers that call.
  if (!isEmptyText(parameters, 1) && events.onGone) events.onGone(!isEmptyText(parameters, 2));
}

}  // namespace linux_host
