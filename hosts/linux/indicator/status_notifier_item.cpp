// SPDX-License-Identifier: MIT
#include "hosts/linux/indicator/status_notifier_item.h"

#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <string_view>
#include <utility>

#include "hosts/linux/indicator/icon_pixmaps.h"

namespace linux_host {
namespace {

constexpr const char* kItemInterface = "org.kde.StatusNotifierItem";
constexpr const char* kPath = "/StatusNotifierItem";
constexpr const char* kWatcherName = "org.kde.StatusNotifierWatcher";
constexpr const char* kWatcherPath = "/StatusNotifierWatcher";

constexpr const char* kItemIntrospection = R"xml(<node><interface name="org.kde.StatusNotifierItem">
<property name="Category" type="s" access="read"/>
<property name="Id" type="s" access="read"/>
<property name="Title" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="WindowId" type="i" access="read"/>
<property name="IconThemePath" type="s" access="read"/>
<property name="IconName" type="s" access="read"/>
<property name="IconPixmap" type="a(iiay)" access="read"/>
<property name="OverlayIconName" type="s" access="read"/>
<property name="OverlayIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionIconName" type="s" access="read"/>
<property name="AttentionIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionMovieName" type="s" access="read"/>
<property name="IconAccessibleDesc" type="s" access="read"/>
<property name="AttentionAccessibleDesc" type="s" access="read"/>
<property name="XAyatanaLabel" type="s" access="read"/>
<property name="XAyatanaLabelGuide" type="s" access="read"/>
<property name="XAyatanaOrderingIndex" type="u" access="read"/>
<property name="ToolTip" type="(sa(iiay)ss)" access="read"/>
<property name="ItemIsMenu" type="b" access="read"/>
<property name="Menu" type="o" access="read"/>
<method name="ContextMenu"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="Activate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="SecondaryActivate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="Scroll"><arg type="i" direction="in"/><arg type="s" direction="in"/></method>
<method name="ProvideXdgActivationToken"><arg type="s" direction="in"/></method>
<signal name="NewTitle"/><signal name="NewIcon"/><signal name="NewAttentionIcon"/>
<signal name="NewOverlayIcon"/><signal name="NewToolTip"/>
<signal name="NewStatus"><arg type="s"/></signal>
<signal name="XAyatanaNewLabel"><arg type="s"/><arg type="s"/></signal>
</interface></node>)xml";

GVariant* noPixmaps() {
  return g_variant_new("a(iiay)", nullptr);
}

// A tray may ask for a change a tenth of a second after it was told of it, and may fail if the item
// goes before it has drawn the change.
constexpr gint64 kQuiet_ms = 300;
// GNOME's tray asks for all properties, then asks the bus who owns the item's name. If it gets the
// properties first, it drops them. So the bus gets time to answer first.
constexpr guint kBusFirst_ms = 100;
constexpr guint kAnswering_ms = 1000;

// The widest text of its kind, so that the label keeps its width.
std::string labelGuide(std::string label) {
  for (char& character : label) {
    if (character >= '0' && character <= '9') character = '0';
  }
  return label;
}

const char* statusOf(const StatusNotifierItem::Look& look) {
  return look.attention ? "NeedsAttention" : "Active";
}

void forgetSource(guint* source) {
  if (*source != 0) g_source_remove(std::exchange(*source, 0));
}

}  // namespace

StatusNotifierItem::StatusNotifierItem(GDBusConnection* connection, std::string id,
                                       std::string title, std::string iconThemeFolder,
                                       Callbacks callbacks)
    : connection_(connection),
      id_(std::move(id)),
      title_(std::move(title)),
      iconThemeFolder_(std::move(iconThemeFolder)),
      callbacks_(std::move(callbacks)),
      node_(g_dbus_node_info_new_for_xml(kItemIntrospection, nullptr)) {
  watch_ = g_bus_watch_name_on_connection(connection_, kWatcherName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                          onTrayAppeared, onTrayVanished, this, nullptr);
}

StatusNotifierItem::~StatusNotifierItem() {
  g_bus_unwatch_name(watch_);
  forgetSource(&announcement_);
  withdrawObjects();
}

void StatusNotifierItem::onTrayAppeared(GDBusConnection*, const gchar*, const gchar*,
                                        gpointer self) {
  auto* item = static_cast<StatusNotifierItem*>(self);
  item->trayPresent_ = true;
  item->registerWithTray();
  if (item->callbacks_.onTray) item->callbacks_.onTray(true);
}

void StatusNotifierItem::onTrayVanished(GDBusConnection*, const gchar*, gpointer self) {
  auto* item = static_cast<StatusNotifierItem*>(self);
  item->trayPresent_ = false;
  if (item->callbacks_.onTray) item->callbacks_.onTray(false);
}

