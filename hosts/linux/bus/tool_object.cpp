// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/tool_object.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "platform/file_url.h"

namespace linux_host {
namespace {

constexpr const char* kDescription = R"(
<node>
  <interface name="org.freedesktop.Application">
    <method name="Activate">
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
    <method name="Open">
      <arg type="as" name="uris" direction="in"/>
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg type="s" name="action_name" direction="in"/>
      <arg type="av" name="parameter" direction="in"/>
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
  </interface>
  <interface name="com.vantrel.korvel.ToolData1">
    <property name="ToolStatus" type="i" access="read"/>
    <property name="ToolIcon" type="s" access="read"/>
    <property name="MenuIcon" type="s" access="read"/>
    <property name="MenuText" type="s" access="read"/>
  </interface>
  <interface name="com.vantrel.korvel.RecordAudio1">
    <method name="Status">
      <arg type="s" name="json" direction="out"/>
    </method>
  </interface>
</node>)";

constexpr std::array kProperties = {"ToolStatus", "ToolIcon", "MenuIcon", "MenuText"};

// The caller gets exactly one answer, however often and wherever the callback is copied.
using InvocationPtr = std::shared_ptr<GDBusMethodInvocation>;

InvocationPtr sharedInvocation(GDBusMethodInvocation* invocation) {
  return {static_cast<GDBusMethodInvocation*>(g_object_ref(invocation)), ObjectUnref()};
}

void answer(GDBusMethodInvocation* invocation, GVariant* value = nullptr) {
  g_dbus_method_invocation_return_value(invocation, value);
}

std::string pathOf(const std::string& uri) {
  return platform::pathWithFileURL(uri).value_or(uri);
}

// A text on the bus must be UTF-8, or the connection breaks.
GVariant* textVariant(const std::string& text) {
  return g_variant_new_take_string(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

// The launching desktop's data, in the last argument of those methods that have it.
std::optional<std::string> activationTokenIn(GVariant* parameters) {
  const gsize count = g_variant_n_children(parameters);
  if (count == 0) return std::nullopt;
  const VariantPtr data(g_variant_get_child_value(parameters, count - 1));
  if (!g_variant_is_of_type(data.get(), G_VARIANT_TYPE_VARDICT)) return std::nullopt;
  for (const char* key : {"activation-token", "desktop-startup-id"}) {
    const gchar* token = nullptr;
    if (g_variant_lookup(data.get(), key, "&s", &token) && *token != '\0') return token;
  }
  return std::nullopt;
}

}  // namespace

ToolObject::ToolObject(Requests& requests)
    : requests_(requests), node_(g_dbus_node_info_new_for_xml(kDescription, nullptr)) {}

ToolObject::~ToolObject() {
  for (const auto& entry : exports_) withdraw(*entry);
}

Status ToolObject::exportOn(GDBusConnection* connection) {
  mainThread_.assertHeld();
  static const GDBusInterfaceVTable kCalls = {
      &ToolObject::onMethodCall, &ToolObject::onGetProperty, nullptr, {}};
  auto entry = std::make_unique<Export>();
  entry->connection.reset(static_cast<GDBusConnection*>(g_object_ref(connection)));
  for (GDBusInterfaceInfo** info = node_->interfaces; *info != nullptr; ++info) {
    GError* failure = nullptr;
    const guint registration = g_dbus_connection_register_object(connection, kObjectPath, *info,
                                                                 &kCalls, this, nullptr, &failure);
    if (registration == 0) {
      const ErrorPtr error(failure);
      withdraw(*entry);
      return Unexpected(error->message);
    }
    entry->registrations.push_back(registration);
  }
  entry->closedHandler =
      g_signal_connect(connection, "closed", G_CALLBACK(&ToolObject::onClosed), this);
  exports_.push_back(std::move(entry));
  return {};
}

void ToolObject::withdraw(Export& entry) {
  if (entry.closedHandler != 0) {
    g_signal_handler_disconnect(entry.connection.get(), entry.closedHandler);
  }
  for (const guint registration : entry.registrations) {
    g_dbus_connection_unregister_object(entry.connection.get(), registration);
  }
  entry.registrations.clear();
}

void ToolObject::onClosed(GDBusConnection* connection, gboolean, GError*, gpointer self) {
  auto& tool = *static_cast<ToolObject*>(self);
  std::erase_if(tool.exports_, [&](const std::unique_ptr<Export>& entry) {
    if (entry->connection.get() != connection) return false;
    tool.withdraw(*entry);
    return true;
  });
}

void ToolObject::onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                              const gchar* method, GVariant* parameters,
                              GDBusMethodInvocation* invocation, gpointer self) {
  static_cast<ToolObject*>(self)->call(method, parameters, invocation);
}

// The interfaces' method names do not overlap, and GDBus passes no others on.
void ToolObject::call(const std::string& method, GVariant* parameters,
                      GDBusMethodInvocation* invocation) {
  mainThread_.assertHeld();
  if (const auto token = activationTokenIn(parameters)) requests_.useActivationToken(*token);
  if (method == "Activate") {
    answer(invocation);
    requests_.activate();
  } else if (method == "Open") {
    open(parameters, invocation);
  } else if (method == "ActivateAction") {
    activateAction(parameters, invocation);
  } else {
    requests_.status([invocation = sharedInvocation(invocation)](const std::string& line) {
      GVariant* text = textVariant(line);
      answer(invocation.get(), g_variant_new_tuple(&text, 1));
    });
  }
}

void ToolObject::open(GVariant* parameters, GDBusMethodInvocation* invocation) {
  std::vector<std::string> paths;
  const VariantPtr uris(g_variant_get_child_value(parameters, 0));
  for (gsize i = 0; i < g_variant_n_children(uris.get()); ++i) {
    const VariantPtr uri(g_variant_get_child_value(uris.get(), i));
    paths.push_back(pathOf(g_variant_get_string(uri.get(), nullptr)));
  }
  answer(invocation);
  requests_.open(paths);
}

void ToolObject::activateAction(GVariant* parameters, GDBusMethodInvocation* invocation) {
  const VariantPtr name(g_variant_get_child_value(parameters, 0));
  const std::string action = g_variant_get_string(name.get(), nullptr);
  requests_.action(action, [action, held = sharedInvocation(invocation)](RequestResult result) {
    switch (result) {
      case RequestResult::kDone:
        return answer(held.get());
      case RequestResult::kNothingToDo:
        return g_dbus_method_invocation_return_dbus_error(held.get(), kNothingRecordedError,
                                                          "Nothing is being recorded.");
      case RequestResult::kUnknown:
        return g_dbus_method_invocation_return_dbus_error(
            held.get(), "org.freedesktop.DBus.Error.InvalidArgs",
            ("There is no action " + action + "; there are preferences, stop, cancel and quit.")
                .c_str());
    }
  });
}

GVariant* ToolObject::onGetProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                    const gchar* property, GError**, gpointer self) {
  return static_cast<ToolObject*>(self)->property(property);
}

