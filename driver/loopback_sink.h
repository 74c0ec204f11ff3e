// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "driver/bound_proxy.h"

namespace loopback {

// The loopback device itself: a sink of the daemon's that lives as long as this object's connection
// keeps it. Loop thread.
class LoopbackSink {
 public:
  struct Callbacks {
    // The daemon has made it: it is in the registry.
    std::function<void()> onMade;
    // The daemon refuses it or has removed it; it is hidden by then.
    std::function<void()> onLost;
  };

  LoopbackSink(std::string version, Callbacks callbacks);
  LoopbackSink(const LoopbackSink&) = delete;
  LoopbackSink& operator=(const LoopbackSink&) = delete;

  // It runs at the graph's own rate. Returns false when the request could not even be sent.
  bool show(pw_core* core, const std::vector<std::string>& channels);
  void hide() { proxy_.reset(); }
  // From show() to hide().
  [[nodiscard]] bool exists() const { return static_cast<bool>(proxy_); }
  // The daemon's number of the device; SPA_ID_INVALID before it has one. Only while it exists.
  [[nodiscard]] std::uint32_t node() const { return pw_proxy_get_bound_id(proxy_.get()); }

 private:
  void lost();

  std::string version_;
  Callbacks callbacks_;
  BoundProxy proxy_;
};

// "Computer (loopback)" in the language of the environment, as far as the driver speaks it.
[[nodiscard]] std::string localizedDeviceName();

}  // namespace loopback
