// SPDX-License-Identifier: MIT
#include "tests/desktop/fake_session_manager.h"

#include <string_view>

namespace desktop_test {
namespace {

constexpr const char* kPath = "/org/gnome/SessionManager";
constexpr const char* kClientPath = "/org/gnome/SessionManager/Client7";
constexpr const char* kClientInterface = "org.gnome.SessionManager.ClientPrivate";

constexpr const char* kIntrospection = R"xml(<node>
<interface name="org.gnome.SessionManager"><method name="RegisterClient">
<arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="o" direction="out"/>
</method></interface>
<interface name="org.gnome.SessionManager.ClientPrivate"><method name="EndSessionResponse">
<arg type="b" direction="in"/><arg type="s" direction="in"/>
</method></interface></node>)xml";

}  // namespace

FakeSessionManager::FakeSessionManager(GDBusConnection* bus)
    : bus_(bus), node_(g_dbus_node_info_new_for_xml(kIntrospection, nullptr)) {
  static const GDBusInterfaceVTable kTable = {&FakeSessionManager::onCall, nullptr, nullptr, {}};
  manager_ = g_dbus_connection_register_object(bus_, kPath, node_->interfaces[0], &kTable, this,
                                               nullptr, nullptr);
  client_ = g_dbus_connection_register_object(bus_, kClientPath, node_->interfaces[1], &kTable,
                                              this, nullptr, nullptr);
  name_ = g_bus_own_name_on_connection(bus_, kName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr,
                                       nullptr, nullptr);
}

FakeSessionManager::~FakeSessionManager() {
  g_bus_unown_name(name_);
  g_dbus_connection_unregister_object(bus_, client_);
  g_dbus_connection_unregister_object(bus_, manager_);
  g_dbus_node_info_unref(node_);
}

void FakeSessionManager::tell(const char* signal) const {
  const bool hasFlags = std::string_view(signal).ends_with("EndSession");
  tell(signal, hasFlags ? g_variant_new("(u)", 0U) : nullptr);
}

void FakeSessionManager::tell(const char* signal, GVariant* arguments) const {
  g_dbus_connection_emit_signal(bus_, caller_.c_str(), kClientPath, kClientInterface, signal,
                                arguments, nullptr);
}

void FakeSessionManager::onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                                const gchar* method, GVariant* parameters,
                                GDBusMethodInvocation* invocation, gpointer raw) {
  auto& self = *static_cast<FakeSessionManager*>(raw);
  if (std::string_view(method) == "EndSessionResponse") {
    gboolean agrees = FALSE;
    g_variant_get(parameters, "(b&s)", &agrees, nullptr);
    self.answers.push_back(agrees != FALSE);
    g_dbus_method_invocation_return_value(invocation, nullptr);
    return;
  }
  const gchar* id = nullptr;
  const gchar* startupId = nullptr;
  g_variant_get(parameters, "(&s&s)", &id, &startupId);
  self.registrations.push_back(std::string(id) + " " + startupId);
  self.caller_ = sender;
  if (self.refuses_) {
    g_dbus_method_invocation_return_dbus_error(invocation, "org.gnome.SessionManager.NotInRunning",
                                               "The session is going down already");
  } else {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", kClientPath));
  }
}

}  // namespace desktop_test
