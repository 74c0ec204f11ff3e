// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <utility>

namespace loopback {

// Owns a proxy of one of the daemon's objects together with its listeners; both end together.
// Thread of the connection's loop; must be destroyed before the connection.
class BoundProxy {
 public:
  // Takes ownership of the proxy, which may be null.
  explicit BoundProxy(void* proxy = nullptr) : proxy_(static_cast<pw_proxy*>(proxy)) {}
  ~BoundProxy() { reset(); }
  BoundProxy(const BoundProxy&) = delete;
  BoundProxy& operator=(const BoundProxy&) = delete;

  // Destroys the current proxy and takes ownership of another.
  void reset(void* proxy = nullptr) {
    if (proxy_ != nullptr) {
      if (isListening_) spa_hook_remove(&listener_);
      pw_proxy_destroy(proxy_);
    }
    isListening_ = false;
    proxy_ = static_cast<pw_proxy*>(proxy);
  }

  // Call once for each proxy. `events`: the events structure of the object's interface, which must
  // stay valid.
  void listen(const void* events, void* data) {
    listener_ = {};
    pw_proxy_add_object_listener(proxy_, &listener_, events, data);
    isListening_ = true;
  }
  // The same for events of the proxy itself.
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
