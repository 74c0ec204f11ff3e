// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <memory>
#include <utility>

// Owners of PipeWire's objects: each object is destroyed with its owner, after its listener. A
// class declares its owners in the order of creation: loop, context, core, registry, other proxies,
// stream. They are then destroyed in the right order. All on their loop's thread.

namespace loopback {

template <auto kDestroy>
struct PipeWireDeleter {
  template <typename Handle>
  void operator()(Handle* handle) const {
    kDestroy(handle);
  }
};
using LoopPtr = std::unique_ptr<pw_loop, PipeWireDeleter<pw_loop_destroy>>;
using ContextPtr = std::unique_ptr<pw_context, PipeWireDeleter<pw_context_destroy>>;
using PropertiesPtr = std::unique_ptr<pw_properties, PipeWireDeleter<pw_properties_free>>;

// An object and its only listener.
template <typename Handle, auto kDestroy>
class Listened {
 public:
  // Takes ownership of the handle, which may be null.
  explicit Listened(Handle* handle = nullptr) : handle_(handle) {}
  ~Listened() { reset(); }
  Listened(const Listened&) = delete;
  Listened& operator=(const Listened&) = delete;

  // Destroys the current handle and takes ownership of another.
  void reset(Handle* handle = nullptr) {
    if (handle_ != nullptr) {
      if (std::exchange(isListening_, false)) spa_hook_remove(&listener_);
      // When this returns, a stream's last cycle, which may still use the handle, is over.
      kDestroy(handle_);
    }
    handle_ = handle;
  }
  [[nodiscard]] Handle* get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 protected:
  // For the call that adds the listener; once for each handle.
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

// A proxy of one of the daemon's objects: the registry, a node, a client, metadata. Must be
// destroyed before the connection.
class BoundProxy : public Listened<pw_proxy, pw_proxy_destroy> {
 public:
  explicit BoundProxy(void* proxy = nullptr) : Listened(static_cast<pw_proxy*>(proxy)) {}
  void reset(void* proxy = nullptr) { Listened::reset(static_cast<pw_proxy*>(proxy)); }

  // `events`: the events structure of the object's interface, which must stay valid.
  void listen(const void* events, void* data) {
    pw_proxy_add_object_listener(get(), newListener(), events, data);
  }
  // The same for events of the proxy itself.
  void listenToProxy(const pw_proxy_events* events, void* data) {
    pw_proxy_add_listener(get(), newListener(), events, data);
  }
  template <typename Interface>
  [[nodiscard]] Interface* as() const {
    return reinterpret_cast<Interface*>(get());
  }
};

// A source of a loop: a timer or an event. Must be destroyed before the loop.
class LoopSource {
 public:
  LoopSource() = default;
  // Takes ownership of the source, which may be null.
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
  // For a timer: fires once after the delay.
  void startTimer(timespec delay) { pw_loop_update_timer(loop_, source_, &delay, nullptr, false); }
  [[nodiscard]] spa_source* get() const { return source_; }
  explicit operator bool() const { return source_ != nullptr; }

 private:
  pw_loop* loop_ = nullptr;
  spa_source* source_ = nullptr;
};

}  // namespace loopback
