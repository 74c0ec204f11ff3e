// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/wayland.h"

#include <qpa/qplatformnativeinterface.h>
#include <wayland-client.h>
#include <xdg-activation-v1-client-protocol.h>
#include <xdg-foreign-unstable-v2-client-protocol.h>

#include <QGuiApplication>
#include <QWindow>
#include <cstring>

namespace linux_host {
namespace {

template <auto kDestroy>
struct Destroy {
  template <typename Object>
  void operator()(Object* object) const {
    kDestroy(object);
  }
};

using Queue = std::unique_ptr<wl_event_queue, Destroy<wl_event_queue_destroy>>;
using Registry = std::unique_ptr<wl_registry, Destroy<wl_registry_destroy>>;
using Activation = std::unique_ptr<xdg_activation_v1, Destroy<xdg_activation_v1_destroy>>;
using Exporter = std::unique_ptr<zxdg_exporter_v2, Destroy<zxdg_exporter_v2_destroy>>;
using Exported = std::unique_ptr<zxdg_exported_v2, Destroy<zxdg_exported_v2_destroy>>;

wl_display* displayOfQt() {
  return static_cast<wl_display*>(
      QGuiApplication::platformNativeInterface()->nativeResourceForIntegration("wl_display"));
}

wl_surface* surfaceOf(const QWidget& window) {
  return static_cast<wl_surface*>(
      QGuiApplication::platformNativeInterface()->nativeResourceForWindow("surface",
                                                                          window.windowHandle()));
}

// The compositor's extensions that this file uses, on Qt's connection but with a queue of its own,
// so that Qt's events stay where they are.
class Extensions {
 public:
  explicit Extensions(wl_display* display)
      : display_(display), queue_(wl_display_create_queue(display)) {
    auto* wrapper = static_cast<wl_display*>(wl_proxy_create_wrapper(display));
    wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(wrapper), queue_.get());
    registry_.reset(wl_display_get_registry(wrapper));
    wl_proxy_wrapper_destroy(wrapper);
    static constexpr wl_registry_listener kListener{onGlobal, [](void*, wl_registry*, uint32_t) {}};
    wl_registry_add_listener(registry_.get(), &kListener, this);
    await();
  }

  // Until the compositor has dealt with every request so far, and its answers have been taken.
  void await() { wl_display_roundtrip_queue(display_, queue_.get()); }
  [[nodiscard]] xdg_activation_v1* activation() const { return activation_.get(); }
  [[nodiscard]] zxdg_exporter_v2* exporter() const { return exporter_.get(); }

 private:
  static void onGlobal(void* data, wl_registry* registry, uint32_t name, const char* interface,
                       uint32_t) {
    auto* self = static_cast<Extensions*>(data);
    const auto bind = [&](const wl_interface& of) {
      return std::strcmp(interface, of.name) == 0 ? wl_registry_bind(registry, name, &of, 1)
                                                  : nullptr;
    };
    if (void* bound = bind(xdg_activation_v1_interface)) {
      self->activation_.reset(static_cast<xdg_activation_v1*>(bound));
    }
    if (void* bound = bind(zxdg_exporter_v2_interface)) {
      self->exporter_.reset(static_cast<zxdg_exporter_v2*>(bound));
    }
  }

  wl_display* const display_;
  const Queue queue_;  // outlives what is on it
  Registry registry_;
  Activation activation_;
  Exporter exporter_;
};

}  // namespace

bool isOnWayland() {
  return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

bool activateOnWayland(const QWidget& window, const std::string& token) {
  wl_surface* const surface = surfaceOf(window);
  if (surface == nullptr) return false;
  Extensions extensions(displayOfQt());
  if (extensions.activation() == nullptr) return false;
  xdg_activation_v1_activate(extensions.activation(), token.c_str(), surface);
  extensions.await();
  return true;
}

struct WaylandExport::Connection {
  Extensions extensions{displayOfQt()};
  Exported exported;
};

WaylandExport::WaylandExport(const QWidget& window) {
  wl_surface* const surface = surfaceOf(window);
  if (surface == nullptr) return;
  connection_ = std::make_unique<Connection>();
  if (connection_->extensions.exporter() == nullptr) return;
  connection_->exported.reset(
      zxdg_exporter_v2_export_toplevel(connection_->extensions.exporter(), surface));
  static constexpr zxdg_exported_v2_listener kListener{
      [](void* handle, zxdg_exported_v2*, const char* given) {
        *static_cast<std::string*>(handle) = given;
      }};
  zxdg_exported_v2_add_listener(connection_->exported.get(), &kListener, &handle_);
  connection_->extensions.await();
}

WaylandExport::~WaylandExport() = default;

}  // namespace linux_host
