// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/interface_window.h"

#include "hosts/linux/windows_gtk/activation.h"

namespace linux_host {
namespace {

// GDK_TOPLEVEL_STATE_SUSPENDED, which GTK's headers name since 4.12. Earlier releases never set it.
constexpr guint kSuspended = 1U << 16U;

}  // namespace

InterfaceWindow::InterfaceWindow(GtkWindow* window, const Parts& parts, WindowsServices& services,
                                 std::function<void()> onDone)
    : window_(window), parts_(parts), services_(services) {
  handlers_.intercept(window_, "close-request", std::move(onDone));
  handlers_.connect(window_, "notify::is-active", [this] {
    if (gtk_window_is_active(window_) == FALSE) return;
    if (const auto delegate = delegate_.lock()) delegate->windowDidBecomeKey();
  });
  handlers_.connect(window_, "notify::visible", [this] { tellOcclusion(); });
  handlers_.connect(window_, "realize", [this] { followSurface(); });
}

InterfaceWindow::~InterfaceWindow() {
  if (focusing_ != 0) g_source_remove(focusing_);
  delegate_.reset();
  gtk_window_destroy(window_);
}

void InterfaceWindow::tellOcclusion() {
  wasOccluded_ = isOccluded();
  if (const auto delegate = delegate_.lock()) delegate->windowDidChangeOcclusionState();
}

void InterfaceWindow::followSurface() {
  handlers_.connect(gtk_native_get_surface(GTK_NATIVE(window_)), "notify::state", [this] {
    if (isOccluded() != wasOccluded_) tellOcclusion();
  });
}

void InterfaceWindow::setDelegate(std::weak_ptr<platform::WindowDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void InterfaceWindow::setTitleBarButtons(bool, bool close) {
  if (parts_.header == nullptr) return;
  adw_header_bar_set_show_start_title_buttons(parts_.header, close ? TRUE : FALSE);
  adw_header_bar_set_show_end_title_buttons(parts_.header, close ? TRUE : FALSE);
}

bool InterfaceWindow::isVisible() const {
  return gtk_widget_get_visible(GTK_WIDGET(window_)) != FALSE;
}

bool InterfaceWindow::isOccluded() const {
  GdkSurface* surface = gtk_native_get_surface(GTK_NATIVE(window_));
  if (surface == nullptr || !isVisible()) return false;
  const guint state = gdk_toplevel_get_state(GDK_TOPLEVEL(surface));
  return (state & (GDK_TOPLEVEL_STATE_MINIMIZED | kSuspended)) != 0;
}

void InterfaceWindow::comeForward() {
  const bool isOpening = !isVisible();
  bringForward(window_, services_.takeActivationToken());
  if (isOpening && focusing_ == 0) focusing_ = g_idle_add(giveFocus, this);
}

// GTK begins with the header bar. A menu cannot have the keyboard before it has its items, which it
// gets in the loop's next round.
gboolean InterfaceWindow::giveFocus(gpointer window) {
  auto& self = *static_cast<InterfaceWindow*>(window);
  self.focusing_ = 0;
  if (self.parts_.firstControl != nullptr) gtk_widget_grab_focus(self.parts_.firstControl);
  return G_SOURCE_REMOVE;
}

void InterfaceWindow::makeKeyAndOrderFront() {
  comeForward();
}

void InterfaceWindow::orderFront() {
  comeForward();
}

void InterfaceWindow::orderFrontRegardless() {
  comeForward();
}

void InterfaceWindow::orderOut() {
  gtk_widget_set_visible(GTK_WIDGET(window_), FALSE);
}

}  // namespace linux_host
