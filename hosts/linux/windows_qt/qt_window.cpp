// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/qt_window.h"

#include <QCloseEvent>
#include <QShortcut>
#include <QTimer>

#include "hosts/linux/windows_qt/activation.h"

namespace linux_host {

WindowWidget::WindowWidget(QWidget* parent) : QDialog(parent) {
  connect(new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_W), this), &QShortcut::activated, this,
          &WindowWidget::doneWanted);
}

bool WindowWidget::event(QEvent* event) {
  const bool handled = QDialog::event(event);
  if (event->type() == QEvent::WindowActivate) emit becameKey();
  return handled;
}

void WindowWidget::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  if (!event->spontaneous()) emit visibilityChanged();
}

void WindowWidget::hideEvent(QHideEvent* event) {
  QDialog::hideEvent(event);
  if (!event->spontaneous()) emit visibilityChanged();
}

void WindowWidget::closeEvent(QCloseEvent* event) {
  event->ignore();
  emit doneWanted();
}

void WindowWidget::changeEvent(QEvent* event) {
  QDialog::changeEvent(event);
  const bool isOfLooks = event->type() == QEvent::FontChange ||
                         event->type() == QEvent::StyleChange ||
                         event->type() == QEvent::PaletteChange;
  if (!isOfLooks || isTellingOfLooks_) return;
  isTellingOfLooks_ = true;
  QTimer::singleShot(0, this, [this] {
    isTellingOfLooks_ = false;
    emit looksChanged();
  });
}

QtWindow::QtWindow(std::unique_ptr<WindowWidget> widget,
                   std::vector<std::shared_ptr<platform::View>> views, WindowsServices& services)
    : views_(std::move(views)),
      widget_(std::move(widget)),
      exposure_(*widget_),
      services_(services) {
  QObject::connect(widget_.get(), &WindowWidget::becameKey, widget_.get(), [this] {
    if (const auto delegate = delegate_.lock()) delegate->windowDidBecomeKey();
  });
  const auto tellOfOcclusion = [this] {
    if (const auto delegate = delegate_.lock()) delegate->windowDidChangeOcclusionState();
  };
  QObject::connect(widget_.get(), &WindowWidget::visibilityChanged, widget_.get(), tellOfOcclusion);
  QObject::connect(&exposure_, &WindowExposure::changed, widget_.get(), tellOfOcclusion);
}

void QtWindow::setDelegate(std::weak_ptr<platform::WindowDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void QtWindow::makeKeyAndOrderFront() {
  bringForward(*widget_, services_.takeActivationToken());
}

void QtWindow::orderFront() {
  const std::string token = services_.takeActivationToken();
  if (!token.empty()) return bringForward(*widget_, token);
  makeNewIfBehind(*widget_);
  widget_->setAttribute(Qt::WA_ShowWithoutActivating, true);
  widget_->show();
  widget_->raise();
  widget_->setAttribute(Qt::WA_ShowWithoutActivating, false);
}

void QtWindow::orderFrontRegardless() {
  bringForward(*widget_, services_.takeActivationToken());
}

}  // namespace linux_host
