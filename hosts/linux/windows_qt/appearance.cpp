#include "hosts/linux/windows_qt/appearance.h"

#include <QApplication>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>

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

// Fusion derives the frames of controls from the window's colour, which in high contrast leaves
// them unseen: here they are drawn in the colour of text.
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

}  // namespace

void applyAppearance(const Appearance& appearance) {
  const bool isDark = QApplication::palette().color(QPalette::Window).lightness() < 128;
  if (!appearance.highContrast && (!appearance.dark || isDark)) return;
  if (appearance.highContrast) {
    QApplication::setStyle(new HighContrastStyle);
  } else {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  }
  QApplication::setPalette(appearance.dark ? darkPalette(appearance.highContrast)
                                           : lightHighContrastPalette());
}

}  // namespace linux_host
