// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/windows/windows_module.h"
#include "platform/thread_role.h"

namespace linux_host {

// The user's appearance settings: from the portal if one runs or can be started, else from the
// desktop's own settings, else from GTK_THEME. `bus` may be null. Waits at most kPortalAnswer_ms
// for each answer of the portal. Main thread.
Appearance desktopAppearance(GDBusConnection* bus);
inline constexpr int kPortalAnswer_ms = 500;

// Notices changes of these settings, in the portal and in the desktop's own settings. Main thread.
class AppearanceWatch {
 public:
  // `bus` may be null; it outlives the watch.
  explicit AppearanceWatch(GDBusConnection* bus) : bus_(bus) {}
  ~AppearanceWatch() { follow({}); }
  AppearanceWatch(const AppearanceWatch&) = delete;
  AppearanceWatch& operator=(const AppearanceWatch&) = delete;

  // Calls `onChange` from the main loop whenever a setting may have changed, instead of the
  // previous follower. Empty: watches nothing.
  void follow(std::function<void()> onChange);

 private:
  void watchPortal();
  void watchDesktop(const char* schema, const char* key);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  std::function<void()> onChange_;
  guint subscription_ = 0;
  std::vector<ObjectPtr<GSettings>> settings_;
};

}  // namespace linux_host
