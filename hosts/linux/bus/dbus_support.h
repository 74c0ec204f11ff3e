// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/base/glib_owners.h"

// Owners for what GLib hands out of D-Bus, and the only way to connect that cannot hang.

namespace linux_host {

struct NodeInfoUnref {
  void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
};
using ConnectionPtr = ObjectPtr<GDBusConnection>;
using NodeInfoPtr = std::unique_ptr<GDBusNodeInfo, NodeInfoUnref>;

// Longer than any desktop needs for an answer, and shorter than a user's patience.
inline constexpr int kBusTimeout_ms = 5000;

// Connects to a D-Bus address and waits for it, at most `timeout_ms`. With `isMessageBus` it
// registers with a message bus, otherwise it talks to a single peer. A connection is never
// null. One that breaks later does not end the process.
Expected<ConnectionPtr> connectTo(const std::string& address, bool isMessageBus, int timeout_ms);

// Whether the parameters of the signal with that name are of `type`, which GLib does not check. If
// not, the caller ignores the signal; this logs it once for each name. Any thread.
bool areOfType(GVariant* parameters, const char* type, const char* signal);

// Sends queued messages, waiting at most `timeout_ms`.
void flush(GDBusConnection* connection, int timeout_ms);

}  // namespace linux_host
