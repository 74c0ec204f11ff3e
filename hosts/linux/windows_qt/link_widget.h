// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractButton>
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
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void enterEvent(QEnterEvent* event) override;

 private:
  void updatePointer();

  platform::AttributedString title_;
  platform::TrackingAreaPtr area_;
  std::weak_ptr<platform::ButtonResponder> responder_;
};

}  // namespace linux_host
