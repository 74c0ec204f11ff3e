// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/activation.h"

#ifdef GDK_WINDOWING_WAYLAND
#include <gdk/wayland/gdkwayland.h>
#endif
#ifdef GDK_WINDOWING_X11
#include <gdk/x11/gdkx.h>
#endif

#include <cstdio>
#include <utility>

#include "hosts/linux/windows_gtk/gtk_objects.h"

namespace linux_host {
namespace {

GdkSurface* surfaceOf(GtkWindow* window) {
  return gtk_native_get_surface(GTK_NATIVE(window));
}

bool isOnWayland(GtkWindow* window) {
#ifdef GDK_WINDOWING_WAYLAND
  return GDK_IS_WAYLAND_DISPLAY(gtk_widget_get_display(GTK_WIDGET(window))) != FALSE;
#else
  (void)window;
  return false;
#endif
}

// Set until the event is over: the window is not on the screen yet, and will be in front.
constexpr const char* kJustShown = "record-audio-just-shown";

// The window is not kept: GTK does not expect one that is gone to outlive its parent.
void noteShown(GtkWindow* window) {
  g_object_set_data(G_OBJECT(window), kJustShown, window);
  using Weak = WeakObject<GtkWindow>;
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      [](gpointer weak) -> gboolean {
        GtkWindow* shown = static_cast<Weak*>(weak)->get();
        if (shown != nullptr) g_object_set_data(G_OBJECT(shown), kJustShown, nullptr);
        return G_SOURCE_REMOVE;
      },
      new Weak(window), [](gpointer weak) { delete static_cast<Weak*>(weak); });
}

}  // namespace

void makeNewIfBehind(GtkWindow* window) {
  const bool isBehind = gtk_widget_get_visible(GTK_WIDGET(window)) != FALSE &&
                        gtk_window_is_active(window) == FALSE &&
                        g_object_get_data(G_OBJECT(window), kJustShown) == nullptr;
  if (isBehind && isOnWayland(window)) gtk_widget_set_visible(GTK_WIDGET(window), FALSE);
}

void bringForward(GtkWindow* window, const std::string& token) {
  if (token.empty()) {
    makeNewIfBehind(window);
  } else {
    gtk_window_set_startup_id(window, token.c_str());
  }
  if (gtk_widget_get_visible(GTK_WIDGET(window)) == FALSE) noteShown(window);
  gtk_window_unminimize(window);
  gtk_window_present(window);
}

struct PortalParent::Export {
  Export(GdkSurface* exported, Named call) : surface(exported), named(std::move(call)) {}

  void tell(const std::string& name) {
    if (const Named call = std::exchange(named, nullptr)) call(name);
  }

  const WeakObject<GdkSurface> surface;
  Named named;
  bool isExported = false;
};

PortalParent::PortalParent(GtkWindow* window, Named named)
    : export_(std::make_shared<Export>(window != nullptr ? surfaceOf(window) : nullptr,
                                       std::move(named))) {
  // `named` may destroy this object.
  const auto kept = export_;
  GdkSurface* surface = kept->surface.get();
#ifdef GDK_WINDOWING_X11
  if (surface != nullptr && GDK_IS_X11_SURFACE(surface)) {
    char name[32];
    std::snprintf(name, sizeof name, "x11:%lx",
                  static_cast<unsigned long>(gdk_x11_surface_get_xid(surface)));
    kept->tell(name);
    return;
  }
#endif
#ifdef GDK_WINDOWING_WAYLAND
  if (surface != nullptr && GDK_IS_WAYLAND_TOPLEVEL(surface)) {
    using Weak = std::weak_ptr<Export>;
    kept->isExported =
        gdk_wayland_toplevel_export_handle(
            GDK_TOPLEVEL(surface),
            [](GdkToplevel*, const char* handle, gpointer weak) {
              if (const auto waiting = static_cast<Weak*>(weak)->lock()) {
                waiting->tell(handle != nullptr ? std::string("wayland:") + handle : "");
              }
            },
            new Weak(kept), [](gpointer weak) { delete static_cast<Weak*>(weak); }) != FALSE;
    if (kept->isExported) return;
  }
#endif
  kept->tell("");
}

PortalParent::~PortalParent() {
  export_->named = nullptr;
#ifdef GDK_WINDOWING_WAYLAND
  GdkSurface* surface = export_->surface.get();
  if (export_->isExported && surface != nullptr) {
    gdk_wayland_toplevel_unexport_handle(GDK_TOPLEVEL(surface));
  }
#endif
}

}  // namespace linux_host
