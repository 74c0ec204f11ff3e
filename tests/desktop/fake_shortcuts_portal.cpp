// SPDX-License-Identifier: MIT
#include "tests/desktop/fake_shortcuts_portal.h"

#include <utility>

#include "hosts/linux/bus/dbus_support.h"

namespace desktop_test {
namespace {

using linux_host::VariantPtr;

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* kRequest = "org.freedesktop.portal.Request";
constexpr const char* kSession = "org.freedesktop.portal.Session";
constexpr const char* kXml = R"xml(<node>
<interface name="org.freedesktop.portal.GlobalShortcuts">
<property name="version" type="u" access="read"/>
<method name="CreateSession"><arg type="a{sv}" direction="in"/>
<arg type="o" direction="out"/></method>
<method name="BindShortcuts"><arg type="o" direction="in"/><arg type="a(sa{sv})" direction="in"/>
<arg type="s" direction="in"/><arg type="a{sv}" direction="in"/>
<arg type="o" direction="out"/></method>
<method name="ListShortcuts"><arg type="o" direction="in"/><arg type="a{sv}" direction="in"/>
<arg type="o" direction="out"/></method>
<method name="ConfigureShortcuts"><arg type="o" direction="in"/><arg type="s" direction="in"/>
<arg type="a{sv}" direction="in"/></method></interface>
<interface name="org.freedesktop.portal.Session"><method name="Close"/></interface>
<interface name="org.freedesktop.host.portal.Registry"><method name="Register">
<arg type="s" direction="in"/><arg type="a{sv}" direction="in"/></method></interface></node>)xml";

std::string textIn(GVariant* dictionary, const char* key) {
  const gchar* text = "";
  g_variant_lookup(dictionary, key, "&s", &text);
  return text;
}

std::string asPathElement(std::string sender) {
  for (char& letter : sender) letter = letter == '.' ? '_' : letter;
  return sender.substr(1);
}

}  // namespace

FakeShortcutsPortal::FakeShortcutsPortal(GDBusConnection* bus)
    : FakeShortcutsPortal(bus, Behaviour()) {}

FakeShortcutsPortal::FakeShortcutsPortal(GDBusConnection* bus, Behaviour how)
    : behaviour(std::move(how)), bus_(bus), node_(g_dbus_node_info_new_for_xml(kXml, nullptr)) {
  static const GDBusInterfaceVTable kTable = {&onCall, &onProperty, nullptr, {}};
  for (const int interface : {0, 2}) {
    if (interface == 2 && !behaviour.hasRegistry) continue;
    objects_.push_back(g_dbus_connection_register_object(
        bus_, kPortalPath, node_->interfaces[interface], &kTable, this, nullptr, nullptr));
  }
  name_ = g_bus_own_name_on_connection(bus_, kPortal, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr,
                                       nullptr, nullptr);
}

FakeShortcutsPortal::~FakeShortcutsPortal() {
  g_bus_unown_name(name_);
  forgetSession();
  for (const guint object : objects_) g_dbus_connection_unregister_object(bus_, object);
  g_dbus_node_info_unref(node_);
}

GVariant* FakeShortcutsPortal::onProperty(GDBusConnection*, const gchar*, const gchar*,
                                          const gchar*, const gchar*, GError**, gpointer self) {
  return g_variant_new_uint32(static_cast<FakeShortcutsPortal*>(self)->behaviour.version);
}

void FakeShortcutsPortal::onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                                 const gchar* rawMethod, GVariant* arguments,
                                 GDBusMethodInvocation* invocation, gpointer raw) {
  auto& self = *static_cast<FakeShortcutsPortal*>(raw);
  const std::string method = rawMethod;
  if (method == "Register" || method == "Close") {
    const gchar* name = "";
    if (method == "Register") g_variant_get_child(arguments, 0, "&s", &name);
    self.calls.push_back(method + (*name != '\0' ? " " + std::string(name) : ""));
    g_dbus_method_invocation_return_value(invocation, nullptr);
    if (method == "Close") self.forgetSession();
  } else if (method == "ConfigureShortcuts") {
    const gchar* parent = nullptr;
    g_variant_get_child(arguments, 1, "&s", &parent);
    self.calls.push_back(method + " " + parent);
    g_dbus_method_invocation_return_value(invocation, nullptr);
  } else {
    self.request(sender, method, arguments, invocation);
  }
}

