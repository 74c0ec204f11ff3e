// SPDX-License-Identifier: MIT
#include <QAbstractButton>
#include <QCursor>

#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FakeResponder : public platform::ButtonResponder {
 public:
  bool acceptsFirstMouse() override { return takesFirstClick; }
  void cursorUpdate() override { windowsModule().cursor().setPointingHand(); }
  bool takesFirstClick = false;
};

class LinkWidgetTest : public WindowsTest {
 protected:
  LinkWidgetTest() {
    show();
    port_ = owner_.outlet<platform::Button>("outputFolderLink");
    port_->setResponder(responder_);
    port_->addTrackingArea(area_);
  }
  QAbstractButton& link() const { return widget<QAbstractButton>("outputFolderLink"); }
  void pointAt(QWidget& target) {
    QCursor::setPos(target.mapToGlobal(target.rect().center()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return target.underMouse(); }));
  }
  void activateAnotherWindow() {
    other_.resize(40, 40);
    other_.move(700, 500);
    other_.show();
    other_.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other_));
    ASSERT_FALSE(link().isActiveWindow());
  }
  bool hasHand() {
    return QTest::qWaitFor([&] { return link().cursor().shape() == Qt::PointingHandCursor; }, 200);
  }

  QWidget other_;
  std::shared_ptr<FakeResponder> responder_ = std::make_shared<FakeResponder>();
  platform::TrackingAreaPtr area_ = std::make_shared<platform::TrackingArea>(platform::TrackingArea{
      {0, 0, 80, 20}, platform::kTrackingCursorUpdate | platform::kTrackingActiveInKeyWindow});
  std::shared_ptr<platform::Button> port_;
};

TEST_F(LinkWidgetTest, SendsItsActionOnClickAndSpace) {
  QTest::mouseClick(&link(), Qt::LeftButton);
  link().setFocus();
  QTest::keyClick(&link(), Qt::Key_Space);
  EXPECT_THAT(owner_.actions, ElementsAre("onRevealOutputFolder", "onRevealOutputFolder"));
}

TEST_F(LinkWidgetTest, IgnoresTheClickThatOnlyActivatesItsWindow) {
  activateAnotherWindow();
  QTest::mouseClick(&link(), Qt::LeftButton);
  EXPECT_THAT(owner_.actions, IsEmpty());
  responder_->takesFirstClick = true;
  activateAnotherWindow();
  QTest::mouseClick(&link(), Qt::LeftButton);
  EXPECT_THAT(owner_.actions, ElementsAre("onRevealOutputFolder"));
}

TEST_F(LinkWidgetTest, HasThePointingHandOnlyWhileItsWindowIsActive) {
  pointAt(link());
  EXPECT_TRUE(hasHand());
  activateAnotherWindow();
  EXPECT_NE(link().cursor().shape(), Qt::PointingHandCursor);
  dialog().activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog()));
  EXPECT_TRUE(hasHand());
}

TEST_F(LinkWidgetTest, HasTheOrdinaryPointerWithoutATrackingArea) {
  pointAt(link());
  ASSERT_TRUE(hasHand());
  const auto another = std::make_shared<platform::TrackingArea>();
  port_->removeTrackingArea(another);
  EXPECT_TRUE(hasHand()) << "another's area is not this one's";
  port_->removeTrackingArea(area_);
  EXPECT_NE(link().cursor().shape(), Qt::PointingHandCursor);
}

TEST_F(LinkWidgetTest, IsDrawnUnderlinedInItsColour) {
  platform::AttributedString title{.text = "Folder",
                                   .foregroundColor = {1, 0, 0, 1},
                                   .font = port_->font(),
                                   .underlineStyle = 0,
                                   .paragraphStyle = {platform::LineBreakMode::kByTruncatingTail}};
  port_->setAttributedTitle(title);
  const QImage plain = link().grab().toImage();
  title.underlineStyle = platform::kUnderlineStyleSingle;
  port_->setAttributedTitle(title);
  const QImage underlined = link().grab().toImage();
  const auto redPixels = [](const QImage& image) {
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        const QColor color = image.pixelColor(x, y);
        if (color.red() > 200 && color.green() < 80 && color.blue() < 80) ++count;
      }
    }
    return count;
  };
  EXPECT_GT(redPixels(plain), 20);
  EXPECT_GT(redPixels(underlined), redPixels(plain) + 20);
}

TEST_F(LinkWidgetTest, CutsALongTitleAtItsEndInsteadOfWrapping) {
  const QSize before = link().size();
  port_->setAttributedTitle({.text = std::string(500, 'W'),
                             .foregroundColor = {},
                             .font = port_->font(),
                             .underlineStyle = platform::kUnderlineStyleSingle,
                             .paragraphStyle = {platform::LineBreakMode::kByTruncatingTail}});
  EXPECT_EQ(link().sizeHint().height(), before.height());
  EXPECT_LT(link().minimumSizeHint().width(), before.width());
}

TEST_F(LinkWidgetTest, TakesTheSystemsLinkColour) {
  const auto color = windowsModule().systemColors().linkColor();
  ASSERT_TRUE(color.has_value());
  EXPECT_FLOAT_EQ(color->blue,
                  static_cast<float>(QApplication::palette().color(QPalette::Link).blueF()));
}

}  // namespace
}  // namespace linux_host
