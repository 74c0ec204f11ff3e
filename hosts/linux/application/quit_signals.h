// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <array>

#include "hosts/linux/application/linux_application.h"

namespace linux_host {

// SIGTERM, SIGINT and SIGHUP ask the application to terminate, which saves a recording. A second
// signal, while the notification is still shown, ends it at once, with all files closed. Handled on
// the main loop. This object is destroyed when the process ends; the signals are ignored from then
// on. The application outlives it.
class QuitSignals {
 public:
  explicit QuitSignals(LinuxApplication& application);
  ~QuitSignals();
  QuitSignals(const QuitSignals&) = delete;
  QuitSignals& operator=(const QuitSignals&) = delete;

 private:
  static gboolean onSignal(gpointer self);

  LinuxApplication& application_;
  bool asked_ = false;
  std::array<guint, 3> sources_;
};

}  // namespace linux_host