void FakeShortcutsPortal::request(const std::string& sender, const std::string& method,
                                  GVariant* arguments, GDBusMethodInvocation* invocation) {
  const VariantPtr options(
      g_variant_get_child_value(arguments, g_variant_n_children(arguments) - 1));
  const std::string name = asPathElement(sender);
  std::string call = method;
  if (method == "CreateSession") {
    openSession(name + "/" + textIn(options.get(), "session_handle_token"));
  } else if (method == "BindShortcuts") {
    const VariantPtr wanted(g_variant_get_child_value(arguments, 1));
    const gchar* id = nullptr;
    GVariant* properties = nullptr;
    g_variant_get_child(wanted.get(), 0, "(&s@a{sv})", &id, &properties);
    const VariantPtr owned(properties);
    const gchar* parent = nullptr;
    g_variant_get_child(arguments, 2, "&s", &parent);
    description = textIn(properties, "description");
    call += std::string(" ") + id + " " + textIn(properties, "preferred_trigger") + " " + parent;
  }
  calls.push_back(call);
  if (behaviour.refuses) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, "org.freedesktop.portal.Error.NotAllowed", "Not for you");
    return;
  }
  const std::string path =
      std::string(kPortalPath) + "/request/" + name + "/" + textIn(options.get(), "handle_token");
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path.c_str()));
  waiting_ = Waiting{path, method};
  if (!behaviour.isSlow) answerNow();
}

void FakeShortcutsPortal::answerNow() {
  if (const auto waiting = std::exchange(waiting_, std::nullopt)) answer(*waiting);
}

void FakeShortcutsPortal::answer(const Waiting& waiting) {
  guint32 response = 0;
  if (waiting.method == "CreateSession") response = behaviour.opening;
  if (waiting.method == "BindShortcuts") {
    response = behaviour.binding;
    isBound_ = response == 0;
  }
  GVariant* results = behaviour.strangeResults ? behaviour.strangeResults(waiting.method)
                                               : resultsOf(waiting.method);
  g_dbus_connection_emit_signal(bus_, nullptr, waiting.request.c_str(), kRequest, "Response",
                                g_variant_new("(u@a{sv})", response, results), nullptr);
}

GVariant* FakeShortcutsPortal::resultsOf(const std::string& method) {
  GVariantBuilder results;
  g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
  if (method == "CreateSession") {
    g_variant_builder_add(&results, "{sv}", "session_handle",
                          g_variant_new_string(session_.c_str()));
    if (behaviour.bindsAtOnce) {
      isBound_ = true;
      g_variant_builder_add(&results, "{sv}", "shortcuts", shortcuts());
    }
  } else if (method == "ListShortcuts" || !behaviour.agreesInFewWords) {
    g_variant_builder_add(&results, "{sv}", "shortcuts", shortcuts());
  }
  return g_variant_builder_end(&results);
}

GVariant* FakeShortcutsPortal::shortcuts() const {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE("a(sa{sv})"));
  if (behaviour.trigger && (isBound_ || behaviour.isKnown)) {
    g_variant_builder_add_parsed(&list, "('record', {'trigger_description': <%s>})",
                                 behaviour.trigger->c_str());
  }
  return g_variant_builder_end(&list);
}

void FakeShortcutsPortal::openSession(const std::string& name) {
  forgetSession();
  session_ = std::string(kPortalPath) + "/session/" + name;
  static const GDBusInterfaceVTable kTable = {&onCall, nullptr, nullptr, {}};
  sessionObject_ = g_dbus_connection_register_object(bus_, session_.c_str(), node_->interfaces[1],
                                                     &kTable, this, nullptr, nullptr);
}

void FakeShortcutsPortal::forgetSession() {
  if (sessionObject_ != 0) g_dbus_connection_unregister_object(bus_, sessionObject_);
  sessionObject_ = 0;
  session_.clear();
  isBound_ = false;
}

void FakeShortcutsPortal::press(const std::string& id, const std::string& session,
                                const std::string& activationToken) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  if (!activationToken.empty()) {
    g_variant_builder_add(&options, "{sv}", "activation_token",
                          g_variant_new_string(activationToken.c_str()));
  }
  const std::string& path = session.empty() ? session_ : session;
  say("Activated", g_variant_new("(osta{sv})", path.c_str(), id.c_str(), guint64{7}, &options));
}

void FakeShortcutsPortal::change(const std::optional<std::string>& trigger) {
  behaviour.trigger = trigger;
  say("ShortcutsChanged", g_variant_new("(o@a(sa{sv}))", session_.c_str(), shortcuts()));
}

void FakeShortcutsPortal::closeSession() {
  g_dbus_connection_emit_signal(bus_, nullptr, session_.c_str(), kSession, "Closed",
                                g_variant_new("(a{sv})", nullptr), nullptr);
  forgetSession();
}

void FakeShortcutsPortal::say(const char* signal, GVariant* parameters) {
  g_dbus_connection_emit_signal(bus_, nullptr, kPortalPath, kInterface, signal, parameters,
                                nullptr);
}

}  // namespace desktop_test
