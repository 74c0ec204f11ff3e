// SPDX-License-Identifier: MIT
#include "hosts/linux/power/session_names.h"

#include <array>
#include <utility>

#include "hosts/linux/power/login_session.h"

namespace linux_host {
namespace {

constexpr std::array kManagers = {"org.gnome.SessionManager", "org.xfce.SessionManager",
                                  "org.kde.ksmserver", "org.lxqt.session"};

}  // namespace

SessionNames::SessionNames(GDBusConnection* bus, std::function<void()> onOver)
    : bus_(bus), onOver_(std::move(onOver)) {}

SessionNames::~SessionNames() {
  forget();
}

void SessionNames::toolDataDidChange(const suite::ToolData& data) {
  mainThread_.assertHeld();
  if (!isRecording(data)) {
    forget();
  } else if (isBusThere() && watches_.empty() && data.menuText != "00:00") {
    watch();
  }
}

bool SessionNames::isBusThere() const {
  return bus_ != nullptr && g_dbus_connection_is_closed(bus_) == FALSE;
}

void SessionNames::watch() {
  mainThread_.assertHeld();
  for (const char* manager : kManagers) {
    watches_.push_back(g_bus_watch_name_on_connection(bus_, manager, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                      onAppeared, onVanished, this, nullptr));
  }
}

void SessionNames::forget() {
  mainThread_.assertHeld();
  for (const guint watch : std::exchange(watches_, {})) g_bus_unwatch_name(watch);
  isThere_.clear();
}

void SessionNames::onAppeared(GDBusConnection*, const gchar* name, const gchar*, gpointer self) {
  static_cast<SessionNames*>(self)->isThere_[name] = true;
}

// Also called at once for a name without an owner, and when the bus itself goes; in that case the
// recording goes on and the program can be reached through its socket.
void SessionNames::onVanished(GDBusConnection* bus, const gchar* name, gpointer self) {
  auto* names = static_cast<SessionNames*>(self);
  const bool wasThere = std::exchange(names->isThere_[name], false);
  if (!wasThere || bus == nullptr || !names->isBusThere()) return;
  const auto onOver = names->onOver_;
  onOver();
}

}  // namespace linux_host
