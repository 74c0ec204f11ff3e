// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "driver/pipewire_owners.h"

namespace loopback {

// The loopback device itself: a sink in the daemon that lives as long as this object's connection.
// Loop thread.
class LoopbackSink {
 public:
  struct Callbacks {
    // The daemon has created it: it is in the registry.
    std::function<void()> onMade;
    // The daemon refuses it or has removed it; by then it is hidden.
    std::function<void()> onLost;
  };

  LoopbackSink(std::string version, Callbacks callbacks);
  LoopbackSink(const LoopbackSink&) = delete;
  LoopbackSink& operator=(const LoopbackSink&) = delete;

  // It runs at the graph's rate. Returns false when the request could not be sent.
  bool show(pw_core* core, const std::vector<std::string>& channels);
  void hide() { proxy_.reset(); }
  // From show() to hide().
  [[nodiscard]] bool exists() const { return static_cast<bool>(proxy_); }
  // The daemon's id of the device; SPA_ID_INVALID before it has one. Call only while it exists.
  [[nodiscard]] std::uint32_t node() const { return pw_proxy_get_bound_id(proxy_.get()); }

 private:
  void lost();

  std::string version_;
  Callbacks callbacks_;
  BoundProxy proxy_;
};

// "Computer (loopback)" in the environment's language, if the driver has a translation.
[[nodiscard]] std::string localizedDeviceName();

}  // namespace loopback
