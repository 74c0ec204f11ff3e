// SPDX-License-Identifier: MIT
#include "tests/authorization/fake_service.h"

#include <stdexcept>

namespace authorization_test {
namespace {

void onCall(GDBusConnection*, const char*, const char*, const char*, const char*,
            GVariant* arguments, GDBusMethodInvocation* invocation, gpointer handler) {
  (*static_cast<FakeService::Handler*>(handler))(invocation, arguments);
}

}  // namespace

FakeService::FakeService(const std::string& address, const std::string& name,
                         const std::string& object, const std::string& introspection,
                         Handler handler)
    : name_(name), object_(object), handler_(std::move(handler)) {
  auto connection = linux_host::connectTo(address, true, linux_host::kBusTimeout_ms);
  if (!connection) throw std::runtime_error(connection.error());
  connection_ = *std::move(connection);
  node_ = g_dbus_node_info_new_for_xml(introspection.c_str(), nullptr);
  static constexpr GDBusInterfaceVTable kTable{onCall, nullptr, nullptr, {}};
  registration_ =
      g_dbus_connection_register_object(connection_.get(), object.c_str(), node_->interfaces[0],
                                        &kTable, &handler_, nullptr, nullptr);
  const linux_host::VariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name.c_str(), 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, nullptr));
  if (registration_ == 0 || reply == nullptr) throw std::runtime_error("cannot own " + name);
}

FakeService::~FakeService() {
  // The next service of that name must not find it taken.
  const linux_host::VariantPtr released(g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "ReleaseName", g_variant_new("(s)", name_.c_str()), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, nullptr));
  g_dbus_connection_unregister_object(connection_.get(), registration_);
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  g_dbus_node_info_unref(node_);
}

void FakeService::emit(const char* signal, GVariant* arguments) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, object_.c_str(),
                                node_->interfaces[0]->name, signal, arguments, nullptr);
}

}  // namespace authorization_test
