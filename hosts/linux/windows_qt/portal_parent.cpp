// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/portal_parent.h"

#include <QGuiApplication>

namespace linux_host {

PortalParent::PortalParent(const QWidget* window) {
  if (window == nullptr || !window->isVisible()) return;
  if (QGuiApplication::platformName() == u"xcb") {
    name_ = "x11:" + QString::number(window->winId(), 16).toStdString();
  } else if (isOnWayland()) {
    export_.emplace(*window);
    if (!export_->handle().empty()) name_ = "wayland:" + export_->handle();
  }
}

}  // namespace linux_host
