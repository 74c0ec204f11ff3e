// SPDX-License-Identifier: MIT
#include "tests/windows/both_fixture.h"

namespace linux_host {
namespace {

using platform::kAlertFirstButtonReturn;
using testing::UnorderedElementsAre;

class BothAlertTest : public BothTest {
 protected:
  // The alert's answer when the user does `act`.
  static int answer(const platform::Alert& alert, std::function<void()> act) {
    WindowUser::Later later([act = std::move(act)] {
      if (!user().seesAlert()) return false;
      act();
      return true;
    });
    const int result = windowsModule().runModal(alert);
    EXPECT_TRUE(later.isDone());
    EXPECT_TRUE(WindowUser::until([] { return !user().seesAlert(); }));
    return result;
  }

  platform::Alert alert_{.style = platform::AlertStyle::kWarning,
                         .messageText = "Restart <b>now</b>?",
                         .informativeText = "Unsaved work & more",
                         .buttons = {"Restart", "Later", "Not_ever"},
                         .extraButton = ""};
};

TEST_F(BothAlertTest, ReturnsTheNumberOfTheButtonThatWasPressed) {
  int expected = kAlertFirstButtonReturn;
  for (const char* title : {"Restart", "Later", "Not_ever"}) {
    EXPECT_EQ(answer(alert_, [title] { user().pressInAlert(title); }), expected++);
  }
}

TEST_F(BothAlertTest, AgreesOnReturnAndDeclinesOnEscape) {
  EXPECT_EQ(answer(alert_, [] { user().pressReturnInAlert(); }), kAlertFirstButtonReturn);
  EXPECT_EQ(answer(alert_, [] { user().pressEscapeInAlert(); }), kAlertFirstButtonReturn + 2);
  EXPECT_EQ(answer(alert_, [] { user().closeAlert(); }), kAlertFirstButtonReturn + 2);
}

TEST_F(BothAlertTest, DeclinesWhenTheProgramEndsOrDismissesIt) {
  EXPECT_EQ(answer(alert_, [] { services().endDialogs(); }), kAlertFirstButtonReturn + 2);
  EXPECT_EQ(answer(alert_, [] { windowsModule().dismissAlerts(); }), kAlertFirstButtonReturn + 2);
}

TEST_F(BothAlertTest, WithoutButtonsHasOneThatClosesIt) {
  alert_.buttons.clear();
  services().speak("es");
  EXPECT_EQ(answer(alert_,
                   [] {
                     EXPECT_THAT(user().alertButtons(), UnorderedElementsAre("Aceptar"));
                     user().pressEscapeInAlert();
                   }),
            kAlertFirstButtonReturn);
}

// Return and Escape must keep closing the alert, not open what the extra button opens.
TEST_F(BothAlertTest, AnExtraButtonAnswersForItselfAndChangesNothingForTheOthers) {
  alert_.extraButton = "Preferences";
  for (const bool hasOthers : {true, false}) {
    if (!hasOthers) alert_.buttons.clear();
    const int declines = kAlertFirstButtonReturn + (hasOthers ? 2 : 0);
    EXPECT_EQ(answer(alert_, [] { user().pressInAlert("Preferences"); }),
              platform::kAlertExtraButtonReturn);
    EXPECT_EQ(answer(alert_, [] { user().pressReturnInAlert(); }), kAlertFirstButtonReturn);
    EXPECT_EQ(answer(alert_, [] { user().closeAlert(); }), declines);
    EXPECT_EQ(answer(alert_, [] { windowsModule().dismissAlerts(); }), declines);
  }
}

TEST_F(BothAlertTest, ShowsItsTextsAsTheyStand) {
  answer(alert_, [] {
    EXPECT_EQ(user().alertText(), "Restart <b>now</b>?");
    EXPECT_EQ(user().alertDetails(), "Unsaved work & more");
    EXPECT_THAT(user().alertButtons(), UnorderedElementsAre("Restart", "Later", "Not_ever"));
    user().closeAlert();
  });
}

TEST_F(BothAlertTest, StandsAboveThePreferencesAndIsRaised) {
  show();
  answer(alert_, [this] {
    window_->orderFrontRegardless();
    windowsModule().raiseAlert();
    EXPECT_TRUE(user().seesAlert());
    user().closeAlert();
  });
  windowsModule().raiseAlert();  // without any alert
  EXPECT_TRUE(WindowUser::until([] { return user().seesWindow(); }));
}

TEST_F(BothAlertTest, OneWithinAnotherIsAnsweredFirst) {
  int inner = 0;
  const int outer = answer(alert_, [&] {
    platform::Alert second = alert_;
    second.messageText = "Second";
    WindowUser::Later later([] {
      if (user().alertText() != "Second") return false;
      user().pressInAlert("Later");
      return true;
    });
    inner = windowsModule().runModal(second);
    WindowUser::until([] { return user().alertText() != "Second"; });
    user().pressInAlert("Restart");
  });
  EXPECT_EQ(inner, kAlertFirstButtonReturn + 1);
  EXPECT_EQ(outer, kAlertFirstButtonReturn);
}

}  // namespace
}  // namespace linux_host
