// SPDX-License-Identifier: MIT
#pragma once

#include "driver/pipewire_owners.h"

struct pw_core;
struct pw_loop;
struct pw_properties;

// Creates PipeWire contexts and connections, one at a time: their set-up asks the C library for the
// user's name with a function that is not thread-safe. Any ordinary thread; both are then used only
// on their loop's thread.

namespace linux_host {

enum class ContextKind {
  kControl,
  kAudio,  // asks for real-time priority for its data thread where the system allows it
};

// Null, with errno set, when the client library is not installed completely, or the system has no
// descriptor or thread left. For kAudio the data thread runs already.
loopback::ContextPtr makeContext(pw_loop* loop, ContextKind kind);

// Takes ownership of `properties`, which may be null. Null, with errno set, when no daemon listens.
pw_core* connectContext(pw_context* context, pw_properties* properties);

}  // namespace linux_host
