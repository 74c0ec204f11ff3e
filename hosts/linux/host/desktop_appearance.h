// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// What the user asked of the desktop: by its portal where one runs or can be started, else by the
// desktop's own settings, else by GTK_THEME. `bus` may be null. Waits for a portal at most
// kPortalAnswer_ms an answer. Main thread.
Appearance desktopAppearance(GDBusConnection* bus);
inline constexpr int kPortalAnswer_ms = 500;

}  // namespace linux_host
