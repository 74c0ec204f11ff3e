// SPDX-License-Identifier: MIT
#include "tests/e2e/desktop_client.h"

#include <stdexcept>

namespace e2e {
namespace {

constexpr const char* kName = "com.vantrel.korvel.RecordAudio";
constexpr const char* kPath = "/com/vantrel/korvel/RecordAudio";
constexpr const char* kApplication = "org.freedesktop.Application";
constexpr const char* kToolData = "com.vantrel.korvel.ToolData1";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr int kAnswer_ms = 30000;

std::string textOf(GVariant* value) {
  gchar* text = g_variant_print(value, FALSE);
  std::string copy = text;
  g_free(text);
  return copy;
}

std::string taken(GError* error) {
  std::string text = error->message;
  g_error_free(error);
  return text;
}

}  // namespace

DesktopClient::DesktopClient(const std::string& busAddress) {
  GError* error = nullptr;
  connection_ = g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (connection_ == nullptr) throw std::runtime_error(taken(error));
  subscription_ = g_dbus_connection_signal_subscribe(
      connection_, kName, kProperties, "PropertiesChanged", kPath, kToolData,
      G_DBUS_SIGNAL_FLAGS_NONE, &DesktopClient::onPropertiesChanged, this, nullptr);
}

DesktopClient::~DesktopClient() {
  g_dbus_connection_signal_unsubscribe(connection_, subscription_);
  g_dbus_connection_close_sync(connection_, nullptr, nullptr);
  g_object_unref(connection_);
}

void DesktopClient::onPropertiesChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                        const gchar*, GVariant* parameters, gpointer self) {
  GVariant* changed = g_variant_get_child_value(parameters, 1);
  GVariantIter each;
  g_variant_iter_init(&each, changed);
  const gchar* name = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_next(&each, "{&sv}", &name, &value)) {
    static_cast<DesktopClient*>(self)->announced_[name].push_back(textOf(value));
    g_variant_unref(value);
  }
  g_variant_unref(changed);
}

GVariant* DesktopClient::call(const char* interface, const char* method, GVariant* arguments,
                              std::string* error) {
  GError* failure = nullptr;
  // A call must not start the tool: the tests start it themselves.
  GVariant* reply =
      g_dbus_connection_call_sync(connection_, kName, kPath, interface, method, arguments, nullptr,
                                  G_DBUS_CALL_FLAGS_NO_AUTO_START, kAnswer_ms, nullptr, &failure);
  if (reply == nullptr) *error = taken(failure);
  return reply;
}

std::string DesktopClient::callForError(const char* interface, const char* method,
                                        GVariant* arguments) {
  std::string error;
  if (GVariant* reply = call(interface, method, arguments, &error)) g_variant_unref(reply);
  return error;
}

std::string DesktopClient::activate() {
  return callForError(kApplication, "Activate", g_variant_new_parsed("(@a{sv} {},)"));
}

std::string DesktopClient::open(const std::vector<std::string>& uris) {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE_STRING_ARRAY);
  for (const std::string& uri : uris) g_variant_builder_add(&list, "s", uri.c_str());
  return callForError(kApplication, "Open", g_variant_new_parsed("(%as, @a{sv} {})", &list));
}

std::string DesktopClient::action(const std::string& name) {
  return callForError(kApplication, "ActivateAction",
                      g_variant_new_parsed("(%s, @av [], @a{sv} {})", name.c_str()));
}

bool DesktopClient::isToolOnBus() {
  GVariant* reply = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", kName), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE,
      kAnswer_ms, nullptr, nullptr);
  if (reply == nullptr) return false;
  gboolean owned = FALSE;
  g_variant_get(reply, "(b)", &owned);
  g_variant_unref(reply);
  return owned != FALSE;
}

nlohmann::json DesktopClient::status() {
  std::string error;
  GVariant* reply = call("com.vantrel.korvel.RecordAudio1", "Status", nullptr, &error);
  if (reply == nullptr) return nullptr;
  const gchar* line = nullptr;
  g_variant_get(reply, "(&s)", &line);
  auto parsed = nlohmann::json::parse(line, nullptr, false);
  g_variant_unref(reply);
  return parsed;
}

std::string DesktopClient::toolData(const std::string& name) {
  std::string error;
  GVariant* reply =
      call(kProperties, "Get", g_variant_new("(ss)", kToolData, name.c_str()), &error);
  if (reply == nullptr) return error;
  GVariant* value = nullptr;
  g_variant_get(reply, "(v)", &value);
  const std::string text = textOf(value);
  g_variant_unref(value);
  g_variant_unref(reply);
  return text;
}

std::string DesktopClient::setToolData(const std::string& name, const std::string& text) {
  return callForError(
      kProperties, "Set",
      g_variant_new("(ssv)", kToolData, name.c_str(), g_variant_new_string(text.c_str())));
}

std::vector<std::string> DesktopClient::announced(const std::string& name) {
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  return announced_[name];
}

}  // namespace e2e
