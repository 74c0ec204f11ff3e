// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <stdexcept>

namespace test_support {

// A connection to the daemon whose audio callbacks run with real-time priority, like those of
// devices and players. For a loop that does not run yet or is locked; outlives the objects created
// on it.
class RealtimeConnection {
 public:
  explicit RealtimeConnection(pw_loop* loop)
      : context_(pw_context_new(
            loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0)),
        core_(context_ == nullptr ? nullptr : pw_context_connect(context_, nullptr, 0)) {
    if (core_ == nullptr) throw std::runtime_error("cannot connect to the daemon");
  }
  ~RealtimeConnection() { pw_context_destroy(context_); }
  RealtimeConnection(const RealtimeConnection&) = delete;
  RealtimeConnection& operator=(const RealtimeConnection&) = delete;

  [[nodiscard]] pw_core* core() const { return core_; }

 private:
  pw_context* context_;
  pw_core* core_;
};

}  // namespace test_support
