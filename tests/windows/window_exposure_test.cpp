// SPDX-License-Identifier: MIT
#include "tests/windows/windows_fixture.h"

// On an X server without a window manager or compositing manager, which says what others cover.

namespace linux_host {
namespace {

class WindowExposureTest : public WindowsTest {
 protected:
  struct Delegate : platform::WindowDelegate {
    void windowDidBecomeKey() override {}
    void windowDidChangeOcclusionState() override { ++changes; }
    int changes = 0;
  };

  WindowExposureTest() {
    cover_.setWindowFlags(Qt::X11BypassWindowManagerHint);
    load();
    window_->setDelegate(delegate_);
    window_->makeKeyAndOrderFront();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&dialog()));
  }

  // Another window in front, from that part of the window's width on.
  void coverFrom(double share) {
    QRect area = dialog().frameGeometry().adjusted(-5, -5, 5, 5);
    area.setLeft(area.left() + static_cast<int>(area.width() * share));
    cover_.setGeometry(area);
    cover_.show();
    cover_.raise();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&cover_));
  }
  bool becomesOccluded(bool isOccluded) {
    return QTest::qWaitFor([&] { return window_->isOccluded() == isOccluded; });
  }

  const std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
  QWidget cover_;
};

TEST_F(WindowExposureTest, AWindowBehindAnotherIsOccludedUntilAPartOfItIsSeen) {
  EXPECT_FALSE(window_->isOccluded());
  EXPECT_EQ(delegate_->changes, 1);
  coverFrom(0);
  ASSERT_TRUE(becomesOccluded(true));
  EXPECT_TRUE(window_->isVisible());
  EXPECT_EQ(delegate_->changes, 2);
  coverFrom(0.5);
  ASSERT_TRUE(becomesOccluded(false));
  EXPECT_EQ(delegate_->changes, 3);
  coverFrom(0);
  ASSERT_TRUE(becomesOccluded(true));
  window_->orderFront();
  ASSERT_TRUE(becomesOccluded(false));
  EXPECT_EQ(delegate_->changes, 5);
}

TEST_F(WindowExposureTest, AWindowThatIsHiddenWhileCoveredIsNotOccludedWhenItIsShownAgain) {
  coverFrom(0);
  ASSERT_TRUE(becomesOccluded(true));
  window_->orderOut();
  EXPECT_FALSE(window_->isOccluded());
  cover_.hide();
  window_->orderFront();
  EXPECT_TRUE(QTest::qWaitForWindowExposed(&dialog()));
  EXPECT_FALSE(window_->isOccluded());
}

}  // namespace
}  // namespace linux_host
