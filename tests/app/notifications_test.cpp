// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using platform::Dictionary;
using platform::UserNotificationActivationType;
using platform::UserNotificationPtr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kFinalPath = "/out/Audio recording 2024-05-17 at 14.03.27.m4a";

class NotificationsTest : public AppTest {
 protected:
  const UserNotificationPtr& newest() const {
    return machine.userNotificationCenter.delivered.back();
  }
  void activate(const UserNotificationPtr& notification, UserNotificationActivationType type) {
    machine.userNotificationCenter.activate(notification, type);
  }
};

TEST_F(NotificationsTest, TheStartNotificationOffersCancelAndIsSilent) {
  launchAndRecord();
  EXPECT_EQ(newest()->informativeText, "Starting a new audio recording.");
  EXPECT_TRUE(newest()->hasActionButton);
  EXPECT_EQ(newest()->actionButtonTitle, "Cancel");
  EXPECT_EQ(newest()->userInfo, (Dictionary{{"Cancel", "Cancel"}}));
  EXPECT_EQ(newest()->soundName, std::nullopt);
  EXPECT_EQ(newest()->title, std::nullopt);
}

TEST_F(NotificationsTest, TheCompletionNotificationOffersOpenAndSounds) {
  launchAndRecord();
  app->stopRecord();
  EXPECT_EQ(newest()->informativeText, "Audio recording is saved.\nClick here to show in Finder.");
  EXPECT_TRUE(newest()->hasActionButton);
  EXPECT_EQ(newest()->actionButtonTitle, "Open");
  EXPECT_EQ(newest()->userInfo, (Dictionary{{"OpenPath", kFinalPath}}));
  EXPECT_EQ(newest()->soundName, platform::kUserNotificationDefaultSoundName);
  EXPECT_EQ(newest()->title, std::nullopt);
}

TEST_F(NotificationsTest, ACompletionWithoutAFileHasNoButton) {
  launch();
  app->showNotificationRecordCompleated("/out/gone.m4a");
  EXPECT_EQ(newest()->informativeText, "Unable to save the record.");
  EXPECT_FALSE(newest()->hasActionButton);
  EXPECT_THAT(newest()->userInfo, IsEmpty());
  EXPECT_EQ(newest()->soundName, platform::kUserNotificationDefaultSoundName);
}

TEST_F(NotificationsTest, AFailedSaveSaysWhereTheRecordingIs) {
  launchAndRecord();
  std::string temporary;
  ASSERT_TRUE(platform::stringValue(app->status().at("outputFile"), &temporary));
  machine.fileManager.failMove = "read-only";
  machine.fileManager.folders.erase("/out");
  app->stopRecord();
  EXPECT_EQ(newest()->informativeText, kUnsavedText);
  const std::string kept =
      "What was recorded is kept as " + temporary + ". The next start of Record Audio saves it.";
  EXPECT_EQ(newest()->details, "The folder /out is not there.\n" + kept);
  machine.fileManager.addFile("/out");
  app->showNotificationRecordCompleated("/out/missing.m4a");
  EXPECT_EQ(newest()->details, "Nothing could be written into the folder /out.\n" + kept);
}

TEST_F(NotificationsTest, SaysNothingOfAFileThatIsGone) {
  launchAndRecord();
  machine.fileManager.files.clear();
  app->stopRecord();
  EXPECT_EQ(newest()->informativeText, kUnsavedText);
  EXPECT_EQ(newest()->details, "");
}

TEST_F(NotificationsTest, SaysNothingOfAFileThatWasNotKept) {
  launchAndRecord();
  machine.fileManager.failMove = "read-only";
  app->stopRecord();
  machine.fileManager.files.clear();
  app->stopRecord();
  EXPECT_EQ(newest()->informativeText, kUnsavedText);
  EXPECT_EQ(newest()->details, "");
}

