#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace loopback {

// The loopback device itself: a sink of the daemon's that lives as long as this object's connection
// keeps it. Loop thread.
class LoopbackSink {
 public:
  // `onLost` is called when the daemon refuses or removes the device; it is hidden by then.
  LoopbackSink(std::string version, std::function<void()> onLost);
  ~LoopbackSink() { hide(); }
  LoopbackSink(const LoopbackSink&) = delete;
  LoopbackSink& operator=(const LoopbackSink&) = delete;

  // It runs at the graph's own rate. Returns false when the request could not even be sent.
  bool show(pw_core* core, const std::vector<std::string>& channels);
  void hide();
  [[nodiscard]] bool isShown() const { return proxy_ != nullptr; }
  // The daemon's number of the shown device; SPA_ID_INVALID before it has one.
  [[nodiscard]] std::uint32_t node() const { return pw_proxy_get_bound_id(proxy_); }

 private:
  void lost();

  std::string version_;
  std::function<void()> onLost_;
  pw_proxy* proxy_ = nullptr;
  spa_hook listener_{};
};

// "Computer (loopback)" in the language of the environment, as far as the driver speaks it.
[[nodiscard]] std::string localizedDeviceName();

}  // namespace loopback
