// SPDX-License-Identifier: MIT
#include <QLabel>
#include <QMessageBox>

#include "tests/windows/windows_fixture.h"

// The row of the preferences with the key that starts and stops recordings.

namespace linux_host {
namespace {

using Outcome = ShortcutChoice::Outcome;

class ShortcutRowTest : public WindowsTest {
 protected:
  [[nodiscard]] QString shownKey() const { return widget<QLabel>("shortcutKey").text(); }
  [[nodiscard]] QPushButton& button() const { return widget<QPushButton>("shortcutButton"); }
  [[nodiscard]] bool isShown() const {
    for (const char* name : {"shortcutLabel", "shortcutKey", "shortcutButton", "shortcutHint"}) {
      if (widget(name).isVisible() != button().isVisible()) ADD_FAILURE() << name;
    }
    return button().isVisible();
  }
  void showOffered() {
    services().changeShortcut({.offered = true, .trigger = {}});
    show();
  }
};

TEST_F(ShortcutRowTest, IsShownOnlyWhileTheDesktopHasKeysForPrograms) {
  show();
  EXPECT_FALSE(isShown());
  const QSize without = dialog().size();
  services().changeShortcut({.offered = true, .trigger = {}});
  EXPECT_TRUE(isShown());
  EXPECT_TRUE(QTest::qWaitFor([&] { return dialog().height() > without.height(); }));
  services().changeShortcut({});
  EXPECT_FALSE(isShown());
  EXPECT_TRUE(QTest::qWaitFor([&] { return dialog().size() == without; }));
}

TEST_F(ShortcutRowTest, ShowsTheKeyInTheDesktopsWords) {
  showOffered();
  EXPECT_EQ(shownKey(), text("None"));
  EXPECT_EQ(button().text(), text("Set Shortcut…"));
  services().changeShortcut({.offered = true, .asking = true, .trigger = {}});
  EXPECT_EQ(shownKey(), text("One moment…"));
  EXPECT_FALSE(button().isEnabled());
  services().changeShortcut({.offered = true, .set = true, .trigger = "Ctrl+Meta+R"});
  EXPECT_EQ(shownKey(), QStringLiteral("Ctrl+Meta+R"));
  EXPECT_EQ(button().text(), text("Change…"));
  EXPECT_EQ(button().accessibleDescription(), QStringLiteral("Ctrl+Meta+R"));
  EXPECT_TRUE(button().isEnabled());
  services().changeShortcut({.offered = true, .set = true, .trigger = {}});
  EXPECT_EQ(shownKey(), text("See keyboard settings"));
}

TEST_F(ShortcutRowTest, ShowsAnyTextOfTheDesktopAsOneHarmlessLine) {
  showOffered();
  services().changeShortcut({.offered = true, .set = true, .trigger = "Press\n<b>&R</b>"});
  EXPECT_EQ(shownKey(), QStringLiteral("Press <b>&R</b>"));
  EXPECT_EQ(widget<QLabel>("shortcutKey").textFormat(), Qt::PlainText);
  EXPECT_TRUE(widget("shortcutKey").toolTip().contains(QStringLiteral("&lt;b&gt;")));
  const int width = dialog().width();
  services().changeShortcut({.offered = true, .set = true, .trigger = std::string(1000, 'W')});
  EXPECT_TRUE(QTest::qWaitFor([&] { return shownKey().contains(u'…'); }));
  QCoreApplication::processEvents();
  EXPECT_LE(dialog().width(), width * 2);
}

TEST_F(ShortcutRowTest, ItsButtonAsksTheDesktop) {
  showOffered();
  button().setFocus();
  QTest::keyClick(&button(), Qt::Key_Space);
  ASSERT_EQ(services().shortcutChoices.size(), 1U);
  services().shortcutChoices.front()({Outcome::kDone, {}});
  services().shortcutChoices.front()({Outcome::kDeclined, {}});
  EXPECT_EQ(dialog().findChild<QMessageBox*>(), nullptr) << "the user knows";
}

TEST_F(ShortcutRowTest, AFailureIsShownWithTheDesktopsReason) {
  showOffered();
  button().click();
  ASSERT_EQ(services().shortcutChoices.size(), 1U);
  services().shortcutChoices.front()({Outcome::kFailed, "Not\nfor you"});
  auto* box = dialog().findChild<QMessageBox*>();
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->text(), text("The desktop has set no shortcut."));
  EXPECT_EQ(box->informativeText(), QStringLiteral("Not for you"));
  services().endDialogs();
  EXPECT_TRUE(QTest::qWaitFor([&] { return dialog().findChild<QMessageBox*>() == nullptr; }));
}

TEST_F(ShortcutRowTest, NothingIsShownWhenTheWindowIsGone) {
  showOffered();
  button().click();
  window_.reset();
  services().shortcutChoices.front()({Outcome::kFailed, "Not for you"});
  services().changeShortcut({.offered = true, .set = true, .trigger = {}});
}

}  // namespace
}  // namespace linux_host
