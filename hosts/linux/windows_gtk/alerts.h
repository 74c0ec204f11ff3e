// SPDX-License-Identifier: MIT
#pragma once

#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// The alerts that wait for the user, each within the event that showed it. Main thread.
class WaitingAlerts {
 public:
  // `services` outlives this object.
  explicit WaitingAlerts(WindowsServices& services) : services_(services) {}

  // As platform::Alerts::runModal.
  int run(const platform::Alert& alert);
  // Brings the newest in front of all other windows.
  void raise();
  // Answers each with its last button.
  void decline();

 private:
  WindowsServices& services_;
  std::vector<GtkWindow*> waiting_;  // oldest first
};

}  // namespace linux_host
