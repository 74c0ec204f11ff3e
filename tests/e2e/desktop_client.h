// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace e2e {

// Another program of the desktop: talks to the tool over the session bus and receives its signals.
// Test thread, on the default main context.
class DesktopClient {
 public:
  explicit DesktopClient(const std::string& busAddress);
  ~DesktopClient();
  DesktopClient(const DesktopClient&) = delete;
  DesktopClient& operator=(const DesktopClient&) = delete;

  // Each returns an error text, empty on success.
  std::string activate();
  std::string open(const std::vector<std::string>& uris);
  std::string action(const std::string& name);

  // Whether a program owns the tool's name on the bus.
  bool isToolOnBus();
  // The tool's status; null when it does not answer.
  nlohmann::json status();

  // A property of the tool's data, as GVariant text such as "1" or "'MenuIcon'".
  std::string toolData(const std::string& name);
  std::string setToolData(const std::string& name, const std::string& text);
  // All values of a property announced by change signals so far, oldest first, in the same form.
  std::vector<std::string> announced(const std::string& name);

 private:
  // Takes ownership of the arguments. Null and *error on failure.
  GVariant* call(const char* interface, const char* method, GVariant* arguments,
                 std::string* error);
  std::string callForError(const char* interface, const char* method, GVariant* arguments);
  static void onPropertiesChanged(GDBusConnection* connection, const gchar* sender,
                                  const gchar* path, const gchar* interface, const gchar* signal,
                                  GVariant* parameters, gpointer self);

  GDBusConnection* connection_ = nullptr;
  guint subscription_ = 0;
  std::map<std::string, std::vector<std::string>> announced_;
};

}  // namespace e2e
