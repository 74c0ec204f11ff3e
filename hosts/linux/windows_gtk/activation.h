// SPDX-License-Identifier: MIT
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <string>

namespace linux_host {

// Shows the window in front of other programs' windows and gives it the keyboard. `token` is the
// desktop's permission: an activation token or a startup id. Empty: as far as the desktop allows
// without one. Main thread.
void bringForward(GtkWindow* window, const std::string& token);

// Where only the compositor may raise a window (Wayland), hides a window that is behind others:
// when shown again it is a new window and comes in front. Main thread.
void makeNewIfBehind(GtkWindow* window);

// A window's name for portals, which it keeps as long as this object lives. Main thread.
class PortalParent {
 public:
  using Named = std::function<void(const std::string& name)>;
  // `named` is called once, now or from the main loop, unless this object goes first; with an empty
  // name where the window has none.
  PortalParent(GtkWindow* window, Named named);
  ~PortalParent();
  PortalParent(const PortalParent&) = delete;
  PortalParent& operator=(const PortalParent&) = delete;

 private:
  struct Export;
  std::shared_ptr<Export> export_;
};

}  // namespace linux_host