TEST_F(NotificationsTest, OnlyNotificationsAboutAFileCanBeClicked) {
  launchAndRecord();
  EXPECT_FALSE(newest()->hasContentsAction);
  app->stopRecord();
  EXPECT_TRUE(newest()->hasContentsAction);
  app->showNotificationRecordingRecovered("/out/b.m4a");
  EXPECT_TRUE(newest()->hasContentsAction);
  app->showNotificationRecordCompleated("/out/gone.m4a");
  EXPECT_FALSE(newest()->hasContentsAction);
  app->showNotificationError();
  EXPECT_FALSE(newest()->hasContentsAction);
}

TEST_F(NotificationsTest, TheErrorTextDependsOnThePermissionAtThatMoment) {
  launch();
  app->showNotificationError();
  EXPECT_EQ(newest()->informativeText, "An error has occurred. Audio file was not created.");
  machine.capture.authorization = platform::AuthorizationStatus::kDenied;
  app->showNotificationError();
  EXPECT_EQ(newest()->informativeText,
            "Allow access to the microphone in the macOS Privacy settings.");
  EXPECT_FALSE(newest()->hasActionButton);
  EXPECT_THAT(newest()->userInfo, IsEmpty());
  EXPECT_EQ(newest()->soundName, platform::kUserNotificationDefaultSoundName);
  EXPECT_EQ(newest()->title, std::nullopt);
}

TEST_F(NotificationsTest, AllTextsAreTranslatedAndTheUserInfoIsNot) {
  auto& strings = machine.mainBundle.strings;
  strings = {{kStartedText, "started"}, {"Cancel", "cancel!"},  {kSavedText, "saved"},
             {"Open", "open!"},         {kUnsavedText, "lost"}, {kErrorText, "error"},
             {kPrivacyText, "privacy"}};
  launchAndRecord();
  EXPECT_EQ(newest()->informativeText, "started");
  EXPECT_EQ(newest()->actionButtonTitle, "cancel!");
  EXPECT_EQ(newest()->userInfo, (Dictionary{{"Cancel", "Cancel"}}));
  app->stopRecord();
  EXPECT_EQ(newest()->informativeText, "saved");
  EXPECT_EQ(newest()->actionButtonTitle, "open!");
  app->showNotificationRecordCompleated("");
  EXPECT_EQ(newest()->informativeText, "lost");
  app->showNotificationError();
  EXPECT_EQ(newest()->informativeText, "error");
  machine.capture.authorization = platform::AuthorizationStatus::kDenied;
  app->showNotificationError();
  EXPECT_EQ(newest()->informativeText, "privacy");
}

TEST_F(NotificationsTest, TheDelegateListensBeforeItDelivers) {
  launch();
  EXPECT_THAT(during([&] { app->showNotificationError(); }),
              ElementsAre("setDelegate", std::string("deliver ") + kErrorText));
  EXPECT_EQ(machine.userNotificationCenter.delegate.lock(), app);
}

TEST_F(NotificationsTest, NotificationsAreShownEvenWhileTheToolIsActive) {
  EXPECT_TRUE(app->userNotificationCenterShouldPresentNotification(
      machine.userNotificationCenter, std::make_shared<platform::UserNotification>()));
}

// Timers.

TEST_F(NotificationsTest, ATimerRemovesItsNotificationAfterTenSecondsAndTriesToQuit) {
  launch();
  app->showNotificationError();
  machine.runLoop.advance(9.999);
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText));
  EXPECT_THAT(during([&] { machine.runLoop.advance(0.001); }),
              ElementsAre(std::string("removeDelivered ") + kErrorText, kHideFromDock, "terminate",
                          kHideFromDock, "status 0", "event Quit"));
}

TEST_F(NotificationsTest, ATimerFiresOnce) {
  launch();
  app->showNotificationError();
  EXPECT_EQ(machine.runLoop.repeatingTimerCount(), 0U);
}

TEST_F(NotificationsTest, TheTimersMethodEndsTheTimer) {
  launchAndRecord();
  const auto timer = machine.runLoop.scheduledTimer(
      10, std::any(std::make_shared<platform::UserNotification>()), true, {});
  app->timerNotificationQuitMethod(timer);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(NotificationsTest, StartThenStopWithinTenSecondsQuitsTenSecondsAfterTheCompletion) {
  launchAndRecord();
  machine.runLoop.advance(6);
  clickDock();
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(NotificationsTest, TwoErrorsBothStayAndTheLaterOneDecidesTheQuit) {
  launch();
  app->showNotificationError();
  machine.runLoop.advance(4);
  app->showNotificationError();
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText, kErrorText));
  machine.runLoop.advance(6);
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText));
  EXPECT_FALSE(ended());
  machine.runLoop.advance(4);
  EXPECT_TRUE(ended());
}

