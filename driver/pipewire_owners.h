// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <memory>
#include <utility>

// What holds PipeWire's objects: each is destroyed with its owner, after what listens to it. A
// class declares its owners in the order of their making: loop, context, core, registry, other
// proxies, stream; it then takes them down in the right one. All of them on their loop's thread.

namespace loopback {

template <auto kDestroy>
struct PipeWireDeleter {
  template <typename Handle>
  void operator()(Handle* handle) const {
    kDestroy(handle);
  }
};
using LoopPtr = std::unique_ptr<pw_loop, PipeWireDeleter<pw_loop_destroy>>;
using MainLoopPtr = std::unique_ptr<pw_main_loop, PipeWireDeleter<pw_main_loop_destroy>>;
using ContextPtr = std::unique_ptr<pw_context, PipeWireDeleter<pw_context_destroy>>;
using PropertiesPtr = std::unique_ptr<pw_properties, PipeWireDeleter<pw_properties_free>>;

// An object and the one listener to it.
template <typename Handle, auto kDestroy>
class Listened {
 public:
  // Takes the handle over; null holds nothing.
  explicit Listened(Handle* handle = nullptr) : handle_(handle) {}
  ~Listened() { reset(); }
  Listened(const Listened&) = delete;
  Listened& operator=(const Listened&) = delete;

  // Destroys what is held, and holds that instead.
  void reset(Handle* handle = nullptr) {
    if (handle_ != nullptr) {
      if (std::exchange(isListening_, false)) spa_hook_remove(&listener_);
      // A stream's last cycle, which may still ask for the handle, is over when this returns.
      kDestroy(handle_);
    }
    handle_ = handle;
  }
  [[nodiscard]] Handle* get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 protected:
  // For the one call that adds the listener; once for each handle.
  spa_hook* newListener() {
    listener_ = {};
    isListening_ = true;
    return &listener_;
  }

 private:
  Handle* handle_;
  spa_hook listener_{};
  bool isListening_ = false;
};

// A connection to the daemon.
class CorePtr : public Listened<pw_core, pw_core_disconnect> {
 public:
  using Listened::Listened;
  void listen(const pw_core_events* events, void* data) {
    pw_core_add_listener(get(), newListener(), events, data);
  }
};

class StreamPtr : public Listened<pw_stream, pw_stream_destroy> {
 public:
  using Listened::Listened;
  void listen(const pw_stream_events* events, void* data) {
    pw_stream_add_listener(get(), newListener(), events, data);
  }
};

// An object of the daemon's that this process holds: the registry, a node, a client, metadata. To
// be gone before the connection is.
class BoundProxy : public Listened<pw_proxy, pw_proxy_destroy> {
 public:
  explicit BoundProxy(void* proxy = nullptr) : Listened(static_cast<pw_proxy*>(proxy)) {}
  void reset(void* proxy = nullptr) { Listened::reset(static_cast<pw_proxy*>(proxy)); }

  // `events`: the events structure of the object's interface, which stays.
  void listen(const void* events, void* data) {
    pw_proxy_add_object_listener(get(), newListener(), events, data);
  }
  // The same for what becomes of the proxy itself.
  void listenToProxy(const pw_proxy_events* events, void* data) {
    pw_proxy_add_listener(get(), newListener(), events, data);
  }
  template <typename Interface>
  [[nodiscard]] Interface* as() const {
    return reinterpret_cast<Interface*>(get());
  }
};

// Something that a loop waits for: a timer, an event. To be gone before the loop is.
class LoopSource {
 public:
  LoopSource() = default;
  // Takes the source over; null holds nothing.
  LoopSource(pw_loop* loop, spa_source* source) : loop_(loop), source_(source) {}
  ~LoopSource() { reset(); }
  LoopSource(LoopSource&& other) noexcept
      : loop_(other.loop_), source_(std::exchange(other.source_, nullptr)) {}
  LoopSource& operator=(LoopSource&& other) noexcept {
    std::swap(loop_, other.loop_);
    std::swap(source_, other.source_);
    return *this;
  }

  void reset() {
    if (source_ != nullptr) pw_loop_destroy_source(loop_, std::exchange(source_, nullptr));
  }
  // For a timer: goes off once, after that time.
  void startTimer(timespec delay) { pw_loop_update_timer(loop_, source_, &delay, nullptr, false); }
  [[nodiscard]] spa_source* get() const { return source_; }
  explicit operator bool() const { return source_ != nullptr; }

 private:
  pw_loop* loop_ = nullptr;
  spa_source* source_ = nullptr;
};

}  // namespace loopback
