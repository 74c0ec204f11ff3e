// SPDX-License-Identifier: MIT
#pragma once

struct pw_context;
struct pw_core;
struct pw_loop;
struct pw_properties;

// Contexts and connections of PipeWire, one at a time: setting one up asks the C library for the
// user's name in a way that two threads must not at once. Any ordinary thread; both are then used
// on their loop's thread alone.

namespace linux_host {

enum class ContextKind {
  kControl,
  kAudio,  // asks for real-time priority for its data thread where the system allows it
};

// Null, with errno set, when the client library is not installed completely.
pw_context* makeContext(pw_loop* loop, ContextKind kind);

// Takes `properties` over; they may be null. Null, with errno set, when no daemon listens.
pw_core* connectContext(pw_context* context, pw_properties* properties);

}  // namespace linux_host
