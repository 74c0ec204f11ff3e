// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <optional>
#include <string>

#include "hosts/linux/windows_qt/wayland.h"

namespace linux_host {

// A shown window as the parent of a portal's dialog. It has its name as long as this object lives.
// Main thread.
class PortalParent {
 public:
  // `window` may be null.
  explicit PortalParent(const QWidget* window);

  // The window's name for portals; empty where it has none.
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::optional<WaylandExport> export_;
  std::string name_;
};

}  // namespace linux_host