GVariant* ToolObject::property(const std::string& name) const {
  if (name == "ToolStatus") return g_variant_new_int32(data_.toolStatus);
  if (name == "ToolIcon") return textVariant(data_.toolIcon);
  if (name == "MenuIcon") return textVariant(data_.menuIcon);
  return textVariant(data_.menuText);
}

void ToolObject::toolDataDidChange(const suite::ToolData& data) {
  mainThread_.assertHeld();
  const suite::ToolData before = std::exchange(data_, data);
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
  const std::array differs = {before.toolStatus != data.toolStatus,
                              before.toolIcon != data.toolIcon, before.menuIcon != data.menuIcon,
                              before.menuText != data.menuText};
  for (std::size_t i = 0; i < kProperties.size(); ++i) {
    if (differs[i])
      g_variant_builder_add(&changed, "{sv}", kProperties[i], property(kProperties[i]));
  }
  const VariantPtr signal(
      g_variant_ref_sink(g_variant_new("(sa{sv}as)", kToolDataInterface, &changed, nullptr)));
  for (const auto& entry : exports_) {
    // Fails only on a connection that is closing, which needs no further signals.
    g_dbus_connection_emit_signal(entry->connection.get(), nullptr, kObjectPath,
                                  "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                  signal.get(), nullptr);
  }
}

void ToolObject::flushAll(int timeout_ms) {
  mainThread_.assertHeld();
  for (const auto& entry : exports_) flush(entry->connection.get(), timeout_ms);
}

}  // namespace linux_host
