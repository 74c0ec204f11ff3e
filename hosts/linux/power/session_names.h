// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Notices the end of the desktop's session while a recording runs, by the names of session managers
// on the bus: a name that was there and goes is a log-out. It needs no call to the manager and
// nothing from the environment, so it also works for a program started by the bus and for managers
// that only speak XSMP. Main thread.
class SessionNames : public suite::ToolDataObserver {
 public:
  // `bus` may be null and outlives this object. `onOver` may destroy it.
  SessionNames(GDBusConnection* bus, std::function<void()> onOver);
  ~SessionNames() override;
  SessionNames(const SessionNames&) = delete;
  SessionNames& operator=(const SessionNames&) = delete;

  // Starts watching once the recording's clock has advanced, so as not to delay the start.
  void toolDataDidChange(const suite::ToolData& data) override;

 private:
  [[nodiscard]] bool isBusThere() const;
  void watch();
  void forget();
  static void onAppeared(GDBusConnection* bus, const gchar* name, const gchar* owner,
                         gpointer self);
  static void onVanished(GDBusConnection* bus, const gchar* name, gpointer self);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  const std::function<void()> onOver_;
  std::map<std::string, bool> isThere_;
  std::vector<guint> watches_;
};

}  // namespace linux_host
