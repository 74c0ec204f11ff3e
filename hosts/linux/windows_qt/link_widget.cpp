// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/link_widget.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFocusRect>

#include "hosts/linux/windows_qt/appearance.h"

namespace linux_host {

LinkWidget::LinkWidget(QWidget* parent) : QAbstractButton(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void LinkWidget::setAttributedTitle(const platform::AttributedString& title) {
  title_ = title;
  setText(QString::fromStdString(title.text));
  updateGeometry();
  update();
}

void LinkWidget::setTrackingArea(platform::TrackingAreaPtr area) {
  area_ = std::move(area);
  updatePointer();
}

void LinkWidget::setResponder(std::weak_ptr<platform::ButtonResponder> responder) {
  responder_ = std::move(responder);
}

QSize LinkWidget::sizeHint() const {
  return fontMetrics().size(Qt::TextShowMnemonic, text()) + QSize(2, 2);
}

QSize LinkWidget::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 6, sizeHint().height()};
}

QColor LinkWidget::shownColor() const {
  const platform::Color& color = title_.foregroundColor;
  if (color == linkColor()) return palette().color(QPalette::Link);
  return QColor::fromRgbF(color.red, color.green, color.blue, color.alpha);
}

void LinkWidget::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  QFont shown = font();
  shown.setUnderline(title_.underlineStyle == platform::kUnderlineStyleSingle);
  painter.setFont(shown);
  painter.setPen(isEnabled() ? shownColor()
                             : palette().color(QPalette::Disabled, QPalette::WindowText));
  const bool truncates =
      title_.paragraphStyle.lineBreakMode == platform::LineBreakMode::kByTruncatingTail;
  const QString line =
      truncates ? fontMetrics().elidedText(text(), Qt::ElideRight, width(), Qt::TextShowMnemonic)
                : text();
  const auto alignment = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft);
  painter.drawText(rect(), static_cast<int>(alignment | Qt::AlignVCenter) | Qt::TextShowMnemonic,
                   line);
  if (hasFocus()) {
    QStyleOptionFocusRect option;
    option.initFrom(this);
    style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
  }
}

void LinkWidget::mousePressEvent(QMouseEvent* event) {
  const auto responder = responder_.lock();
  if (!isActiveWindow() && responder && !responder->acceptsFirstMouse()) {
    event->ignore();
    return;
  }
  QAbstractButton::mousePressEvent(event);
}

void LinkWidget::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    click();
    return;
  }
  QAbstractButton::keyPressEvent(event);
}

bool LinkWidget::event(QEvent* event) {
  const bool handled = QAbstractButton::event(event);
  if (event->type() == QEvent::WindowActivate || event->type() == QEvent::WindowDeactivate)
    updatePointer();
  return handled;
}

void LinkWidget::enterEvent(QEnterEvent* event) {
  QAbstractButton::enterEvent(event);
  updatePointer();
}

void LinkWidget::updatePointer() {
  unsetCursor();
  const bool tracked = area_ && (area_->options & platform::kTrackingCursorUpdate) != 0;
  const bool onlyInKeyWindow =
      area_ && (area_->options & platform::kTrackingActiveInKeyWindow) != 0;
  if (!tracked || !underMouse() || (onlyInKeyWindow && !isActiveWindow())) return;
  if (const auto responder = responder_.lock()) responder->cursorUpdate();
}

QString LinkAccessible::text(QAccessible::Text kind) const {
  const QString text = QAccessibleWidget::text(kind);
  return text.isEmpty() && kind == QAccessible::Name ? link_.text() : text;
}

QStringList LinkAccessible::actionNames() const {
  return QStringList{pressAction()} + QAccessibleWidget::actionNames();
}

void LinkAccessible::doAction(const QString& name) {
  if (name == pressAction()) {
    link_.click();
  } else {
    QAccessibleWidget::doAction(name);
  }
}

}  // namespace linux_host
