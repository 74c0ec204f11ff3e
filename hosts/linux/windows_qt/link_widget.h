// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractButton>
#include <QAccessibleWidget>
#include <memory>

#include "platform/controls.h"

namespace linux_host {

// A button that is drawn as an attributed title. Its responder is told when the pointer enters the
// tracking area of the active window, and decides about clicks that only activate the window.
class LinkWidget : public QAbstractButton {
  Q_OBJECT

 public:
  explicit LinkWidget(QWidget* parent = nullptr);

  void setAttributedTitle(const platform::AttributedString& title);
  // Null: no area, and the ordinary pointer.
  void setTrackingArea(platform::TrackingAreaPtr area);
  [[nodiscard]] const platform::TrackingAreaPtr& trackingArea() const { return area_; }

  void setResponder(std::weak_ptr<platform::ButtonResponder> responder);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  // Return presses the link, not the window's default button.
  void keyPressEvent(QKeyEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void enterEvent(QEnterEvent* event) override;

 private:
  void updatePointer();
  [[nodiscard]] QColor shownColor() const;

  platform::AttributedString title_;
  platform::TrackingAreaPtr area_;
  std::weak_ptr<platform::ButtonResponder> responder_;
};

// What screen readers get of a link.
class LinkAccessible : public QAccessibleWidget {
 public:
  explicit LinkAccessible(LinkWidget& link)
      : QAccessibleWidget(&link, QAccessible::Link), link_(link) {}

  [[nodiscard]] QString text(QAccessible::Text kind) const override;
  [[nodiscard]] QStringList actionNames() const override;
  void doAction(const QString& name) override;

 private:
  // Qt deletes this object when the widget is destroyed.
  LinkWidget& link_;
};

}  // namespace linux_host
