// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace e2e {

// The menu of the tool's tray icon, used over the bus, as a tray does. Test thread.
class TrayMenu {
 public:
  // Of the program with that process number.
  TrayMenu(const std::string& busAddress, pid_t tool);
  ~TrayMenu();
  TrayMenu(const TrayMenu&) = delete;
  TrayMenu& operator=(const TrayMenu&) = delete;

  // The texts of the enabled lines, from the top; empty when nobody answers.
  [[nodiscard]] std::vector<std::string> offered() const;
  // False when the line is not offered.
  [[nodiscard]] bool choose(const std::string& text) const;

 private:
  // Null when nobody answers. The caller owns the answer.
  GVariant* call(const char* path, const char* interface, const char* method,
                 GVariant* arguments) const;
  // The menu's object; empty when nobody answers.
  [[nodiscard]] std::string path() const;
  // Numbers and texts, from the top.
  [[nodiscard]] std::vector<std::pair<int, std::string>> lines() const;

  GDBusConnection* connection_ = nullptr;
  const std::string item_;
};

}  // namespace e2e
