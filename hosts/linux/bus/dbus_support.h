// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

// Owners for GLib's objects, and the one way to connect that cannot hang.

namespace linux_host {

struct ObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
struct VariantUnref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
struct ErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
using ConnectionPtr = std::unique_ptr<GDBusConnection, ObjectUnref>;
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;

// Longer than any desktop takes for an answer, shorter than anybody's patience.
inline constexpr int kBusTimeout_ms = 5000;

// Connects to a D-Bus address and waits for it, at most `timeout_ms`. With `isMessageBus` the
// connection greets a bus, otherwise it talks to one peer. Null with *error set on failure. A
// connection that breaks later does not end the process.
ConnectionPtr connectTo(const std::string& address, bool isMessageBus, int timeout_ms,
                        std::string* error);

// Whether what came with the signal of that name is of `type`: GLib does not look. What is not is
// to be ignored, which the log says once for each name. Any thread.
bool areOfType(GVariant* parameters, const char* type, const char* signal);

// Sends what is queued, waiting at most `timeout_ms`.
void flush(GDBusConnection* connection, int timeout_ms);

}  // namespace linux_host
