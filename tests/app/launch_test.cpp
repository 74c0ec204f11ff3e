// SPDX-License-Identifier: MIT
#include <thread>

#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using platform::AuthorizationStatus;
using platform::Dictionary;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class LaunchTest : public AppTest {};

TEST_F(LaunchTest, HidesFromTheDockBeforeAnythingElse) {
  EXPECT_THAT(during([&] { app->applicationWillFinishLaunching(); }), ElementsAre(kHideFromDock));
  EXPECT_EQ(app->provider(), nullptr);
}

TEST_F(LaunchTest, RecordingModeTakesItsStepsInOrder) {
  EXPECT_THAT(during([&] { app->applicationDidFinishLaunching(); }),
              ElementsAre("disableRelaunchOnLogin", "createToolDataClientProvider", "status 1",
                          "locationForCurrentTool", kShowInDock, "event Launch", kShowInDock,
                          "event Start", "setApplicationIconImage ActiveIcon.icns",
                          "toolIcon KorvelIconOn", "menuIcon MenuIconOn", "menuText 00:00"));
  EXPECT_TRUE(app->running());
  EXPECT_FALSE(app->runWithPreferences());
  EXPECT_EQ(app->provider(), machine.suite.providers.back());
  EXPECT_EQ(machine.suite.events[0].details, std::nullopt);
}

TEST_F(LaunchTest, ShowsInTheDockAfterThePreferencesAndBeforeTheRecorderIsMade) {
  int shows = 0;
  machine.application.onPolicy = [&](platform::ActivationPolicy policy) {
    if (policy != platform::ActivationPolicy::kRegular || ++shows > 1) return;
    EXPECT_EQ(
        machine.notificationCenter.observerCount(platform::kCaptureDeviceWasConnectedNotification),
        1U);
    EXPECT_EQ(machine.dispatch.queue("com.vantrel.korvel.RecordAudio.EncodeQueue"), nullptr);
  };
  launch();
  EXPECT_GE(shows, 1);
  EXPECT_NE(machine.dispatch.queue("com.vantrel.korvel.RecordAudio.EncodeQueue"), nullptr);
}

TEST_F(LaunchTest, RecordingModeBeginsWithTheBlinkOff) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;  // so nothing is recorded
  machine.application.onPolicy = [&](platform::ActivationPolicy) { app->changeDockIcon(true); };
  launch();
  app->timerBlinkerMethod(nullptr);
  EXPECT_EQ(machine.application.iconName, "ActiveIcon.icns");
}

TEST_F(LaunchTest, RecordingModeNeverTouchesTheWindow) {
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
  EXPECT_THAT(machine.interfaceLoader.loaded, IsEmpty());
}

// There is no place for a recording, and the storage has logged why.
TEST_F(LaunchTest, EndsAtOnceWithoutMessageOrEventWhenThereIsNoOutputFolder) {
  machine.suite.location.reset();
  launch();
  EXPECT_TRUE(ended());
  EXPECT_FALSE(app->running());
  EXPECT_EQ(app->preferences(), nullptr);
  EXPECT_THAT(machine.suite.events, IsEmpty());
  EXPECT_THAT(machine.alerts.shown, IsEmpty());
  EXPECT_THAT(machine.userNotificationCenter.delivered, IsEmpty());
  EXPECT_EQ(provider().status, 0);
  EXPECT_THAT(machine.capture.sessions, IsEmpty());
}

TEST_F(LaunchTest, WithoutAFolderLaterRequestsFindNothingToWorkWith) {
  machine.suite.location.reset();
  launch();
  EXPECT_TRUE(app->application(kPreferencesPath));
  EXPECT_TRUE(app->applicationShouldHandleReopen(false));
  EXPECT_FALSE(app->stop());
  EXPECT_FALSE(app->cancel());
  EXPECT_THAT(machine.interfaceLoader.loaded, IsEmpty());
}

TEST_F(LaunchTest, RecordsIntoTheToolsOutputFolder) {
  machine.suite.location = "/music/out";
  machine.fileManager.folders.insert("/music/out");
  launchAndRecord();
  app->stopRecord();
  ASSERT_EQ(machine.userNotificationCenter.showing.size(), 1U);
  const auto& userInfo = machine.userNotificationCenter.showing[0]->userInfo;
  EXPECT_EQ(userInfo.at("OpenPath"), "/music/out/Audio recording 2024-05-17 at 14.03.27.m4a");
}

TEST_F(LaunchTest, PreferencesRequestBeforeLaunchCompletesChoosesPreferencesMode) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  app->applicationWillFinishLaunching();
  EXPECT_TRUE(app->application(kPreferencesPath));
  EXPECT_TRUE(app->runWithPreferences());
  const Entries entries = during([&] { app->applicationDidFinishLaunching(); });
  EXPECT_THAT(entries,
              ElementsAre("disableRelaunchOnLogin", "createToolDataClientProvider", "status 1",
                          "locationForCurrentTool", kShowInDock, "event Launch", kShowInDock,
                          "loadWindow AudioPreferencesWindow", "activateIgnoringOtherApps YES"));
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Preferences", true}}));
  EXPECT_TRUE(window->visible);
  EXPECT_THAT(machine.capture.pendingRequests, IsEmpty());
  EXPECT_THAT(machine.capture.sessions, IsEmpty());
  EXPECT_FALSE(ended());
}

