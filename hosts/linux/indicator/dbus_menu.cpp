// SPDX-License-Identifier: MIT
#include "hosts/linux/indicator/dbus_menu.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace linux_host {
namespace {

constexpr const char* kMenuInterface = "com.canonical.dbusmenu";
constexpr int kRoot = 0;

constexpr const char* kMenuIntrospection = R"xml(<node><interface name="com.canonical.dbusmenu">
<property name="Version" type="u" access="read"/>
<property name="TextDirection" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="IconThemePath" type="as" access="read"/>
<method name="GetLayout"><arg type="i" direction="in"/><arg type="i" direction="in"/>
<arg type="as" direction="in"/><arg type="u" direction="out"/><arg type="(ia{sv}av)" direction="out"/></method>
<method name="GetGroupProperties"><arg type="ai" direction="in"/><arg type="as" direction="in"/>
<arg type="a(ia{sv})" direction="out"/></method>
<method name="GetProperty"><arg type="i" direction="in"/><arg type="s" direction="in"/>
<arg type="v" direction="out"/></method>
<method name="Event"><arg type="i" direction="in"/><arg type="s" direction="in"/>
<arg type="v" direction="in"/><arg type="u" direction="in"/></method>
<method name="EventGroup"><arg type="a(isvu)" direction="in"/><arg type="ai" direction="out"/></method>
<method name="AboutToShow"><arg type="i" direction="in"/><arg type="b" direction="out"/></method>
<method name="AboutToShowGroup"><arg type="ai" direction="in"/><arg type="ai" direction="out"/>
<arg type="ai" direction="out"/></method>
<signal name="ItemsPropertiesUpdated"><arg type="a(ia{sv})"/><arg type="a(ias)"/></signal>
<signal name="LayoutUpdated"><arg type="u"/><arg type="i"/></signal>
<signal name="ItemActivationRequested"><arg type="i"/><arg type="u"/></signal>
</interface></node>)xml";

// A label's single underscore would mark a mnemonic.
std::string escaped(const std::string& label) {
  std::string text;
  for (const char character : label) {
    text += character;
    if (character == '_') text += '_';
  }
  return text;
}

// A floating a{sv}.
GVariant* propertiesOf(const MenuItem& item) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  if (item.label.empty()) {
    g_variant_builder_add(&builder, "{sv}", "type", g_variant_new_string("separator"));
  } else {
    g_variant_builder_add(&builder, "{sv}", "label",
                          g_variant_new_string(escaped(item.label).c_str()));
  }
  g_variant_builder_add(&builder, "{sv}", "enabled", g_variant_new_boolean(item.enabled));
  g_variant_builder_add(&builder, "{sv}", "visible", g_variant_new_boolean(TRUE));
  return g_variant_builder_end(&builder);
}

}  // namespace

DBusMenu::DBusMenu(std::function<void(int id)> onChoice)
    : onChoice_(std::move(onChoice)),
      node_(g_dbus_node_info_new_for_xml(kMenuIntrospection, nullptr)) {}

DBusMenu::~DBusMenu() {
  if (registration_ != 0) g_dbus_connection_unregister_object(connection_, registration_);
}

Status DBusMenu::exportOn(GDBusConnection* connection) {
  mainThread_.assertHeld();
  static const GDBusInterfaceVTable kTable = {onMethodCall, onGetProperty, nullptr, {}};
  GError* failure = nullptr;
  registration_ = g_dbus_connection_register_object(connection, kPath, node_->interfaces[0],
                                                    &kTable, this, nullptr, &failure);
  const ErrorPtr error(failure);
  if (registration_ == 0) return Unexpected(error->message);
  connection_ = connection;
  return {};
}

void DBusMenu::setItems(std::vector<MenuItem> items) {
  mainThread_.assertHeld();
  if (items == items_) return;
  const bool sameShape = std::equal(items.begin(), items.end(), items_.begin(), items_.end(),
                                    [](const MenuItem& a, const MenuItem& b) {
                                      return a.id == b.id && a.label.empty() == b.label.empty();
                                    });
  const auto before = std::exchange(items_, std::move(items));
  if (!sameShape) {
    emit("LayoutUpdated", g_variant_new("(ui)", ++revision_, kRoot));
    return;
  }
  GVariantBuilder updated;
  g_variant_builder_init(&updated, G_VARIANT_TYPE("a(ia{sv})"));
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (items_[i] == before[i]) continue;
    g_variant_builder_add(&updated, "(i@a{sv})", items_[i].id, propertiesOf(items_[i]));
  }
  emit("ItemsPropertiesUpdated", g_variant_new("(a(ia{sv})a(ias))", &updated, nullptr));
}

void DBusMenu::emit(const char* signal, GVariant* parameters) {
  const VariantPtr owned(g_variant_ref_sink(parameters));
  if (connection_ == nullptr) return;
  g_dbus_connection_emit_signal(connection_, nullptr, kPath, kMenuInterface, signal, owned.get(),
                                nullptr);
}

void DBusMenu::onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                            const gchar* method, GVariant* parameters,
                            GDBusMethodInvocation* invocation, gpointer self) {
  static_cast<DBusMenu*>(self)->call(method, parameters, invocation);
}

