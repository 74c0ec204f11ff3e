// SPDX-License-Identifier: MIT
#include <QEvent>
#include <QImage>
#include <limits>

#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

class PaintCounter : public QObject {
 public:
  explicit PaintCounter(QWidget& watched) { watched.installEventFilter(this); }
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
  int paints = 0;
};

class LevelBarTest : public WindowsTest {
 protected:
  LevelBarTest() {
    show();
    port_ = owner_.outlet<platform::LevelIndicator>("audioLevel");
  }
  QWidget& bar() const { return widget("audioLevel"); }
  QColor colorAt(double share) const {
    const QImage image = bar().grab().toImage();
    return image.pixelColor(static_cast<int>(share * (image.width() - 1)), image.height() / 2);
  }
  bool isGreenAt(double share) const {
    const QColor color = colorAt(share);
    return color.green() > color.red() + 60;
  }
  bool isRedAt(double share) const {
    const QColor color = colorAt(share);
    return color.red() > color.green() + 100;
  }

  std::shared_ptr<platform::LevelIndicator> port_;
};

TEST_F(LevelBarTest, Shows60DecibelsGreenThenAmberThenRed) {
  port_->setLevel(0.03162278F);  // -30 dB
  EXPECT_TRUE(isGreenAt(0.47));
  EXPECT_FALSE(isGreenAt(0.53));
  port_->setLevel(1);
  EXPECT_TRUE(isGreenAt(0.77));
  EXPECT_FALSE(isGreenAt(0.83));
  EXPECT_FALSE(isRedAt(0.92));
  EXPECT_TRUE(isRedAt(0.97));
}

TEST_F(LevelBarTest, ShowsInvalidLevelsAsSilenceAndTooHighOnesAsFullScale) {
  for (const float level : {0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()}) {
    port_->setLevel(1);
    port_->setLevel(level);
    EXPECT_FALSE(isGreenAt(0.05)) << level;
  }
  port_->setLevel(std::numeric_limits<float>::infinity());
  EXPECT_TRUE(isRedAt(0.97));
}

TEST_F(LevelBarTest, GrowsFromTheRightInRightToLeftLayouts) {
  dialog().setLayoutDirection(Qt::RightToLeft);
  port_->setLevel(0.03162278F);
  EXPECT_TRUE(isGreenAt(0.53));
  EXPECT_FALSE(isGreenAt(0.47));
}

TEST_F(LevelBarTest, IsDrawnOnlyWhenTheChangeCanBeSeen) {
  port_->setLevel(0.5F);
  QCoreApplication::processEvents();
  PaintCounter counter(bar());
  for (const float level : {0.5F, 0.5001F, 0.4999F}) {
    port_->setLevel(level);
    QCoreApplication::processEvents();
  }
  EXPECT_EQ(counter.paints, 0);
  port_->setLevel(0.4F);
  EXPECT_TRUE(QTest::qWaitFor([&] { return counter.paints == 1; }));
}

}  // namespace
}  // namespace linux_host
