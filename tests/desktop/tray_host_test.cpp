// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/desktop/shown_indicator.h"

// The indicator in an independent tray, used with the pointer and the keyboard.

namespace desktop_test {
namespace {

using ::testing::ElementsAre;

constexpr int kPanelTop_px = 480 - Panel::kHeight_px;
// The middle of the first icon.
constexpr int kIcon_x = 16;
constexpr int kIcon_y = kPanelTop_px + Panel::kHeight_px / 2;

class TrayHostTest : public IndicatorTest {
 protected:
  TrayHostTest() : screen_(folder_.path()), panel_(folder_.path(), screen_, busAddress()) {}

  [[nodiscard]] bool isIconDrawn() const {
    return screen_.pixelsDrawnIn(kIcon_x - 11, kIcon_y - 11, 22, 22) > 40;
  }
  bool waitForTray() {
    return runUntil([&] { return !trays_.empty() && trays_.back(); });
  }
  // Shows an icon in the tray.
  void showInTray() {
    panel_.start();
    show();
    ASSERT_TRUE(waitForTray());
    ASSERT_TRUE(runUntil([&] { return isIconDrawn(); }));
  }
  // Opens the menu and chooses the line whose middle is this far below the menu's top (or, if
  // negative, above its bottom).
  void chooseLineAt(int distance_px) {
    screen_.click(kIcon_x, kIcon_y, 3);
    std::optional<Screen::Area> menu;
    ASSERT_TRUE(runUntil([&] { return (menu = screen_.popup()).has_value(); }));
    const int y = distance_px > 0 ? menu->y + distance_px : menu->y + menu->height + distance_px;
    screen_.click(menu->x + menu->width / 2, y, 1);
  }

  Screen screen_;
  Panel panel_;
};

TEST_F(TrayHostTest, AClickOnTheIconToggles) {
  showInTray();
  screen_.click(kIcon_x, kIcon_y, 1);
  EXPECT_TRUE(runUntil([&] { return !requests_.received.empty(); }));
  EXPECT_THAT(requests_.received, ElementsAre("activate"));
}

// A line is 25 pixels high.
TEST_F(TrayHostTest, TheSecondLineOfTheMenuIsStop) {
  showInTray();
  record("00:03");
  chooseLineAt(37);
  EXPECT_TRUE(runUntil([&] { return !requests_.received.empty(); }));
  EXPECT_THAT(requests_.received, ElementsAre("stop"));
}

TEST_F(TrayHostTest, TheLastLineOfTheMenuIsQuit) {
  showInTray();
  record("00:03");
  chooseLineAt(-12);
  EXPECT_TRUE(runUntil([&] { return !requests_.received.empty(); }));
  EXPECT_THAT(requests_.received, ElementsAre("quit"));
}

TEST_F(TrayHostTest, HidingRemovesTheIconAndShowingPutsItBack) {
  showInTray();
  hide();
  EXPECT_TRUE(runUntil([&] { return !isIconDrawn(); }));
  show();
  EXPECT_TRUE(runUntil([&] { return isIconDrawn(); }));
}

TEST_F(TrayHostTest, TheIconAppearsInALaterTrayAndAgainAfterACrash) {
  show();
  ASSERT_TRUE(runUntil([&] { return !trays_.empty(); }));
  EXPECT_FALSE(trays_.back());
  panel_.start();
  ASSERT_TRUE(waitForTray());
  ASSERT_TRUE(runUntil([&] { return isIconDrawn(); }));
  panel_.kill();
  ASSERT_TRUE(runUntil([&] { return !trays_.back(); }));
  panel_.start();
  ASSERT_TRUE(waitForTray());
  EXPECT_TRUE(runUntil([&] { return isIconDrawn(); }));
}

TEST_F(TrayHostTest, TheIconLooksDifferentWhileRecording) {
  showInTray();
  const std::string rest = folder_ / "rest.png";
  const std::string active = folder_ / "active.png";
  const std::string place = "22x22+5+" + std::to_string(kIcon_y - 11);
  screen_.savePicture(rest, place);
  setIcon("ActiveIcon.icns");
  EXPECT_TRUE(runUntil([&] {
    screen_.savePicture(active, place);
    return base_test::contentsOf(active) != base_test::contentsOf(rest);
  }));
  EXPECT_TRUE(isIconDrawn());
}

}  // namespace
}  // namespace desktop_test
