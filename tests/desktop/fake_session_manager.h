// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"

namespace desktop_test {

// A session manager on the bus, with one client. Answers while the test's main loop runs; `bus`
// outlives it.
class FakeSessionManager {
 public:
  static constexpr const char* kName = "org.gnome.SessionManager";

  explicit FakeSessionManager(GDBusConnection* bus);
  ~FakeSessionManager();
  FakeSessionManager(const FakeSessionManager&) = delete;
  FakeSessionManager& operator=(const FakeSessionManager&) = delete;

  void refuseClients() { refuses_ = true; }
  // Signals to its client: "QueryEndSession", "EndSession", "Stop".
  void tell(const char* signal) const;
  // With the test's arguments; null for none.
  void tell(const char* signal, GVariant* arguments) const;

  // "id startup-id" of each registration.
  std::vector<std::string> registrations;
  // The client's answers to the signals.
  std::vector<bool> answers;

 private:
  static void onCall(GDBusConnection* bus, const gchar* sender, const gchar* path,
                     const gchar* interfaceName, const gchar* method, GVariant* parameters,
                     GDBusMethodInvocation* invocation, gpointer self);

  GDBusConnection* const bus_;
  GDBusNodeInfo* const node_;
  guint manager_ = 0;
  guint client_ = 0;
  guint name_ = 0;
  std::string caller_;
  bool refuses_ = false;
};

}  // namespace desktop_test
