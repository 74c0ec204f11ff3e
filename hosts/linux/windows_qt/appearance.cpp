// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/appearance.h"

#include <QApplication>
#include <QEvent>
#include <QImage>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <QTimer>
#include <algorithm>
#include <cmath>

namespace linux_host {
namespace {

QPalette darkPalette(bool highContrast) {
  const QColor window = highContrast ? QColor(Qt::black) : QColor(0x2d, 0x2d, 0x2d);
  const QColor base = highContrast ? QColor(Qt::black) : QColor(0x1f, 0x1f, 0x1f);
  const QColor button = highContrast ? QColor(Qt::black) : QColor(0x3a, 0x3a, 0x3a);
  QPalette palette(button, window);
  palette.setColor(QPalette::Base, base);
  palette.setColor(QPalette::AlternateBase, window);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                          QPalette::ToolTipText, QPalette::BrightText}) {
    palette.setColor(role, Qt::white);
    if (!highContrast) palette.setColor(QPalette::Disabled, role, QColor(0x8a, 0x8a, 0x8a));
  }
  palette.setColor(QPalette::ToolTipBase, button);
  palette.setColor(QPalette::Highlight,
                   highContrast ? QColor(0xff, 0xff, 0x00) : QColor(0x35, 0x84, 0xe4));
  palette.setColor(QPalette::HighlightedText, highContrast ? Qt::black : Qt::white);
  palette.setColor(QPalette::Link,
                   highContrast ? QColor(0xff, 0xff, 0x00) : QColor(0x78, 0xae, 0xed));
  return palette;
}

QPalette lightHighContrastPalette() {
  QPalette palette(Qt::white, Qt::white);
  palette.setColor(QPalette::Base, Qt::white);
  for (const auto role :
       {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
    palette.setColor(role, Qt::black);
  }
  palette.setColor(QPalette::Highlight, Qt::black);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::Link, QColor(0x00, 0x00, 0xc0));
  return palette;
}

// Fusion derives the frames of controls from the window's colour, which makes them invisible in
// high contrast. Here they are drawn in the text colour.
class HighContrastStyle : public QProxyStyle {
 public:
  HighContrastStyle() : QProxyStyle(QStringLiteral("Fusion")) {}

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    if (element == PE_PanelButtonCommand) drawFrame(*option, painter);
  }

  void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option,
                          QPainter* painter, const QWidget* widget) const override {
    QProxyStyle::drawComplexControl(control, option, painter, widget);
    if (control == CC_ComboBox) drawFrame(*option, painter);
  }

 private:
  static void drawFrame(const QStyleOption& option, QPainter* painter) {
    constexpr double kRadius = 2.5;
    const bool focused = option.state.testFlag(State_HasFocus);
    const double width = focused ? 2 : 1;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setBrush(Qt::NoBrush);
    painter->setPen(
        QPen(option.palette.color(focused ? QPalette::Highlight : QPalette::WindowText), width));
    const double inset = width / 2;
    painter->drawRoundedRect(QRectF(option.rect).adjusted(inset, inset, -inset, -inset), kRadius,
                             kRadius);
    painter->restore();
  }
};

bool isHighContrast() {
  return dynamic_cast<const HighContrastStyle*>(QApplication::style()) != nullptr;
}

// Relative luminance, as the accessibility guidelines define it for contrast.
double luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
         0.0722 * linear(color.blueF());
}

double contrast(double one, double other) {
  return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

// Whether enough of the picture, weighted by opacity, stands out from its background.
bool isSeenOn(const QImage& picture, const QColor& background) {
  constexpr double kContrastOfGraphics = 3;
  constexpr double kShare = 0.25;
  const double behind = luminance(background);
  double all = 0;
  double seen = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      const QColor color = picture.pixelColor(x, y);
      all += color.alphaF();
      if (contrast(luminance(color), behind) >= kContrastOfGraphics) seen += color.alphaF();
    }
  }
  return seen >= kShare * all;
}

}  // namespace

QIcon legibleIcon(const QIcon& icon, const QSize& size, const QPalette& palette) {
  QPixmap pixmap = icon.pixmap(size, qApp->devicePixelRatio());
  if (pixmap.isNull() || isSeenOn(pixmap.toImage(), palette.color(QPalette::Button))) return icon;
  QPainter painter(&pixmap);
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(pixmap.rect(), palette.color(QPalette::ButtonText));
  return QIcon(pixmap);
}

AppearanceFollower::AppearanceFollower(WindowsServices& services)
    : services_(services), ownStyle_(QApplication::style()->name()) {
  apply();
  qApp->installEventFilter(this);
  services_.followAppearance([this] { apply(); });
}

AppearanceFollower::~AppearanceFollower() {
  services_.followAppearance({});
}

bool AppearanceFollower::eventFilter(QObject*, QEvent* event) {
  if (event->type() == QEvent::ThemeChange) applySoon();
  return false;
}

void AppearanceFollower::applySoon() {
  if (isApplyingSoon_) return;
  isApplyingSoon_ = true;
  QTimer::singleShot(0, this, [this] {
    isApplyingSoon_ = false;
    apply();
  });
}

void AppearanceFollower::apply() {
  const Appearance wanted = services_.appearance();
  // Decided by the toolkit's own palette, not by ours from an earlier change.
  QApplication::setPalette(QPalette());
  const bool isDark = QApplication::palette().color(QPalette::Window).lightness() < 128;
  if (!wanted.highContrast && (!wanted.dark || isDark)) {
    if (QApplication::style()->name() != ownStyle_ || isHighContrast()) {
      QApplication::setStyle(ownStyle_);
    }
    return;
  }
  if (wanted.highContrast) {
    QApplication::setStyle(new HighContrastStyle);
  } else {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  }
  QApplication::setPalette(wanted.dark ? darkPalette(wanted.highContrast)
                                       : lightHighContrastPalette());
}

platform::Color linkColor() {
  static const QColor color = QApplication::palette().color(QPalette::Link);
  return {color.redF(), color.greenF(), color.blueF(), color.alphaF()};
}

}  // namespace linux_host
