// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>

namespace linux_host {

// Tells Qt that its own threads are to run without GLib: in Qt 6.8 they release their GLib context
// after GLib has already forgotten the thread, and GLib complains about each. The main thread's
// loop is not affected. Qt reads this from the environment only.
inline constexpr const char* kToolkitVariable = "QT_NO_THREADED_GLIB";

// To be called at the start of main(), while there is no other thread: one could be reading the
// environment. Programs that are started later should not inherit the variable.
inline void prepareToolkitEnvironment() {
  setenv(kToolkitVariable, "1", 1);
}

}  // namespace linux_host
