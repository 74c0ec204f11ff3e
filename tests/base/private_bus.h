// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>

namespace base_test {

// A private session bus, announced in the test's environment.
class PrivateBus {
 public:
  PrivateBus() : bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) {
    g_test_dbus_up(bus_);
    address_ = g_test_dbus_get_bus_address(bus_);
  }
  ~PrivateBus() { stop(); }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  void stop() {
    if (bus_ == nullptr) return;
    g_test_dbus_stop(bus_);
    g_clear_object(&bus_);
  }
  [[nodiscard]] const std::string& address() const { return address_; }

 private:
  GTestDBus* bus_;
  std::string address_;
};

}  // namespace base_test
