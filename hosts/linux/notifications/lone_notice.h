// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>

#include "platform/foundation.h"

namespace linux_host {

// Shows a text as a notification, from a process without a main loop that ends right afterwards.
// Returns when the notification server has it or has not answered in time (kBusTimeout_ms for each
// of two calls); immediately if `bus` is null. Main thread.
void showLoneNotice(GDBusConnection* bus, const platform::Bundle& bundle, const std::string& text);

}  // namespace linux_host
