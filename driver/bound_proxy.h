// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <utility>

namespace loopback {

// An object of the daemon's that this process holds, and what listens to it: both end together.
// Thread of the connection's loop; to be gone before the connection is.
class BoundProxy {
 public:
  // Takes the proxy over; null holds nothing.
  explicit BoundProxy(void* proxy = nullptr) : proxy_(static_cast<pw_proxy*>(proxy)) {}
  ~BoundProxy() { reset(); }
  BoundProxy(const BoundProxy&) = delete;
  BoundProxy& operator=(const BoundProxy&) = delete;

  // Destroys what is held, and holds that instead.
  void reset(void* proxy = nullptr) {
    if (proxy_ != nullptr) {
      if (isListening_) spa_hook_remove(&listener_);
      pw_proxy_destroy(proxy_);
    }
    isListening_ = false;
    proxy_ = static_cast<pw_proxy*>(proxy);
  }

  // Once for each proxy. `events`: the events structure of the object's interface, which stays.
  void listen(const void* events, void* data) {
    listener_ = {};
    pw_proxy_add_object_listener(proxy_, &listener_, events, data);
    isListening_ = true;
  }
  // The same for what becomes of the proxy itself.
  void listenToProxy(const pw_proxy_events* events, void* data) {
    listener_ = {};
    pw_proxy_add_listener(proxy_, &listener_, events, data);
    isListening_ = true;
  }

  [[nodiscard]] pw_proxy* get() const { return proxy_; }
  template <typename Interface>
  [[nodiscard]] Interface* as() const {
    return reinterpret_cast<Interface*>(proxy_);
  }
  explicit operator bool() const { return proxy_ != nullptr; }

 private:
  pw_proxy* proxy_;
  spa_hook listener_{};
  bool isListening_ = false;
};

}  // namespace loopback