TEST_F(LaunchTest, TheBareToolIdentifierIsAPreferencesRequest) {
  launch({suite::kToolIdentifier});
  EXPECT_TRUE(window->visible);
}

// The answer says only that the request has arrived.
TEST_F(LaunchTest, AnyOtherPathIsAnsweredYesAndHasNoEffect) {
  launch({std::string(kPreferencesPath) + "/", "/tmp/song.mp3", ""});
  EXPECT_FALSE(app->runWithPreferences());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
  EXPECT_THAT(during([&] { EXPECT_TRUE(app->application("/tmp/song.mp3")); }), IsEmpty());
}

TEST_F(LaunchTest, SystemAudioWithoutALoadedDriverOpensThePreferences) {
  useSource(3);
  launch();
  EXPECT_TRUE(window->visible);
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Preferences", true}}));
  EXPECT_EQ(app->audioWaiter(), nullptr);
}

TEST_F(LaunchTest, SystemAudioWithATooOldDriverOpensThePreferences) {
  useSource(3);
  plugLoopbackDriver("1.0.2");
  launch();
  EXPECT_TRUE(window->visible);
}

TEST_F(LaunchTest, SystemAudioWithALoadedDriverIsRecorded) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  EXPECT_FALSE(windowLoaded());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch"}));
  EXPECT_NE(app->audioWaiter(), nullptr);
}

TEST_F(LaunchTest, PreferencesModeEndsByItselfOnAMachineWithoutAScreen) {
  hasScreen = false;
  launchIntoPreferences();
  EXPECT_TRUE(app->application(kPreferencesPath));
  EXPECT_FALSE(windowLoaded());
  machine.runLoop.settle();
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Quit"}));
}

TEST_F(LaunchTest, DoneInThePreferencesEndsTheProcess) {
  launchIntoPreferences();
  EXPECT_FALSE(ended());
  clickDone();
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Quit"}));
}

// Microphone permission.

TEST_F(LaunchTest, UndeterminedPermissionAsksAndShowsNothingOfItsOwn) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  EXPECT_EQ(machine.capture.pendingRequests.size(), 1U);
  machine.runLoop.advance(60);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch"}));
  EXPECT_THAT(machine.userNotificationCenter.delivered, IsEmpty());
  EXPECT_FALSE(ended());
}

TEST_F(LaunchTest, TheAnswerFromAnotherThreadIsActedUponOnTheMainQueue) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  machine.capture.authorization = AuthorizationStatus::kAuthorized;
  std::thread([&] { machine.capture.pendingRequests[0](true); }).join();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch"}));
  machine.runLoop.settle();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

TEST_F(LaunchTest, RefusalShowsThePrivacyTextAndQuitsTenSecondsLater) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  machine.capture.authorization = AuthorizationStatus::kDenied;
  machine.capture.pendingRequests[0](false);
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kPrivacyText));
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kProhibited);
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
  EXPECT_THAT(machine.capture.sessions, IsEmpty());
}

// The user may have changed the permission since the answer.
TEST_F(LaunchTest, TheStatusAtTheTimeOfActingCountsNotTheAnswer) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  machine.capture.authorization = AuthorizationStatus::kRestricted;
  machine.capture.pendingRequests[0](true);
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kPrivacyText));
}

TEST_F(LaunchTest, ARefusalAfterAClickIsShownAndLeavesTheRecordingAlone) {
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  clickDock();
  confirmStart();
  machine.capture.authorization = AuthorizationStatus::kDenied;
  machine.capture.pendingRequests[0](false);
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText, kPrivacyText));
  EXPECT_EQ(app->status().at("state"), "recording");
  EXPECT_FALSE(app->hasFailedRecording());
}

TEST_F(LaunchTest, ARefusalAfterAClickLeavesTheWaitAlone) {
  useSource(3);
  plugLoopbackDriver();
  loopbackAppears = false;
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  clickDock();
  machine.capture.authorization = AuthorizationStatus::kDenied;
  machine.capture.pendingRequests[0](false);
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kPrivacyText));
  EXPECT_EQ(app->status().at("state"), "waiting");
}