void StatusNotifierItem::setVisible(bool visible) {
  mainThread_.assertHeld();
  if (visible == (phase_ == Phase::kShown)) return;
  if (visible) {
    show();
  } else {
    leave();
  }
}

void StatusNotifierItem::enter(Phase next) {
  assert(next != Phase::kShown || phase_ != Phase::kShown);
  assert(next != Phase::kLeaving || phase_ == Phase::kShown);
  phase_ = next;
}

void StatusNotifierItem::show() {
  if (phase_ == Phase::kHidden) exportObjects();
  forgetSource(&leaving_);
  enter(Phase::kShown);
  announced_ = look_;
  if (ownedName_ != 0) return;
  busName_ = "org.kde.StatusNotifierItem-" + std::to_string(getpid()) + "-1";
  ownedName_ = g_bus_own_name_on_connection(
      connection_, busName_.c_str(), G_BUS_NAME_OWNER_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, gpointer self) {
        auto* item = static_cast<StatusNotifierItem*>(self);
        item->hasName_ = true;
        item->registerWithTray();
      },
      nullptr, this, nullptr);
}

void StatusNotifierItem::leave() {
  enter(Phase::kLeaving);
  const gint64 quiet_ms = (g_get_monotonic_time() - lastEmission_us_) / 1000;
  leaving_ = g_timeout_add(
      static_cast<guint>(std::clamp<gint64>(kQuiet_ms - quiet_ms, 0, kQuiet_ms)),
      [](gpointer self) -> gboolean {
        static_cast<StatusNotifierItem*>(self)->giveUpName();
        return G_SOURCE_REMOVE;
      },
      this);
}

void StatusNotifierItem::releaseName() {
  hasName_ = false;
  if (ownedName_ != 0) g_bus_unown_name(std::exchange(ownedName_, 0));
}

void StatusNotifierItem::giveUpName() {
  releaseName();
  leaving_ = g_timeout_add(
      kAnswering_ms,
      [](gpointer self) -> gboolean {
        auto* item = static_cast<StatusNotifierItem*>(self);
        item->leaving_ = 0;
        item->withdrawObjects();
        return G_SOURCE_REMOVE;
      },
      this);
}

void StatusNotifierItem::exportObjects() {
  // Without property functions, calls to the properties interface arrive as method calls.
  static const GDBusInterfaceVTable kTable = {onMethodCall, nullptr, nullptr, {}};
  registration_ = g_dbus_connection_register_object(connection_, kPath, node_->interfaces[0],
                                                    &kTable, this, nullptr, nullptr);
  menu_ = std::make_unique<DBusMenu>([this](int id) { callbacks_.onMenuChoice(id); });
  // The icon is worth showing without its menu: a click on it stops the recording, too.
  static_cast<void>(menu_->exportOn(connection_));
  menu_->setItems(menuItems_);
}

void StatusNotifierItem::withdrawObjects() {
  forgetSource(&leaving_);
  answerWaiting();
  enter(Phase::kHidden);
  releaseName();
  if (registration_ == 0) return;
  g_dbus_connection_unregister_object(connection_, registration_);
  registration_ = 0;
  menu_.reset();
}

void StatusNotifierItem::registerWithTray() {
  if (!trayPresent_ || !hasName_ || phase_ != Phase::kShown) return;
  g_dbus_connection_call(connection_, kWatcherName, kWatcherPath, kWatcherName,
                         "RegisterStatusNotifierItem", g_variant_new("(s)", busName_.c_str()),
                         nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, kBusTimeout_ms, nullptr, nullptr,
                         nullptr);
}

void StatusNotifierItem::setLook(const Look& look) {
  mainThread_.assertHeld();
  look_ = look;
  if (announcement_ != 0) return;
  announcement_ = g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer self) -> gboolean {
        auto* item = static_cast<StatusNotifierItem*>(self);
        item->announcement_ = 0;
        item->announce();
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
}

void StatusNotifierItem::announce() {
  mainThread_.assertHeld();
  const Look before = std::exchange(announced_, look_);
  if (before.iconName != look_.iconName) emit("NewIcon");
  if (before.toolTipTitle != look_.toolTipTitle || before.toolTipText != look_.toolTipText) {
    emit("NewToolTip");
  }
  if (before.label != look_.label) {
    emit("XAyatanaNewLabel",
         g_variant_new("(ss)", look_.label.c_str(), labelGuide(look_.label).c_str()));
  }
  if (before.attention != look_.attention) {
    emit("NewStatus", g_variant_new("(s)", statusOf(look_)));
  }
}

void StatusNotifierItem::setMenu(std::vector<MenuItem> items) {
  mainThread_.assertHeld();
  menuItems_ = std::move(items);
  if (menu_) menu_->setItems(menuItems_);
}

