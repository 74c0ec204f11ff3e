// SPDX-License-Identifier: MIT
#include "tests/e2e/tray_menu.h"

#include <algorithm>
#include <stdexcept>

namespace e2e {
namespace {

constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kMenuInterface = "com.canonical.dbusmenu";
constexpr int kMenuAnswer_ms = 5000;

}  // namespace

TrayMenu::TrayMenu(const std::string& busAddress, pid_t tool)
    : item_("org.kde.StatusNotifierItem-" + std::to_string(tool) + "-1") {
  connection_ = g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  if (connection_ == nullptr) throw std::runtime_error("no bus for the tray");
}

TrayMenu::~TrayMenu() {
  g_dbus_connection_close_sync(connection_, nullptr, nullptr);
  g_object_unref(connection_);
}

GVariant* TrayMenu::call(const char* path, const char* interface, const char* method,
                         GVariant* arguments) const {
  return g_dbus_connection_call_sync(connection_, item_.c_str(), path, interface, method, arguments,
                                     nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, kMenuAnswer_ms,
                                     nullptr, nullptr);
}

std::string TrayMenu::path() const {
  GVariant* answer = call(kItemPath, "org.freedesktop.DBus.Properties", "Get",
                          g_variant_new("(ss)", "org.kde.StatusNotifierItem", "Menu"));
  if (answer == nullptr) return {};
  GVariant* path = nullptr;
  g_variant_get(answer, "(v)", &path);
  const std::string menu = g_variant_get_string(path, nullptr);
  g_variant_unref(path);
  g_variant_unref(answer);
  return menu;
}

std::vector<std::pair<int, std::string>> TrayMenu::lines() const {
  const std::string menu = path();
  if (menu.empty()) return {};
  GVariant* answer =
      call(menu.c_str(), kMenuInterface, "GetLayout", g_variant_new("(iias)", 0, -1, nullptr));
  if (answer == nullptr) return {};
  std::vector<std::pair<int, std::string>> found;
  GVariantIter* children = nullptr;
  g_variant_get(answer, "(u(ia{sv}av))", nullptr, nullptr, nullptr, &children);
  for (GVariant* child = nullptr; g_variant_iter_next(children, "v", &child);) {
    int number = 0;
    GVariant* properties = nullptr;
    g_variant_get(child, "(i@a{sv}av)", &number, &properties, nullptr);
    gboolean isEnabled = FALSE;
    const gchar* label = nullptr;
    if (g_variant_lookup(properties, "label", "&s", &label) &&
        g_variant_lookup(properties, "enabled", "b", &isEnabled) && isEnabled) {
      found.emplace_back(number, label);
    }
    g_variant_unref(properties);
    g_variant_unref(child);
  }
  g_variant_iter_free(children);
  g_variant_unref(answer);
  return found;
}

std::vector<std::string> TrayMenu::offered() const {
  std::vector<std::string> texts;
  for (const auto& line : lines()) texts.push_back(line.second);
  return texts;
}

bool TrayMenu::choose(const std::string& text) const {
  const auto all = lines();
  const auto line =
      std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.second == text; });
  if (line == all.end()) return false;
  GVariant* answer =
      call(path().c_str(), kMenuInterface, "Event",
           g_variant_new("(isvu)", line->first, "clicked", g_variant_new_int32(0), 0));
  if (answer == nullptr) return false;
  g_variant_unref(answer);
  return true;
}

}  // namespace e2e
