// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"

namespace linux_host {

// One line of a menu. The caller chooses the ids: above 0 and unique in the menu.
struct MenuItem {
  int id = 0;
  std::string label;  // plain text; empty: a separator
  bool enabled = true;
  friend bool operator==(const MenuItem&, const MenuItem&) = default;
};

// A menu that the tray shows for us, through com.canonical.dbusmenu. Main thread.
class DBusMenu {
 public:
  static constexpr const char* kPath = "/MenuBar";

  // `onChoice` gets the id of the item that the user chose.
  explicit DBusMenu(std::function<void(int id)> onChoice);
  ~DBusMenu();
  DBusMenu(const DBusMenu&) = delete;
  DBusMenu& operator=(const DBusMenu&) = delete;

  // Offers the menu on the connection, which outlives it.
  Status exportOn(GDBusConnection* connection);
  // Tells the tray what changed: only labels, or the whole menu.
  void setItems(std::vector<MenuItem> items);

 private:
  static void onMethodCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                           const gchar* interfaceName, const gchar* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer self);
  static GVariant* onGetProperty(GDBusConnection* connection, const gchar* sender,
                                 const gchar* path, const gchar* interfaceName,
                                 const gchar* property, GError** error, gpointer self);
  void call(const std::string& method, GVariant* parameters, GDBusMethodInvocation* invocation);
  [[nodiscard]] GVariant* layoutOf(int id, int depth) const;
  [[nodiscard]] GVariant* groupProperties(GVariant* wanted) const;
  void answerProperty(GVariant* parameters, GDBusMethodInvocation* invocation) const;
  [[nodiscard]] const MenuItem* itemWith(int id) const;
  // The id, if this event chooses that item.
  [[nodiscard]] std::optional<int> chosen(int id, const char* event) const;
  [[nodiscard]] std::vector<int> chosenIn(GVariant* events) const;
  // Does not touch the menu after it has reported a choice: the caller may destroy the menu.
  void tell(const std::vector<int>& ids) const;
  void emit(const char* signal, GVariant* parameters);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::function<void(int id)> onChoice_;
  std::vector<MenuItem> items_;
  guint32 revision_ = 1;
  const NodeInfoPtr node_;
  GDBusConnection* connection_ = nullptr;
  guint registration_ = 0;
};

}  // namespace linux_host
