// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// The user's appearance settings: from the portal if one runs or can be started, else from the
// desktop's own settings, else from GTK_THEME. `bus` may be null. Waits at most kPortalAnswer_ms
// for each answer of the portal. Main thread.
Appearance desktopAppearance(GDBusConnection* bus);
inline constexpr int kPortalAnswer_ms = 500;

}  // namespace linux_host
