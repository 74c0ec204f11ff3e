// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/instance_client.h"

#include <cstdlib>

#include "hosts/linux/bus/tool_object.h"

namespace linux_host {
namespace {

// The types of answers.
constexpr const char* kNothing = "()";
constexpr const char* kText = "(s)";

bool saysGone(const GError* error) {
  return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_DISCONNECTED) ||
         g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) ||
         g_error_matches(error, G_IO_ERROR, G_IO_ERROR_BROKEN_PIPE) ||
         g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CONNECTION_CLOSED);
}

InstanceClient::Reply failed(GError* raw) {
  const ErrorPtr error(raw);
  if (saysGone(error.get())) return {InstanceClient::Outcome::kNotRunning, error->message};
  const TextPtr remote(g_dbus_error_get_remote_error(error.get()));
  const bool nothing = g_strcmp0(remote.get(), kNothingRecordedError) == 0;
  g_dbus_error_strip_remote_error(error.get());
  return {nothing ? InstanceClient::Outcome::kNothingRecorded : InstanceClient::Outcome::kFailed,
          error->message};
}

void addFromEnvironment(GVariantBuilder* builder, const char* key, const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || !g_utf8_validate(value, -1, nullptr)) return;
  g_variant_builder_add(builder, "{sv}", key, g_variant_new_string(value));
}

}  // namespace

GVariant* platformData() {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  addFromEnvironment(&builder, "desktop-startup-id", "DESKTOP_STARTUP_ID");
  addFromEnvironment(&builder, "activation-token", "XDG_ACTIVATION_TOKEN");
  return g_variant_builder_end(&builder);
}

InstanceClient InstanceClient::onBus(GDBusConnection* connection) {
  return {connection, nullptr, kBusName};
}

InstanceClient InstanceClient::onSocket(ConnectionPtr connection) {
  GDBusConnection* raw = connection.get();
  return {raw, std::move(connection), nullptr};
}

bool InstanceClient::isRunning() const {
  if (name_ == nullptr) return !g_dbus_connection_is_closed(connection_);
  const VariantPtr owned(g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", name_), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE,
      kBusTimeout_ms, nullptr, nullptr));
  if (owned == nullptr) return false;
  const VariantPtr answer(g_variant_get_child_value(owned.get(), 0));
  return g_variant_get_boolean(answer.get()) != FALSE;
}

InstanceClient::Reply InstanceClient::call(const char* interfaceName, const char* method,
                                           GVariant* parameters, const char* answerType,
                                           int timeout_ms) {
  GError* error = nullptr;
  // Calls only a running program: asking it to stop must not start it.
  const VariantPtr result(g_dbus_connection_call_sync(
      connection_, name_, kObjectPath, interfaceName, method, parameters,
      G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout_ms, nullptr, &error));
  if (error != nullptr) return failed(error);
  if (g_variant_n_children(result.get()) == 0) return {Outcome::kDone, {}};
  const VariantPtr text(g_variant_get_child_value(result.get(), 0));
  return {Outcome::kDone, g_variant_get_string(text.get(), nullptr)};
}

InstanceClient::Reply InstanceClient::activate() {
  return call(kApplicationInterface, "Activate", g_variant_new("(@a{sv})", platformData()),
              kNothing, kBusTimeout_ms);
}

InstanceClient::Reply InstanceClient::open(const std::vector<std::string>& uris) {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
  for (const std::string& uri : uris) {
    g_variant_builder_add_value(&list, g_variant_new_take_string(g_utf8_make_valid(
                                           uri.data(), static_cast<gssize>(uri.size()))));
  }
  return call(kApplicationInterface, "Open", g_variant_new("(as@a{sv})", &list, platformData()),
              kNothing, kBusTimeout_ms);
}

InstanceClient::Reply InstanceClient::action(const std::string& name, int timeout_ms) {
  return call(kApplicationInterface, "ActivateAction",
              g_variant_new("(sav@a{sv})", name.c_str(), nullptr, platformData()), kNothing,
              timeout_ms);
}

InstanceClient::Reply InstanceClient::status() {
  return call(kRecordAudioInterface, "Status", nullptr, kText, kBusTimeout_ms);
}

}  // namespace linux_host
