// SPDX-License-Identifier: MIT
#include <QLabel>
#include <QStyle>

#include "suite/suite.h"
#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

// What the user changes in the desktop's settings while the window is open.
class AppearanceTest : public WindowsTest {
 protected:
  AppearanceTest() {
    services().folder = "/" + std::string(200, 'm');
    show();
    folder()->updateState();
  }
  ~AppearanceTest() override { QApplication::setFont(font_); }

  [[nodiscard]] std::shared_ptr<suite::OutputLocationButton> folder() const {
    return owner_.outlet<suite::OutputLocationButton>("outputLocation");
  }
  [[nodiscard]] QColor background() const { return dialog().palette().color(QPalette::Window); }
  bool becomes(const QColor& color) const {
    return QTest::qWaitFor([&] { return background() == color; });
  }
  // The colours in the middle line of a link, without its background.
  bool linkHas(const QColor& color) const {
    const QImage image = widget("outputFolderLink").grab().toImage();
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        if (image.pixelColor(x, y).rgb() == color.rgb()) return true;
      }
    }
    return false;
  }

  const QFont font_ = QApplication::font();
};

TEST_F(AppearanceTest, FollowsDarkModeAndContrastAtOnce) {
  const QColor light = background();
  ASSERT_GT(light.lightness(), 128);
  services().changeAppearance({.dark = true});
  EXPECT_TRUE(becomes(QColor(0x2d, 0x2d, 0x2d)));
  services().changeAppearance({.dark = true, .highContrast = true});
  EXPECT_TRUE(becomes(Qt::black));
  services().changeAppearance({.dark = false, .highContrast = true});
  EXPECT_TRUE(becomes(Qt::white));
  services().changeAppearance({});
  EXPECT_TRUE(becomes(light));
}

TEST_F(AppearanceTest, ALinkIsDrawnInTheLinkColourOfThatMoment) {
  const auto link = owner_.outlet<platform::Button>("outputFolderLink");
  const auto paint = [&](const platform::Color& color) {
    link->setAttributedTitle({.text = link->title(),
                              .foregroundColor = color,
                              .font = link->font(),
                              .underlineStyle = platform::kUnderlineStyleSingle,
                              .paragraphStyle = {}});
  };
  paint(windowsModule().systemColors().linkColor().value());
  EXPECT_TRUE(linkHas(dialog().palette().color(QPalette::Link)));
  services().changeAppearance({.dark = true});
  EXPECT_TRUE(QTest::qWaitFor([&] { return linkHas(QColor(0x78, 0xae, 0xed)); }));
  // One made later, too, although the program knows the colour of the first one.
  paint(windowsModule().systemColors().linkColor().value());
  EXPECT_TRUE(linkHas(QColor(0x78, 0xae, 0xed)));
  paint({.red = 1, .green = 0, .blue = 0, .alpha = 1});
  EXPECT_TRUE(linkHas(QColor(Qt::red))) << "a colour of its own stays";
}

TEST_F(AppearanceTest, FollowsTheFontAtOnce) {
  services().changeShortcut({true, false, true, std::string(200, 'k')});
  QFont larger = font_;
  larger.setPointSizeF(font_.pointSizeF() * 1.6);
  const QSize before = dialog().size();
  QApplication::setFont(larger);
  const auto nameOf = [this] { return widget<QPushButton>("outputLocation").text(); };
  ASSERT_TRUE(QTest::qWaitFor([&] { return dialog().width() > before.width() + 50; }));
  QCoreApplication::processEvents();
  const QSize followed = dialog().size();
  const QString path = nameOf();
  const QString key = widget<QLabel>("shortcutKey").text();
  for (const char* name : {"audioSourceLabel", "qualityLabel", "outputLocationLabel"}) {
    EXPECT_GE(widget(name).height(), widget(name).sizeHint().height()) << name;
  }

  // As one that is opened with that font.
  window_.reset();
  show();
  folder()->updateState();
  QCoreApplication::processEvents();
  EXPECT_EQ(followed, dialog().size());
  EXPECT_EQ(path, nameOf());
  EXPECT_EQ(key, widget<QLabel>("shortcutKey").text());
}

}  // namespace
}  // namespace linux_host
