// SPDX-License-Identifier: MIT
#include "hosts/linux/host/desktop_appearance.h"

#include <optional>
#include <string>
#include <utility>

#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/bus/desktop_setting.h"
#include "hosts/linux/bus/portal_request.h"

namespace linux_host {
namespace {

constexpr const char* kPortalSettings = "org.freedesktop.portal.Settings";
constexpr const char* kAppearance = "org.freedesktop.appearance";
constexpr const char* kInterfaceSchema = "org.gnome.desktop.interface";
constexpr const char* kSchemeKey = "color-scheme";
constexpr const char* kContrastSchema = "org.gnome.desktop.a11y.interface";
constexpr const char* kContrastKey = "high-contrast";

VariantPtr callOn(GDBusConnection* bus, const char* name, const char* path, const char* interface,
                  const char* method, GVariant* parameters) {
  return VariantPtr(g_dbus_connection_call_sync(bus, name, path, interface, method, parameters,
                                                nullptr, G_DBUS_CALL_FLAGS_NONE, kPortalAnswer_ms,
                                                nullptr, nullptr));
}

bool listsPortal(GDBusConnection* bus, const char* method) {
  const VariantPtr answer = callOn(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                   "org.freedesktop.DBus", method, nullptr);
  if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(as)"))) return false;
  const VariantPtr names(g_variant_get_child_value(answer.get(), 0));
  bool found = false;
  GVariantIter each;
  g_variant_iter_init(&each, names.get());
  const gchar* name = nullptr;
  while (g_variant_iter_next(&each, "&s", &name)) found = found || std::string(name) == kPortalName;
  return found;
}

// The number in a setting, which is wrapped in one variant or in two.
std::optional<guint32> portalSetting(GDBusConnection* bus, const char* key) {
  const VariantPtr answer = callOn(bus, kPortalName, kPortalPath, kPortalSettings, "Read",
                                   g_variant_new("(ss)", kAppearance, key));
  if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(v)"))) return std::nullopt;
  VariantPtr value(g_variant_get_child_value(answer.get(), 0));
  while (g_variant_is_of_type(value.get(), G_VARIANT_TYPE_VARIANT)) {
    value.reset(g_variant_get_variant(value.get()));
  }
  if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_UINT32)) return std::nullopt;
  return g_variant_get_uint32(value.get());
}

bool themeSays(const std::string& word) {
  const gchar* theme = g_getenv("GTK_THEME");
  return theme != nullptr && std::string(theme).find(word) != std::string::npos;
}

bool desktopWantsDark() {
  const VariantPtr scheme = desktopSetting(kInterfaceSchema, kSchemeKey, G_VARIANT_TYPE_STRING);
  if (scheme && std::string(g_variant_get_string(scheme.get(), nullptr)) == "prefer-dark") {
    return true;
  }
  return themeSays("dark") || themeSays("HighContrastInverse");
}

bool desktopWantsContrast() {
  const VariantPtr contrast = desktopSetting(kContrastSchema, kContrastKey, G_VARIANT_TYPE_BOOLEAN);
  if (contrast && g_variant_get_boolean(contrast.get()) != FALSE) return true;
  return themeSays("HighContrast");
}

}  // namespace

Appearance desktopAppearance(GDBusConnection* bus) {
  Appearance appearance;
  std::optional<guint32> scheme;
  std::optional<guint32> contrast;
  if (bus != nullptr &&
      (listsPortal(bus, "ListNames") || listsPortal(bus, "ListActivatableNames"))) {
    introduceToPortal(bus, kPortalAnswer_ms);
    scheme = portalSetting(bus, "color-scheme");
    contrast = portalSetting(bus, "contrast");
  }
  // 1 is "prefers dark" and "prefers high contrast".
  appearance.dark = scheme && *scheme != 0 ? *scheme == 1 : desktopWantsDark();
  appearance.highContrast = contrast && *contrast != 0 ? *contrast == 1 : desktopWantsContrast();
  return appearance;
}

void AppearanceWatch::follow(std::function<void()> onChange) {
  mainThread_.assertHeld();
  onChange_ = std::move(onChange);
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_, subscription_);
  subscription_ = 0;
  for (const auto& settings : settings_) g_signal_handlers_disconnect_by_data(settings.get(), this);
  settings_.clear();
  if (!onChange_) return;
  if (bus_ != nullptr) watchPortal();
  watchDesktop(kInterfaceSchema, kSchemeKey);
  watchDesktop(kContrastSchema, kContrastKey);
}

void AppearanceWatch::watchPortal() {
  subscription_ = g_dbus_connection_signal_subscribe(
      bus_, kPortalName, kPortalSettings, "SettingChanged", kPortalPath, kAppearance,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
         gpointer self) { static_cast<AppearanceWatch*>(self)->onChange_(); },
      this, nullptr);
}

void AppearanceWatch::watchDesktop(const char* schema, const char* key) {
  auto settings = settingsWith(schema, key);
  if (settings == nullptr) return;
  void (*changed)(GSettings*, const gchar*, gpointer) = [](GSettings*, const gchar*,
                                                           gpointer self) {
    static_cast<AppearanceWatch*>(self)->onChange_();
  };
  g_signal_connect(settings.get(), (std::string("changed::") + key).c_str(), G_CALLBACK(changed),
                   this);
  // Only changes of what has been read are reported.
  VariantPtr(g_settings_get_value(settings.get(), key)).reset();
  settings_.push_back(std::move(settings));
}

}  // namespace linux_host