void StatusNotifierItem::emit(const char* signal, GVariant* parameters) {
  const VariantPtr owned(parameters != nullptr ? g_variant_ref_sink(parameters) : nullptr);
  if (phase_ != Phase::kShown) return;
  lastEmission_us_ = g_get_monotonic_time();
  g_dbus_connection_emit_signal(connection_, nullptr, kPath, kItemInterface, signal, owned.get(),
                                nullptr);
}

void StatusNotifierItem::onMethodCall(GDBusConnection*, const gchar*, const gchar*,
                                      const gchar* interfaceName, const gchar* method,
                                      GVariant* parameters, GDBusMethodInvocation* invocation,
                                      gpointer self) {
  auto* item = static_cast<StatusNotifierItem*>(self);
  if (std::string_view(interfaceName) == "org.freedesktop.DBus.Properties") {
    item->askForProperties(method, parameters, invocation);
  } else {
    item->act(method, parameters, invocation);
  }
}

void StatusNotifierItem::act(std::string_view method, GVariant* parameters,
                             GDBusMethodInvocation* invocation) {
  mainThread_.assertHeld();
  if (method == "ProvideXdgActivationToken" && callbacks_.onActivationToken) {
    const VariantPtr token(g_variant_get_child_value(parameters, 0));
    callbacks_.onActivationToken(g_variant_get_string(token.get(), nullptr));
  }
  // Answered first: the click may destroy the item.
  g_dbus_method_invocation_return_value(invocation, nullptr);
  if (method == "Activate") callbacks_.onActivate();
}

// GDBus passes on only calls for existing properties, and no attempt to set a read-only one.
void StatusNotifierItem::askForProperties(std::string_view method, GVariant* parameters,
                                          GDBusMethodInvocation* invocation) {
  if (method == "Get") {
    const VariantPtr name(g_variant_get_child_value(parameters, 1));
    g_dbus_method_invocation_return_value(
        invocation, g_variant_new("(v)", property(g_variant_get_string(name.get(), nullptr))));
    return;
  }
  waiting_.push_back(invocation);
  if (answering_ != 0) return;
  answering_ = g_timeout_add(
      kBusFirst_ms,
      [](gpointer self) -> gboolean {
        auto* item = static_cast<StatusNotifierItem*>(self);
        item->answering_ = 0;
        item->answerWaiting();
        return G_SOURCE_REMOVE;
      },
      this);
}

void StatusNotifierItem::answerWaiting() {
  forgetSource(&answering_);
  for (GDBusMethodInvocation* invocation : std::exchange(waiting_, {})) {
    GVariantBuilder all;
    g_variant_builder_init(&all, G_VARIANT_TYPE("a{sv}"));
    for (GDBusPropertyInfo** info = node_->interfaces[0]->properties; *info != nullptr; ++info) {
      g_variant_builder_add(&all, "{sv}", (*info)->name, property((*info)->name));
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(a{sv})", &all));
  }
}

GVariant* StatusNotifierItem::toolTip() const {
  // The tray reads the text as markup.
  const TextPtr title(g_markup_escape_text(look_.toolTipTitle.c_str(), -1));
  const TextPtr text(g_markup_escape_text(look_.toolTipText.c_str(), -1));
  return g_variant_new("(s@a(iiay)ss)", "", noPixmaps(), title.get(), text.get());
}

GVariant* StatusNotifierItem::property(const std::string& name) const {
  if (name == "Category") return g_variant_new_string("ApplicationStatus");
  if (name == "Id") return g_variant_new_string(id_.c_str());
  if (name == "Title") return g_variant_new_string(title_.c_str());
  if (name == "Status") return g_variant_new_string(statusOf(look_));
  if (name == "WindowId") return g_variant_new_int32(0);
  if (name == "IconThemePath") return g_variant_new_string(iconThemeFolder_.c_str());
  if (name == "IconName" || name == "AttentionIconName") {
    return g_variant_new_string(look_.iconName.c_str());
  }
  if (name == "IconPixmap" || name == "AttentionIconPixmap") {
    return iconPixmaps(iconThemeFolder_ + "/hicolor", look_.iconName);
  }
  if (name == "IconAccessibleDesc" || name == "AttentionAccessibleDesc") {
    return g_variant_new_string(title_.c_str());
  }
  if (name == "XAyatanaLabel") return g_variant_new_string(look_.label.c_str());
  if (name == "XAyatanaLabelGuide") return g_variant_new_string(labelGuide(look_.label).c_str());
  if (name == "XAyatanaOrderingIndex") return g_variant_new_uint32(0);
  if (name == "OverlayIconPixmap") return noPixmaps();
  if (name == "ToolTip") return toolTip();
  if (name == "ItemIsMenu") return g_variant_new_boolean(FALSE);
  if (name == "Menu") return g_variant_new_object_path(DBusMenu::kPath);
  return g_variant_new_string("");
}

}  // namespace linux_host
