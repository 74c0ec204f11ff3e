// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/window_exposure.h"

#include <xcb/xcb.h>

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <cstdlib>
#include <memory>

#include "hosts/linux/windows_qt/wayland.h"

namespace linux_host {
namespace {

// How soon a window that shows nothing new notices that it is covered.
constexpr int kNextPicture_ms = 1000;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

// Null on other platforms, some of which have a connection that is of no use.
xcb_connection_t* serverOfQt() {
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return x11 != nullptr && QGuiApplication::platformName() == u"xcb" ? x11->connection() : nullptr;
}

// Asks the X server to report how much of the window can be seen, besides what Qt wants to know.
void reportVisibility(xcb_connection_t* server, xcb_window_t window) {
  const std::unique_ptr<xcb_get_window_attributes_reply_t, Free> attributes(
      xcb_get_window_attributes_reply(server, xcb_get_window_attributes(server, window), nullptr));
  if (attributes == nullptr) return;
  const std::uint32_t events = attributes->your_event_mask | XCB_EVENT_MASK_VISIBILITY_CHANGE;
  xcb_change_window_attributes(server, window, XCB_CW_EVENT_MASK, &events);
}

}  // namespace

WindowExposure::WindowExposure(QWidget& window) : window_(window) {
  window_.installEventFilter(this);
  QCoreApplication::instance()->installNativeEventFilter(this);
  nextPicture_.setInterval(kNextPicture_ms);
  nextPicture_.setTimerType(Qt::VeryCoarseTimer);
  connect(&nextPicture_, &QTimer::timeout, this, [this] { window_.update(0, 0, 1, 1); });
}

WindowExposure::~WindowExposure() {
  if (QCoreApplication::instance() != nullptr) {
    QCoreApplication::instance()->removeNativeEventFilter(this);
  }
}

bool WindowExposure::eventFilter(QObject* watched, QEvent* event) {
  // A window that is minimised or covered gets spontaneous ones, too.
  if (watched == &window_ && !event->spontaneous()) {
    if (event->type() == QEvent::Show) begin();
    if (event->type() == QEvent::Hide) end();
  }
  if (event->type() == QEvent::Expose || event->type() == QEvent::WindowStateChange) update();
  return false;
}

void WindowExposure::begin() {
  if (handle_ != window_.windowHandle()) {
    handle_ = window_.windowHandle();
    if (handle_ != nullptr) handle_->installEventFilter(this);
  }
  if (xcb_connection_t* server = serverOfQt()) {
    reportVisibility(server, static_cast<xcb_window_t>(window_.winId()));
  }
  if (isOnWayland()) nextPicture_.start();
}

void WindowExposure::end() {
  nextPicture_.stop();
  wasExposed_ = false;
  isCovered_ = false;
  isOccluded_ = false;
}

bool WindowExposure::nativeEventFilter(const QByteArray& type, void* message, qintptr*) {
  if (type != "xcb_generic_event_t" || handle_ == nullptr) return false;
  constexpr std::uint8_t kSentByClient = 0x80;
  const auto* event = static_cast<const xcb_generic_event_t*>(message);
  if ((event->response_type & ~kSentByClient) != XCB_VISIBILITY_NOTIFY) return false;
  const auto* visibility = static_cast<const xcb_visibility_notify_event_t*>(message);
  if (visibility->window != handle_->winId()) return false;
  isCovered_ = visibility->state == XCB_VISIBILITY_FULLY_OBSCURED;
  update();
  return false;
}

void WindowExposure::update() {
  if (handle_ == nullptr || window_.isHidden()) return;
  const bool isExposed = handle_->isExposed();
  wasExposed_ = wasExposed_ || isExposed;
  const bool isOccluded = window_.isMinimized() || isCovered_ || (wasExposed_ && !isExposed);
  if (isOccluded == isOccluded_) return;
  isOccluded_ = isOccluded;
  if (isOccluded) {
    nextPicture_.stop();
  } else if (isOnWayland()) {
    nextPicture_.start();
  }
  emit changed();
}

}  // namespace linux_host
