// SPDX-License-Identifier: MIT
#include "tests/e2e/notification_server.h"

#include <stdexcept>

#include "tests/support/notification_interface.h"

namespace e2e {
namespace {

[[noreturn]] void fail(GError* error) {
  const std::string text = error->message;
  g_error_free(error);
  throw std::runtime_error(text);
}

}  // namespace

NotificationServer::NotificationServer(const std::string& busAddress)
    : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)) {
  GError* error = nullptr;
  g_main_context_push_thread_default(context_);
  connection_ = g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (connection_ == nullptr) fail(error);
  node_ = g_dbus_node_info_new_for_xml(test_support::kNotificationsXml, &error);
  if (node_ == nullptr) fail(error);
  static constexpr GDBusInterfaceVTable kMethods{&NotificationServer::onCall, nullptr, nullptr, {}};
  g_dbus_connection_register_object(connection_, test_support::kNotificationsPath,
                                    node_->interfaces[0], &kMethods, this, nullptr, &error);
  if (error != nullptr) fail(error);
  g_main_context_pop_thread_default(context_);
  GVariant* const reply = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", test_support::kNotificationsName, 0), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (reply == nullptr) fail(error);
  g_variant_unref(reply);
  thread_ = std::thread([this] {
    g_main_context_push_thread_default(context_);
    g_main_loop_run(loop_);
    g_main_context_pop_thread_default(context_);
  });
}

NotificationServer::~NotificationServer() {
  g_main_loop_quit(loop_);
  thread_.join();
  g_object_unref(connection_);
  g_dbus_node_info_unref(node_);
  g_main_loop_unref(loop_);
  g_main_context_unref(context_);
}

std::vector<std::string> NotificationServer::shown() const {
  const platform::MutexLock lock(mutex_);
  return shown_;
}

std::uint32_t NotificationServer::show(GVariant* notification) {
  const gchar* summary = nullptr;
  const gchar* body = nullptr;
  g_variant_get_child(notification, 3, "&s", &summary);
  g_variant_get_child(notification, 4, "&s", &body);
  const platform::MutexLock lock(mutex_);
  shown_.push_back(std::string(summary) + " " + body);
  return static_cast<std::uint32_t>(shown_.size());
}

void NotificationServer::onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                const gchar* method, GVariant* arguments,
                                GDBusMethodInvocation* invocation, gpointer self) {
  const std::string name = method;
  GVariant* answer = nullptr;
  if (name == "Notify") {
    answer = g_variant_new("(u)", static_cast<NotificationServer*>(self)->show(arguments));
  } else if (name == "GetCapabilities") {
    const gchar* const capabilities[] = {"actions", "body", nullptr};
    answer = g_variant_new("(^as)", capabilities);
  } else if (name == "GetServerInformation") {
    answer = g_variant_new("(ssss)", "test", "test", "1", "1.2");
  }
  g_dbus_method_invocation_return_value(invocation, answer);
}

}  // namespace e2e
