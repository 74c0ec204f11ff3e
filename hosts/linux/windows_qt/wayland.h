// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <memory>
#include <string>

// What Qt's own connection to a Wayland compositor offers no call for. Main thread. Each call waits
// for the compositor's answer.

namespace linux_host {

bool isOnWayland();

// Brings the shown window forward with the desktop's permission. False where the compositor does
// not take such tokens.
bool activateOnWayland(const QWidget& window, const std::string& token);

// A window's name for other programs' dialogs, which is valid as long as this object lives.
class WaylandExport {
 public:
  // `window` is shown. The name is empty where the compositor gives none.
  explicit WaylandExport(const QWidget& window);
  ~WaylandExport();
  WaylandExport(const WaylandExport&) = delete;
  WaylandExport& operator=(const WaylandExport&) = delete;

  [[nodiscard]] const std::string& handle() const { return handle_; }

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
  std::string handle_;
};

}  // namespace linux_host
