// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "tests/base/private_bus.h"

// The other side of the program's calls, over a private bus.

namespace base_test {

using linux_host::ConnectionPtr;
using linux_host::VariantPtr;

inline ConnectionPtr connected(const std::string& address) {
  auto connection = linux_host::connectTo(address, true, 5000);
  if (connection) return *std::move(connection);
  ADD_FAILURE() << connection.error();
  return nullptr;
}

inline void iterateUntil(const std::function<bool()>& done) {
  const gint64 end_us = g_get_monotonic_time() + 15 * G_USEC_PER_SEC;
  const guint wake = g_timeout_add(
      10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  while (!done() && g_get_monotonic_time() < end_us) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(wake);
  ASSERT_TRUE(done());
}

// Waits until the bus has everything sent over this connection so far, and everything that the bus
// had for it has arrived.
inline void settle(GDBusConnection* connection) {
  bool answered = false;
  g_dbus_connection_call(
      connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
      "Ping", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
      [](GObject*, GAsyncResult*, gpointer flag) { *static_cast<bool*>(flag) = true; }, &answered);
  iterateUntil([&] { return answered; });
}

// An object on the bus that records its calls and answers as the test says.
class FakeService {
 public:
  using Answer = std::function<GVariant*(const std::string& method, const std::string& call)>;

  FakeService(const std::string& address, std::string name, const char* path, const char* xml,
              Answer answer)
      : connection_(connected(address)), name_(std::move(name)), answer_(std::move(answer)) {
    static const GDBusInterfaceVTable kCalls = {&FakeService::onCall, nullptr, nullptr, {}};
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(xml, nullptr);
    registration_ = g_dbus_connection_register_object(connection_.get(), path, node->interfaces[0],
                                                      &kCalls, this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    const VariantPtr owned(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name_.c_str(), 4U), nullptr, G_DBUS_CALL_FLAGS_NONE,
        5000, nullptr, nullptr));
    EXPECT_NE(owned, nullptr);
  }
  ~FakeService() {
    // A pending call finds nobody.
    g_dbus_connection_unregister_object(connection_.get(), registration_);
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  }
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  // Waits until it has answered every call that the bus had for it, and its signals are sent.
  void settle() const { base_test::settle(connection_.get()); }

  void emit(const char* path, const char* signal, GVariant* parameters) {
    emit(path, name_.c_str(), signal, parameters);
  }
  void emit(const char* path, const char* interface, const char* signal, GVariant* parameters) {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path, interface, signal, parameters,
                                  nullptr);
  }

  std::vector<std::string> calls;  // "Method(arguments)"

 private:
  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                     const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                     gpointer raw) {
    auto& self = *static_cast<FakeService*>(raw);
    gchar* text = g_variant_print(parameters, FALSE);
    self.calls.push_back(std::string(method) + text);
    g_free(text);
    GVariant* answer = self.answer_(method, self.calls.back());
    if (answer == nullptr) {
      g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed",
                                                 "it does not want to");
    } else {
      g_dbus_method_invocation_return_value(invocation, answer);
    }
  }

  ConnectionPtr connection_;
  const std::string name_;
  guint registration_ = 0;
  const Answer answer_;
};

// A bus with the program's connection to it.
class DesktopTest : public ::testing::Test {
 protected:
  static void iterateUntil(const std::function<bool()>& done) { base_test::iterateUntil(done); }
  // Waits until what the program has sent so far has arrived, and also the service's answers, if
  // the test has one.
  void settle(const FakeService* service = nullptr) {
    base_test::settle(bus_.get());
    if (service == nullptr) return;
    service->settle();
    base_test::settle(bus_.get());
  }

  bool hasOwner(const char* name) {
    const VariantPtr answer(g_dbus_connection_call_sync(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", name), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
        nullptr));
    const VariantPtr owned(g_variant_get_child_value(answer.get(), 0));
    return g_variant_get_boolean(owned.get()) != FALSE;
  }

  PrivateBus daemon_;
  ConnectionPtr bus_ = connected(daemon_.address());
};

}  // namespace base_test
