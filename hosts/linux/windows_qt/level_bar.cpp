// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/level_bar.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace linux_host {
namespace {

// The position of a level on the bar, which covers 60 dB: 0 at its quiet end, 1 at full scale.
float placeOf(float level_dB) {
  constexpr float kFloor_dB = -60.0F;
  return std::clamp(1.0F - level_dB / kFloor_dB, 0.0F, 1.0F);
}

}  // namespace

LevelBar::LevelBar(QWidget* parent) : QWidget(parent) {
  QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  // The layout does not jump when the level appears and disappears.
  policy.setRetainSizeWhenHidden(true);
  setSizePolicy(policy);
}

void LevelBar::setLevel(float peak) {
  const int before_pixels = litPixels();
  peak_ = std::clamp(std::isnan(peak) ? 0.0F : peak, 0.0F, 1.0F);
  // Draws only visible changes.
  if (litPixels() != before_pixels) update();
}

float LevelBar::litShare() const {
  return peak_ > 0 ? placeOf(20.0F * std::log10(peak_)) : 0.0F;
}

int LevelBar::litPixels() const {
  return qRound(static_cast<double>(litShare()) * width() * devicePixelRatio());
}

QSize LevelBar::sizeHint() const {
  return {160, 6};
}

void LevelBar::paintEvent(QPaintEvent*) {
  const float level = litShare();
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  const QRectF bar = rect();
  const double radius = bar.height() / 2;
  QColor groove = palette().color(QPalette::WindowText);
  groove.setAlphaF(0.25F);
  painter.setBrush(groove);
  painter.drawRoundedRect(bar, radius, radius);
  if (level <= 0) return;

  const struct {
    float upTo_dB;
    QColor color;
  } zones[] = {{-12, QColor(0x2f, 0x9e, 0x44)},
               {-3, QColor(0xe6, 0x9f, 0x00)},
               {0, QColor(0xd6, 0x33, 0x24)}};
  if (layoutDirection() == Qt::RightToLeft) {
    painter.translate(bar.width(), 0);
    painter.scale(-1, 1);
  }
  double from = 0;
  for (const auto& zone : zones) {
    const double to = bar.width() * std::min(level, placeOf(zone.upTo_dB));
    if (to <= from) break;
    painter.setClipRect(QRectF(from, 0, to - from, bar.height()));
    painter.setBrush(zone.color);
    painter.drawRoundedRect(QRectF(0, 0, bar.width() * level, bar.height()), radius, radius);
    from = to;
  }
}

void* LevelBarAccessible::interface_cast(QAccessible::InterfaceType type) {
  if (type == QAccessible::ValueInterface) return static_cast<QAccessibleValueInterface*>(this);
  return QAccessibleWidget::interface_cast(type);
}

QVariant LevelBarAccessible::currentValue() const {
  return qRound(bar_.litShare() * 100);
}

}  // namespace linux_host