GVariant* DBusMenu::onGetProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                  const gchar* property, GError**, gpointer) {
  if (std::strcmp(property, "Version") == 0) return g_variant_new_uint32(3);
  if (std::strcmp(property, "TextDirection") == 0) return g_variant_new_string("ltr");
  if (std::strcmp(property, "Status") == 0) return g_variant_new_string("normal");
  return g_variant_new_strv(nullptr, 0);
}

const MenuItem* DBusMenu::itemWith(int id) const {
  const auto found = std::find_if(items_.begin(), items_.end(),
                                  [id](const MenuItem& item) { return item.id == id; });
  return found == items_.end() ? nullptr : &*found;
}

// A floating (ia{sv}av).
GVariant* DBusMenu::layoutOf(int id, int depth) const {
  GVariantBuilder children;
  g_variant_builder_init(&children, G_VARIANT_TYPE("av"));
  if (id != kRoot) {
    const MenuItem* item = itemWith(id);
    return g_variant_new("(i@a{sv}av)", id, propertiesOf(item != nullptr ? *item : MenuItem{}),
                         &children);
  }
  for (const MenuItem& item : items_) {
    if (depth == 0) break;
    g_variant_builder_add(&children, "v", layoutOf(item.id, 0));
  }
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&properties, "{sv}", "children-display", g_variant_new_string("submenu"));
  return g_variant_new("(ia{sv}av)", kRoot, &properties, &children);
}

std::optional<int> DBusMenu::chosen(int id, const char* event) const {
  const MenuItem* item = itemWith(id);
  const bool isChoice = item != nullptr && item->enabled && std::strcmp(event, "clicked") == 0;
  return isChoice ? std::optional(id) : std::nullopt;
}

std::vector<int> DBusMenu::chosenIn(GVariant* events) const {
  std::vector<int> ids;
  GVariantIter each;
  g_variant_iter_init(&each, events);
  gint32 id = 0;
  const gchar* event = nullptr;
  while (g_variant_iter_loop(&each, "(i&svu)", &id, &event, nullptr, nullptr)) {
    if (const auto choice = chosen(id, event)) ids.push_back(*choice);
  }
  return ids;
}

void DBusMenu::tell(const std::vector<int>& ids) const {
  const auto onChoice = onChoice_;
  for (const int id : ids) onChoice(id);
}

// A floating a(ia{sv}) of the requested items, or of all if none is requested.
GVariant* DBusMenu::groupProperties(GVariant* wanted) const {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ia{sv})"));
  const auto add = [&builder](const MenuItem& item) {
    g_variant_builder_add(&builder, "(i@a{sv})", item.id, propertiesOf(item));
  };
  GVariantIter each;
  if (g_variant_iter_init(&each, wanted) == 0) {
    for (const MenuItem& item : items_) add(item);
  }
  gint32 id = 0;
  while (g_variant_iter_next(&each, "i", &id)) {
    if (const MenuItem* item = itemWith(id)) add(*item);
  }
  return g_variant_builder_end(&builder);
}

void DBusMenu::answerProperty(GVariant* parameters, GDBusMethodInvocation* invocation) const {
  gint32 id = 0;
  const gchar* name = nullptr;
  g_variant_get(parameters, "(i&s)", &id, &name);
  VariantPtr value;
  if (const MenuItem* item = itemWith(id)) {
    const VariantPtr properties(g_variant_ref_sink(propertiesOf(*item)));
    value.reset(g_variant_lookup_value(properties.get(), name, nullptr));
  }
  if (value) {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(v)", value.get()));
  } else {
    g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                          "The menu has no item %d with a property \"%s\"", id,
                                          name);
  }
}

void DBusMenu::call(const std::string& method, GVariant* parameters,
                    GDBusMethodInvocation* invocation) {
  mainThread_.assertHeld();
  if (method == "GetProperty") {
    answerProperty(parameters, invocation);
    return;
  }
  std::vector<int> choices;
  GVariant* answer = nullptr;
  if (method == "GetLayout") {
    gint32 parent = 0;
    gint32 depth = 0;
    g_variant_get(parameters, "(iias)", &parent, &depth, nullptr);
    answer = g_variant_new("(u@(ia{sv}av))", revision_, layoutOf(parent, depth));
  } else if (method == "GetGroupProperties") {
    const VariantPtr wanted(g_variant_get_child_value(parameters, 0));
    answer = g_variant_new("(@a(ia{sv}))", groupProperties(wanted.get()));
  } else if (method == "Event") {
    gint32 id = 0;
    const gchar* event = nullptr;
    g_variant_get(parameters, "(i&svu)", &id, &event, nullptr, nullptr);
    if (const auto choice = chosen(id, event)) choices.push_back(*choice);
  } else if (method == "EventGroup") {
    const VariantPtr events(g_variant_get_child_value(parameters, 0));
    choices = chosenIn(events.get());
    answer = g_variant_new("(ai)", nullptr);
  } else if (method == "AboutToShow") {
    answer = g_variant_new("(b)", FALSE);
  } else {
    answer = g_variant_new("(aiai)", nullptr, nullptr);
  }
  // Answered first: the choice may destroy the menu.
  g_dbus_method_invocation_return_value(invocation, answer);
  tell(choices);
}

}  // namespace linux_host
