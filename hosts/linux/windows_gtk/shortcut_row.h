// SPDX-License-Identifier: MIT
#pragma once

#include <adwaita.h>

#include <memory>
#include <string>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_gtk/activation.h"
#include "hosts/linux/windows_gtk/gtk_objects.h"

namespace linux_host {

// The row of the preferences with the key that starts and stops recordings. Visible only while the
// desktop has such keys. Main thread.
class ShortcutRow {
 public:
  // The objects of the interface file. `services` outlives the row.
  struct Parts {
    GtkWidget* group;
    GtkLabel* key;
    GtkButton* button;
  };
  ShortcutRow(const Parts& parts, WindowsServices& services);
  ~ShortcutRow();
  ShortcutRow(const ShortcutRow&) = delete;
  ShortcutRow& operator=(const ShortcutRow&) = delete;

 private:
  void show(const Shortcut& shortcut);
  // Shows or hides the row; the window follows in height.
  void setOffered(bool offered);
  void choose();
  void askDesktop(const std::string& parentName);
  void tellFailure(const std::string& reason) const;
  [[nodiscard]] GtkWindow* window() const;

  WindowsServices& services_;
  const WeakObject<GtkWidget> group_;
  const WeakObject<GtkLabel> key_;
  const WeakObject<GtkButton> button_;
  std::unique_ptr<PortalParent> parent_;  // while the desktop is being asked
  // Tells pending requests whether the row still exists.
  const std::shared_ptr<ShortcutRow*> self_ = std::make_shared<ShortcutRow*>(this);
  SignalHandlers handlers_;
};

}  // namespace linux_host
