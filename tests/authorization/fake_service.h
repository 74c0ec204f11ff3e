// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

#include "hosts/linux/bus/dbus_support.h"

namespace authorization_test {

// A service on a test's bus. It answers from the default main loop, in which the caller waits.
class FakeService {
 public:
  // Answers with g_dbus_method_invocation_return_*; may keep the invocation and answer later.
  using Handler = std::function<void(GDBusMethodInvocation*, GVariant* arguments)>;

  // `introspection`: XML of the object's only interface. Throws when the bus refuses the name.
  FakeService(const std::string& address, const std::string& name, const std::string& object,
              const std::string& introspection, Handler handler);
  ~FakeService();
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  // Sends a signal of the object's to everybody on the bus.
  void emit(const char* signal, GVariant* arguments);

 private:
  const std::string name_;
  const std::string object_;
  linux_host::ConnectionPtr connection_;
  GDBusNodeInfo* node_ = nullptr;
  guint registration_ = 0;
  Handler handler_;
};

}  // namespace authorization_test
