// SPDX-License-Identifier: MIT
#include "tests/integration/fake_permissions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

namespace integration_test {
namespace {

constexpr const char* kStore = "org.freedesktop.impl.portal.PermissionStore";
constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kInterfaces = R"(<node>
  <interface name="org.freedesktop.impl.portal.PermissionStore">
    <method name="Lookup">
      <arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="a{sas}" direction="out"/><arg type="v" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.portal.Device">
    <method name="AccessDevice">
      <arg type="u" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/>
    </method>
  </interface>
</node>)";

}  // namespace

FakePermissions::FakePermissions(std::string permissions, std::optional<Portal> portal)
    : permissions_(std::move(permissions)),
      portal_(portal),
      context_(g_main_context_new()),
      loop_(g_main_loop_new(context_, FALSE)),
      thread_([this] { serve(); }) {
  ready_.get_future().wait();
}

FakePermissions::~FakePermissions() {
  g_main_loop_quit(loop_);
  thread_.join();
  g_main_loop_unref(loop_);
  g_main_context_unref(context_);
}

void FakePermissions::serve() {
  g_main_context_push_thread_default(context_);
  bus_ = g_dbus_connection_new_for_address_sync(
      std::getenv("DBUS_SESSION_BUS_ADDRESS"),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterfaces, nullptr);
  const GDBusInterfaceVTable table{onCall, nullptr, nullptr, {}};
  g_dbus_connection_register_object(bus_, "/org/freedesktop/impl/portal/PermissionStore",
                                    node->interfaces[0], &table, this, nullptr, nullptr);
  own(kStore);
  if (portal_) {
    g_dbus_connection_register_object(bus_, "/org/freedesktop/portal/desktop", node->interfaces[1],
                                      &table, this, nullptr, nullptr);
    own(kPortal);
  }
  // Only a loop that runs can be told to quit.
  GSource* const running = g_idle_source_new();
  g_source_set_callback(
      running,
      [](gpointer self) -> gboolean {
        static_cast<FakePermissions*>(self)->ready_.set_value();
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
  g_source_attach(running, context_);
  g_source_unref(running);
  g_main_loop_run(loop_);
  // The next ones of these names must not find them taken.
  if (portal_) release(kPortal);
  release(kStore);
  g_dbus_connection_close_sync(bus_, nullptr, nullptr);
  g_object_unref(bus_);
  g_dbus_node_info_unref(node);
  g_main_context_pop_thread_default(context_);
}

void FakePermissions::own(const char* name) {
  GVariant* reply = g_dbus_connection_call_sync(
      bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
      g_variant_new("(su)", name, 4U), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
      nullptr);
  ASSERT_NE(reply, nullptr);
  g_variant_unref(reply);
}

void FakePermissions::release(const char* name) {
  GVariant* reply = g_dbus_connection_call_sync(
      bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReleaseName",
      g_variant_new("(s)", name), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
  if (reply != nullptr) g_variant_unref(reply);
}

void FakePermissions::onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                             const gchar* method, GVariant* arguments,
                             GDBusMethodInvocation* invocation, gpointer data) {
  auto* self = static_cast<FakePermissions*>(data);
  if (std::string(method) == "Lookup") {
    self->lookUp(invocation);
  } else {
    self->accessDevice(sender, arguments, invocation);
  }
}

void FakePermissions::lookUp(GDBusMethodInvocation* invocation) {
  ++questions_;
  if (isMute_) {
    g_object_unref(invocation);  // an answer that never comes
  } else if (permissions_.empty()) {
    g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.portal.Error.NotFound",
                                               "No entry for microphone");
  } else {
    GVariant* permissions = g_variant_new_parsed(permissions_.c_str());
    g_dbus_method_invocation_return_value(
        invocation, g_variant_new("(@a{sas}v)", permissions, g_variant_new_byte(0)));
  }
}

void FakePermissions::accessDevice(const std::string& sender, GVariant* arguments,
                                   GDBusMethodInvocation* invocation) {
  GVariant* options = g_variant_get_child_value(arguments, 2);
  const gchar* token = "";
  g_variant_lookup(options, "handle_token", "&s", &token);
  std::string caller = sender.substr(1);
  for (char& letter : caller) letter = letter == '.' ? '_' : letter;
  const std::string path = "/org/freedesktop/portal/desktop/request/" + caller + "/" + token;
  g_variant_unref(options);
  if (*portal_ == Portal::kFails) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, "org.freedesktop.portal.Error.NotAllowed", "Not for you");
    return;
  }
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path.c_str()));
  if (*portal_ == Portal::kLeaves) {
    release(kPortal);
    return;
  }
  GVariantBuilder results;
  g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
  g_dbus_connection_emit_signal(
      bus_, nullptr, path.c_str(), "org.freedesktop.portal.Request", "Response",
      g_variant_new("(ua{sv})", *portal_ == Portal::kGrants ? 0U : 1U, &results), nullptr);
}

}  // namespace integration_test