TEST_F(LaunchTest, AnEarlierDenialIsReportedWithoutAsking) {
  machine.capture.authorization = AuthorizationStatus::kDenied;
  EXPECT_THAT(during([&] { launch(); }),
              ElementsAre(kHideFromDock, "disableRelaunchOnLogin", "createToolDataClientProvider",
                          "status 1", "locationForCurrentTool", kShowInDock, "event Launch",
                          "setDelegate", std::string("deliver ") + kPrivacyText, kHideFromDock));
  EXPECT_THAT(machine.capture.pendingRequests, IsEmpty());
  EXPECT_TRUE(app->hasFailedRecording());
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(LaunchTest, ASystemWithoutPermissionsRecordsAtOnce) {
  machine.capture.hasPermissions = false;
  machine.capture.authorization = AuthorizationStatus::kNotDetermined;
  launch();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

// A preferences request to the running tool.

TEST_F(LaunchTest, PreferencesRequestWhileRecordingSavesAndBringsTheWindowForward) {
  launchAndRecord();
  const Entries entries = during([&] { EXPECT_TRUE(app->application(kPreferencesPath)); });
  EXPECT_THAT(entries.front(), StartsWith("move "));
  EXPECT_EQ(entries.back(), "loadWindow AudioPreferencesWindow");
  EXPECT_THAT(entries, ::testing::Not(::testing::Contains("activateIgnoringOtherApps YES")));
  EXPECT_THAT(window->journal, ElementsAre("orderFront"));
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));

  EXPECT_FALSE(app->canQuit());
  machine.runLoop.advance(60);
  EXPECT_FALSE(ended());
  clickDone();
  EXPECT_TRUE(ended());
}

TEST_F(LaunchTest, PreferencesRequestWhileWaitingEndsTheWait) {
  useSource(3);
  plugLoopbackDriver();
  loopbackAppears = false;
  launch();
  app->application(kPreferencesPath);
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(lastEvent().name, "Stop");
  EXPECT_THAT(window->journal, ElementsAre("orderFront"));
}

// Until the recorder confirms there is nothing to save.
TEST_F(LaunchTest, PreferencesRequestWhileStartingBringsTheWindowForwardAndLetsItRecord) {
  launch();
  ASSERT_EQ(app->status().at("state"), "starting");
  EXPECT_THAT(during([&] { app->application(kPreferencesPath); }),
              ElementsAre(kShowInDock, "loadWindow AudioPreferencesWindow"));
  EXPECT_THAT(window->journal, ElementsAre("orderFront"));
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(app->status().at("state"), "recording");
}

TEST_F(LaunchTest, PreferencesRequestWhileIdleShowsTheDockIconAndTheWindow) {
  launchAndRecord();
  clickDock();
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kProhibited);
  EXPECT_THAT(during([&] { app->application(kPreferencesPath); }),
              ElementsAre(kShowInDock, "loadWindow AudioPreferencesWindow"));
  EXPECT_THAT(window->journal, ElementsAre("orderFront"));
}

// The Dock click, or a second start.

TEST_F(LaunchTest, DockClickOnlyBringsAVisibleWindowToTheFront) {
  launchIntoPreferences();
  window->journal.clear();
  EXPECT_THAT(during([&] { EXPECT_TRUE(app->applicationShouldHandleReopen(true)); }), IsEmpty());
  EXPECT_THAT(window->journal, ElementsAre("orderFrontRegardless"));
}

TEST_F(LaunchTest, DockClickWhileRecordingOnlyRaisesAVisibleWindow) {
  launchAndRecord();
  app->preferences()->showWindow();
  window->journal.clear();
  EXPECT_THAT(during([&] { clickDock(); }), IsEmpty());
  EXPECT_THAT(window->journal, ElementsAre("orderFrontRegardless"));
  EXPECT_EQ(app->status().at("state"), "recording");
}

TEST_F(LaunchTest, DockClickWhileRecordingStopsAndQuitsTenSecondsLater) {
  launchAndRecord();
  machine.runLoop.advance(30);
  EXPECT_TRUE(app->applicationShouldHandleReopen(false));
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kProhibited);
  machine.runLoop.advance(9.99);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.01);
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Quit"}));
}

TEST_F(LaunchTest, SecondDockClickBeforeTheProcessHasQuitStartsANewRecording) {
  launchAndRecord();
  app->application(kPreferencesPath);
  machine.runLoop.advance(3);
  clickDone();
  clickDock();
  EXPECT_EQ(lastEvent().name, "Start");
  confirmStart();
  machine.runLoop.advance(60);
  EXPECT_FALSE(ended());
  EXPECT_EQ(app->status().at("state"), "recording");
}

TEST_F(LaunchTest, DockClickWithTheWindowHiddenInPreferencesModeStartsARecording) {
  launchIntoPreferences();
  window->orderOut();
  clickDock();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

TEST_F(LaunchTest, ASecondStartInTheMiddleOfTheLaunchIsAnsweredYesAndIgnored) {
  app->applicationWillFinishLaunching();
  EXPECT_THAT(during([&] { EXPECT_TRUE(app->applicationShouldHandleReopen(false)); }), IsEmpty());
  app->applicationDidFinishLaunching();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

TEST_F(LaunchTest, AQuitInTheMiddleOfTheLaunchIsAnsweredNowAndLogsNothing) {
  app->applicationWillFinishLaunching();
  EXPECT_EQ(app->applicationShouldTerminate(), platform::TerminateReply::kNow);
  app->applicationWillTerminate();
  EXPECT_THAT(machine.suite.events, IsEmpty());
}

}  // namespace
}  // namespace record_audio