// The delegate is not told of the removal.
TEST_F(NotificationsTest, ANotificationThatTheUserRemovedKeepsItsTimer) {
  launchAndRecord();
  clickDock();
  machine.userNotificationCenter.showing.clear();
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(NotificationsTest, RemovingAllGoesInOrderEndsTheTimersAndDoesNotQuit) {
  launch();
  app->showNotificationError();
  machine.capture.authorization = platform::AuthorizationStatus::kDenied;
  app->showNotificationError();
  EXPECT_THAT(during([&] { app->removeAllPreviousNotifications(); }),
              ElementsAre(std::string("removeDelivered ") + kErrorText,
                          std::string("removeDelivered ") + kPrivacyText));
  EXPECT_EQ(machine.runLoop.timerCount(), 0U);
  machine.runLoop.advance(60);
  EXPECT_FALSE(ended());
}

TEST_F(NotificationsTest, TheStartNotificationDisappearsByItselfWhileRecording) {
  launchAndRecord();
  machine.runLoop.advance(10);
  EXPECT_THAT(showingTexts(), IsEmpty());
  EXPECT_FALSE(ended());
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kRegular);
}

// Activation.

TEST_F(NotificationsTest, OpenOpensTheFileAndTheProcessStillQuitsInTime) {
  launchAndRecord();
  clickDock();
  activate(newest(), UserNotificationActivationType::kActionButtonClicked);
  EXPECT_THAT(machine.workspace.opened, ElementsAre(kFinalPath));
  EXPECT_THAT(machine.workspace.revealed, IsEmpty());
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(NotificationsTest, AClickOnTheCompletionRevealsTheFile) {
  launchAndRecord();
  clickDock();
  activate(newest(), UserNotificationActivationType::kContentsClicked);
  EXPECT_THAT(
      machine.workspace.revealed,
      ElementsAre(ElementsAre("file:///out/Audio%20recording%202024-05-17%20at%2014.03.27.m4a")));
  EXPECT_THAT(machine.workspace.opened, IsEmpty());
  EXPECT_FALSE(ended());
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(NotificationsTest, CancelInTheStartNotificationEndsTheRecordingWithoutItsFile) {
  launchAndRecord();
  machine.runLoop.advance(3);
  activate(newest(), UserNotificationActivationType::kActionButtonClicked);
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
  EXPECT_THAT(machine.fileManager.files, IsEmpty());
  EXPECT_EQ(machine.userNotificationCenter.delivered.size(), 1U);
  machine.runLoop.advance(6.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(NotificationsTest, AClickOnTheStartNotificationDoesNothing) {
  launchAndRecord();
  EXPECT_THAT(during([&] { activate(newest(), UserNotificationActivationType::kContentsClicked); }),
              IsEmpty());
  EXPECT_THAT(machine.workspace.revealed, IsEmpty());
}

TEST_F(NotificationsTest, AnyOtherActivationDoesNothing) {
  launchAndRecord();
  clickDock();
  EXPECT_THAT(during([&] { activate(newest(), UserNotificationActivationType::kNone); }),
              IsEmpty());
  EXPECT_THAT(during([&] { activate(newest(), static_cast<UserNotificationActivationType>(3)); }),
              IsEmpty());
  EXPECT_THAT(machine.workspace.revealed, IsEmpty());
}

TEST_F(NotificationsTest, TheButtonOfANotificationWithoutUserInfoDoesNothing) {
  launch();
  app->showNotificationError();
  EXPECT_THAT(
      during([&] { activate(newest(), UserNotificationActivationType::kActionButtonClicked); }),
      IsEmpty());
}

}  // namespace
}  // namespace record_audio
