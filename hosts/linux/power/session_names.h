// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Follows the end of the desktop's session while a recording runs, by the names that session
// managers have on the bus: a name that was there and goes is a log-out. It needs no word of the
// manager and nothing from the environment, so it holds for a program that the bus has started and
// for managers that speak XSMP alone. Main thread.
class SessionNames : public suite::ToolDataObserver {
 public:
  // `bus` may be null and outlives this object. `onOver` may destroy it.
  SessionNames(GDBusConnection* bus, std::function<void()> onOver);
  ~SessionNames() override;
  SessionNames(const SessionNames&) = delete;
  SessionNames& operator=(const SessionNames&) = delete;

  // Looks when the recording's clock has moved on: its start has other things to do.
  void toolDataDidChange(const suite::ToolData& data) override;

 private:
  [[nodiscard]] bool isBusThere() const;
  void watch();
  void forget();
  static void onAppeared(GDBusConnection* bus, const gchar* name, const gchar* owner,
                         gpointer self);
  static void onVanished(GDBusConnection* bus, const gchar* name, gpointer self);

  GDBusConnection* const bus_;
  const std::function<void()> onOver_;
  std::map<std::string, bool> isThere_;
  std::vector<guint> watches_;
};

}  // namespace linux_host
