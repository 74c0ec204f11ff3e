// SPDX-License-Identifier: MIT
#include <QAbstractButton>
#include <QMessageBox>

#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

class AlertTest : public WindowsTest {
 protected:
  static QMessageBox* shownBox() {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    return box != nullptr && box->isVisible() ? box : nullptr;
  }
  // The alert's answer when the user does `act`.
  static int answer(const platform::Alert& alert, const std::function<void(QMessageBox&)>& act) {
    InModalDialog user([&] {
      QMessageBox* box = shownBox();
      if (box != nullptr) act(*box);
      return box != nullptr;
    });
    const int result = windowsModule().runModal(alert);
    EXPECT_TRUE(user.done());
    return result;
  }
  static void clickTitled(QMessageBox& box, const QString& title) {
    for (QAbstractButton* button : box.buttons()) {
      if (button->text() == title) {
        button->click();
        return;
      }
    }
    ADD_FAILURE() << "no button " << title.toStdString();
    box.reject();
  }

  platform::Alert alert_{.style = platform::AlertStyle::kWarning,
                         .messageText = "Restart <b>now</b>?",
                         .informativeText = "Unsaved work & more",
                         .buttons = {"Restart", "Later", "Never"},
                         .extraButton = ""};
};

TEST_F(AlertTest, ReturnsTheNumberOfTheButtonThatWasPressed) {
  int expected = platform::kAlertFirstButtonReturn;
  for (const char* title : {"Restart", "Later", "Never"}) {
    EXPECT_EQ(answer(alert_, [&](QMessageBox& box) { clickTitled(box, QLatin1String(title)); }),
              expected++);
  }
}

TEST_F(AlertTest, AgreesOnReturnAndDeclinesOnEscape) {
  EXPECT_EQ(answer(alert_, [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Return); }),
            platform::kAlertFirstButtonReturn);
  EXPECT_EQ(answer(alert_, [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Escape); }),
            platform::kAlertFirstButtonReturn + 2);
  EXPECT_EQ(answer(alert_, [](QMessageBox& box) { box.close(); }),
            platform::kAlertFirstButtonReturn + 2);
}

TEST_F(AlertTest, DeclinesWhenTheProgramEnds) {
  EXPECT_EQ(answer(alert_, [](QMessageBox&) { services().endDialogs(); }),
            platform::kAlertFirstButtonReturn + 2);
}

TEST_F(AlertTest, WithoutButtonsHasOneThatClosesIt) {
  alert_.buttons.clear();
  EXPECT_EQ(answer(alert_, [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Escape); }),
            platform::kAlertFirstButtonReturn);
}

// Return and Escape must keep closing the alert, not open what the extra button opens.
TEST_F(AlertTest, AnExtraButtonHasItsOwnAnswerAndDoesNotChangeTheOthers) {
  alert_.extraButton = "Preferences";
  for (const bool hasOthers : {true, false}) {
    if (!hasOthers) alert_.buttons.clear();
    const int declines = platform::kAlertFirstButtonReturn + (hasOthers ? 2 : 0);
    EXPECT_EQ(answer(alert_, [](QMessageBox& box) { clickTitled(box, "Preferences"); }),
              platform::kAlertExtraButtonReturn);
    EXPECT_EQ(answer(alert_, [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Return); }),
              platform::kAlertFirstButtonReturn);
    EXPECT_EQ(answer(alert_, [](QMessageBox& box) { QTest::keyClick(&box, Qt::Key_Escape); }),
              declines);
    EXPECT_EQ(answer(alert_, [](QMessageBox& box) { box.close(); }), declines);
    EXPECT_EQ(answer(alert_, [](QMessageBox&) { windowsModule().dismissAlerts(); }), declines);
  }
}

TEST_F(AlertTest, ShowsItsTextsUnchangedWithTheIconOfItsStyle) {
  const std::pair<platform::AlertStyle, QMessageBox::Icon> styles[] = {
      {platform::AlertStyle::kWarning, QMessageBox::Warning},
      {platform::AlertStyle::kInformational, QMessageBox::Information},
      {platform::AlertStyle::kCritical, QMessageBox::Critical}};
  for (const auto& [style, icon] : styles) {
    alert_.style = style;
    answer(alert_, [icon = icon](QMessageBox& box) {
      EXPECT_EQ(box.icon(), icon);
      EXPECT_EQ(box.textFormat(), Qt::PlainText);
      EXPECT_EQ(box.text(), QStringLiteral("Restart <b>now</b>?"));
      EXPECT_EQ(box.informativeText(), QStringLiteral("Unsaved work & more"));
      box.reject();
    });
  }
}

TEST_F(AlertTest, IsDismissedWithTheLastButton) {
  EXPECT_EQ(answer(alert_, [](QMessageBox&) { windowsModule().dismissAlerts(); }),
            platform::kAlertFirstButtonReturn + 2);
}

TEST_F(AlertTest, IsRaisedOverTheOtherWindows) {
  show();
  answer(alert_, [&](QMessageBox& box) {
    box.showMinimized();
    window_->orderFrontRegardless();
    windowsModule().raiseAlert();
    EXPECT_FALSE(box.isMinimized());
    EXPECT_TRUE(box.isVisible());
    box.reject();
  });
  windowsModule().raiseAlert();  // without any alert
}

TEST_F(AlertTest, KeepsTheMainLoopRunning) {
  bool ran = false;
  QTimer::singleShot(0, [&] { ran = true; });
  InModalDialog user([&] {
    QMessageBox* box = shownBox();
    if (!ran || box == nullptr) return false;
    box->reject();
    return true;
  });
  windowsModule().runModal(alert_);
  EXPECT_TRUE(ran);
}

TEST_F(AlertTest, BelongsToTheWindowOrAlertBelowIt) {
  answer(alert_, [](QMessageBox& box) {
    EXPECT_EQ(box.parentWidget(), nullptr) << "nothing is shown";
    box.close();
  });
  show();
  answer(alert_, [this](QMessageBox& outer) {
    EXPECT_EQ(outer.parentWidget(), &dialog());
    answer(alert_, [&outer](QMessageBox& inner) {
      EXPECT_EQ(inner.parentWidget(), &outer);
      inner.close();
    });
    outer.close();
  });
  window_->orderOut();
  answer(alert_, [](QMessageBox& box) {
    EXPECT_EQ(box.parentWidget(), nullptr) << "the window is hidden";
    box.close();
  });
}

TEST_F(AlertTest, IsDeclinedWhenItsWindowGoes) {
  show();
  EXPECT_EQ(answer(alert_, [this](QMessageBox&) { window_.reset(); }),
            platform::kAlertFirstButtonReturn + 2);
}

}  // namespace
}  // namespace linux_host
