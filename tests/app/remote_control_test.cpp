// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"
#include "tests/memory_host/memory_controls.h"

namespace record_audio {
namespace {

using platform::Dictionary;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class RemoteControlTest : public AppTest {
 protected:
  std::string state() const {
    std::string text;
    platform::stringValue(app->status().at("state"), &text);
    return text;
  }
};

// Stop and cancel.

TEST_F(RemoteControlTest, StopWhileRecordingSavesAndQuits) {
  launchAndRecord();
  EXPECT_TRUE(app->stop());
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kProhibited);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(RemoteControlTest, CancelWhileRecordingRemovesTheFile) {
  launchAndRecord();
  EXPECT_TRUE(app->cancel());
  EXPECT_THAT(machine.fileManager.files, IsEmpty());
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
}

TEST_F(RemoteControlTest, ThereIsNothingToEndInThePreferencesOrWhenIdle) {
  launchIntoPreferences();
  EXPECT_FALSE(app->stop());
  EXPECT_FALSE(app->cancel());
  window->orderOut();
  EXPECT_FALSE(app->stop());
  EXPECT_FALSE(app->cancel());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch"}));
}

TEST_F(RemoteControlTest, StopWhileWaitingEndsTheWait) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  EXPECT_TRUE(app->stop());
  EXPECT_EQ(app->audioWaiter(), nullptr);
  machine.runLoop.advance(10);
  EXPECT_THAT(machine.capture.sessions, IsEmpty());
  EXPECT_TRUE(ended());
}

TEST_F(RemoteControlTest, CancelTakesTheStartNotificationAwayAtOnceAndKeepsItsTimer) {
  launchAndRecord();
  machine.runLoop.advance(3);
  EXPECT_TRUE(app->cancel());
  EXPECT_THAT(showingTexts(), IsEmpty());
  machine.runLoop.advance(6.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(RemoteControlTest, CancelLeavesOtherNotificationsOnTheScreen) {
  launchAndRecord();
  app->showNotificationError();
  EXPECT_TRUE(app->cancel());
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText));
}

TEST_F(RemoteControlTest, CancelWhileWaitingQuitsAtOnce) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  EXPECT_TRUE(app->cancel());
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(state(), "idle");
  EXPECT_TRUE(ended());
}

TEST_F(RemoteControlTest, CancelWhileWaitingKeepsTheFileOfAnEarlierRecording) {
  launchAndRecordSystemAudio();
  clickDock();
  clickDock();
  ASSERT_EQ(state(), "waiting");
  EXPECT_TRUE(app->cancel());
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
  EXPECT_EQ(machine.fileManager.files.size(), 1U);
  EXPECT_THAT(machine.fileManager.journal, Not(Contains(StartsWith("remove "))));
}

TEST_F(RemoteControlTest, StopBeforeTheConfirmationSavesWhatTheConfirmedStartBrings) {
  launch();
  ASSERT_EQ(state(), "starting");
  EXPECT_TRUE(app->stop());
  EXPECT_TRUE(app->stop());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
  machine.runLoop.advance(0.1);
  confirmStart();
  EXPECT_EQ(state(), "recording") << "the samples are delivered after the confirmation";
  machine.runLoop.settle();
  EXPECT_EQ(state(), "idle");
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  EXPECT_EQ(detail("Duration"), platform::Value(std::int64_t{100}));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(RemoteControlTest, CancelBeforeTheConfirmationLeavesNoFile) {
  launch();
  EXPECT_TRUE(app->cancel());
  confirmStart();
  machine.runLoop.settle();
  EXPECT_THAT(machine.fileManager.files, IsEmpty());
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
}

TEST_F(RemoteControlTest, TheLatestRequestBeforeTheConfirmationCounts) {
  launch();
  EXPECT_TRUE(app->cancel());
  EXPECT_TRUE(app->stop());
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(machine.fileManager.files.size(), 1U);
}

TEST_F(RemoteControlTest, StopOfAStartThatIsNeverConfirmedTakesEffectWithinABound) {
  machine.capture.refuseInput = true;
  launch();
  EXPECT_TRUE(app->stop());
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s - 0.1);
  EXPECT_EQ(state(), "starting");
  machine.runLoop.advance(0.1);
  EXPECT_EQ(state(), "idle");
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
  EXPECT_EQ(provider().menuText, "");
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

// A host tries to connect twice, for five seconds each, with a pause in between.
TEST_F(RemoteControlTest, AStopWaitsForTheSecondTryOfAStart) {
  launch();
  EXPECT_TRUE(app->stop());
  machine.runLoop.advance(11);
  EXPECT_EQ(state(), "starting");
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(state(), "idle");
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
}

TEST_F(RemoteControlTest, CancelOfAStartThatIsNeverConfirmedKeepsEarlierFiles) {
  launchAndRecord();
  clickDock();
  clickDock();
  EXPECT_TRUE(app->cancel());
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  EXPECT_EQ(state(), "idle");
  EXPECT_EQ(machine.suite.eventNames(),
            (Entries{"Launch", "Start", "Stop", "Start", "Stop", "Quit"}));
  EXPECT_EQ(machine.suite.events.at(4).details, (Dictionary{{"Canceled", true}}));
  EXPECT_EQ(machine.fileManager.files.size(), 1U);
}

TEST_F(RemoteControlTest, AConfirmationAfterTheBoundIsStillEnded) {
  launch();
  app->stop();
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(state(), "idle");
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
}

TEST_F(RemoteControlTest, TheErrorOfAnAbandonedStartIsNotReportedAgain) {
  launch();
  app->stop();
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  ASSERT_EQ(state(), "idle");
  EXPECT_THAT(during([&] { failRecording(); }), IsEmpty());
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
}

TEST_F(RemoteControlTest, AnErrorInsteadOfTheConfirmationEndsTheSessionOnce) {
  launch();
  app->stop();
  failRecording();
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Error", true}}));
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Quit"}));
}

TEST_F(RemoteControlTest, ARecordingEndedOtherwiseMeanwhileIsNotEndedTwice) {
  launch();
  app->stop();
  confirmStart();
  app->application(kPreferencesPath);
  machine.runLoop.settle();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
}

TEST_F(RemoteControlTest, AClickBetweenTheConfirmationAndThePendingStopCountsToo) {
  launch();
  clickDock();
  confirmStart();
  ASSERT_EQ(state(), "recording");
  clickDock();
  machine.runLoop.settle();
  EXPECT_EQ(state(), "recording");
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

TEST_F(RemoteControlTest, ANewStartForgetsTheRequestToEndTheLastOne) {
  launch();
  app->stop();
  clickDock();
  confirmStart();
  machine.runLoop.advance(30);
  EXPECT_EQ(state(), "recording");
}

// An earlier recording's file is not reported as the result of a later session.

TEST_F(RemoteControlTest, StoppingAWaitDoesNotReportTheFileOfAnEarlierRecording) {
  launchAndRecordSystemAudio();
  clickDock();
  ASSERT_TRUE(app->status().contains("outputFile"));
  clickDock();
  ASSERT_EQ(state(), "waiting");
  EXPECT_TRUE(app->stop());
  EXPECT_FALSE(app->status().contains("outputFile"));
}

TEST_F(RemoteControlTest, StoppingAnUnconfirmedStartDoesNotReportTheFileOfAnEarlierRecording) {
  launchAndRecord();
  clickDock();
  clickDock();
  ASSERT_EQ(state(), "starting");
  EXPECT_TRUE(app->stop());
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  EXPECT_EQ(state(), "idle");
  EXPECT_FALSE(app->status().contains("outputFile"));
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
}

TEST_F(RemoteControlTest, ARefusedStartRemovesTheEarlierFileFromTheStatusToo) {
  launchAndRecord();
  clickDock();
  machine.audioHardware.removeObject(kMicrophone);
  clickDock();
  EXPECT_EQ(state(), "idle");
  EXPECT_FALSE(app->status().contains("outputFile"));
}

// A chosen microphone that is missing.

TEST_F(RemoteControlTest, StatusAndLogSayWhichMicrophoneStandsInForTheMissingOne) {
  machine.userDefaults.values = {{"AudioSourceType", 2}, {"AudioSourceID", "mic-9"}};
  launchAndRecord();
  const Dictionary status = app->status();
  EXPECT_EQ(status.at("source"), "microphone:mic-1");
  EXPECT_EQ(status.at("sourceName"), "Desk microphone");
  EXPECT_EQ(status.at("absentSource"), "microphone:mic-9");
  EXPECT_THAT(machine.suite.logLines,
              ElementsAre(HasSubstr("mic-9 is missing; Desk microphone (mic-1) is recorded")));
  clickDock();
  EXPECT_EQ(app->status().at("source"), "microphone:mic-9");
  EXPECT_FALSE(app->status().contains("absentSource"));
}

TEST_F(RemoteControlTest, AMicrophoneThatIsBackIsNoLongerMissed) {
  machine.userDefaults.values = {{"AudioSourceType", 2}, {"AudioSourceID", "mic-9"}};
  launchAndRecord();
  clickDock();
  machine.audioHardware.addDevice(11, "mic-9");
  machine.audioHardware.setStreamConfiguration(11, true, {1});
  machine.capture.connect("mic-9", "Headset");
  clickDock();
  confirmStart();
  EXPECT_EQ(app->status().at("source"), "microphone:mic-9");
  EXPECT_FALSE(app->status().contains("absentSource"));
  EXPECT_FALSE(app->status().contains("sourceName"));
}

TEST_F(RemoteControlTest, AConnectedMicrophoneIsNotMentioned) {
  machine.userDefaults.values = {{"AudioSourceType", 2}, {"AudioSourceID", "mic-1"}};
  launchAndRecord();
  EXPECT_EQ(app->status().at("source"), "microphone:mic-1");
  EXPECT_FALSE(app->status().contains("sourceName"));
  EXPECT_THAT(machine.suite.logLines, IsEmpty());
}

TEST_F(RemoteControlTest, EveryStateChangeIsReported) {
  Entries states;
  app->setOnStateChange([&] {
    if (states.empty() || states.back() != state()) states.push_back(state());
  });
  useSource(3);
  plugLoopbackDriver();
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
  app->stop();
  EXPECT_THAT(states, ElementsAre("waiting", "starting", "recording", "idle"));
}

// Clicks.

TEST_F(RemoteControlTest, AClickWhileStartingStopsAsSoonAsThereIsSomethingToSave) {
  launch();
  clickDock();
  EXPECT_EQ(state(), "starting");
  EXPECT_EQ(provider().menuText, "00:00");
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(state(), "idle");
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
}

TEST_F(RemoteControlTest, InABurstTheNumberOfClicksDecides) {
  launchAndRecord();
  for (const int clicks : {2, 3, 4, 5, 500, 501}) {
    ASSERT_EQ(state(), "recording");
    for (int i = 0; i < clicks; ++i) clickDock();
    if (state() == "starting") confirmStart();
    machine.runLoop.settle();
    EXPECT_EQ(state(), clicks % 2 == 0 ? "recording" : "idle") << clicks;
    if (state() == "recording") continue;
    clickDock();
    confirmStart();
    machine.runLoop.settle();
  }
}

TEST_F(RemoteControlTest, AStartRequestedTwiceIsLoggedOnce) {
  launch();
  clickDock();
  clickDock();
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(state(), "recording");
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
}

TEST_F(RemoteControlTest, ThePermissionAnswerDoesNotStartAgainWhatAClickHasStarted) {
  machine.capture.authorization = platform::AuthorizationStatus::kNotDetermined;
  launch();
  clickDock();
  confirmStart();
  machine.runLoop.advance(3);
  machine.capture.authorization = platform::AuthorizationStatus::kAuthorized;
  machine.capture.pendingRequests[0](true);
  machine.runLoop.settle();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start"}));
  EXPECT_EQ(app->status().at("elapsedSeconds"), 3);
}

// Status.

TEST_F(RemoteControlTest, BeforeTheLaunchTheToolIsIdle) {
  EXPECT_EQ(app->status(), (Dictionary{{"state", "idle"}, {"elapsedSeconds", 0}}));
}

TEST_F(RemoteControlTest, StatusFollowsARecordingFromStartToEnd) {
  launch();
  EXPECT_EQ(
      app->status(),
      (Dictionary{
          {"state", "starting"}, {"elapsedSeconds", 0}, {"source", "default"}, {"format", "m4a"}}));
  confirmStart();
  machine.runLoop.advance(61.9);
  EXPECT_EQ(app->status(), (Dictionary{{"state", "recording"},
                                       {"elapsedSeconds", 61},
                                       {"source", "default"},
                                       {"format", "m4a"},
                                       {"outputFile", "/tmp-of-memory/Audio_recording_unique-1"}}));
  clickDock();
  EXPECT_EQ(app->status(),
            (Dictionary{{"state", "idle"},
                        {"elapsedSeconds", 0},
                        {"source", "default"},
                        {"format", "m4a"},
                        {"outputFile", "/out/Audio recording 2024-05-17 at 14.03.27.m4a"}}));
}

TEST_F(RemoteControlTest, StatusNamesNoFileAfterACancelOrAFailedSave) {
  launchAndRecord();
  EXPECT_TRUE(app->cancel());
  EXPECT_FALSE(app->status().contains("outputFile")) << "after a cancel";
  clickDock();
  confirmStart();
  EXPECT_TRUE(app->status().contains("outputFile"));
  machine.fileManager.failMove = "read-only";
  EXPECT_TRUE(app->stop());
  EXPECT_FALSE(app->status().contains("outputFile")) << "after a save that failed";
}

// The Cancel button of an earlier notification may be clicked while the next start is unconfirmed.
TEST_F(RemoteControlTest, StatusNamesTheSavedFileOfAStartThatIsConfirmedAfterACancel) {
  launchAndRecord();
  clickDock();
  clickDock();
  ASSERT_EQ(state(), "starting");
  app->cancelRecord();
  confirmStart();
  ASSERT_EQ(state(), "recording");
  EXPECT_TRUE(app->stop());
  EXPECT_TRUE(app->status().contains("outputFile"));
}

TEST_F(RemoteControlTest, StatusNamesTheWaitForTheLoopback) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  EXPECT_EQ(
      app->status(),
      (Dictionary{
          {"state", "waiting"}, {"elapsedSeconds", 0}, {"source", "system"}, {"format", "m4a"}}));
}

TEST_F(RemoteControlTest, StatusNamesTheChosenMicrophoneAndFormat) {
  machine.userDefaults.values = {
      {"AudioSourceType", 2}, {"AudioSourceID", "mic-1"}, {"SoundFormat", 1}};
  launchIntoPreferences();
  EXPECT_EQ(app->status(), (Dictionary{{"state", "preferences"},
                                       {"elapsedSeconds", 0},
                                       {"source", "microphone:mic-1"},
                                       {"format", "mp3"}}));
}

TEST_F(RemoteControlTest, AnUnknownSourceCountsAsNone) {
  for (const int type : {0, 7}) {
    useSource(type);
    const auto tool = AppDelegate::create(machine.environment);
    tool->application(kPreferencesPath);
    tool->applicationDidFinishLaunching();
    EXPECT_EQ(tool->status().at("source"), "none") << type;
    tool->applicationWillTerminate();
  }
}

TEST_F(RemoteControlTest, ChangedPreferencesDoNotChangeTheSessionUnderWay) {
  launchAndRecord();
  app->preferences()->setAudioParameterType(0, "", "KCNoSound");
  EXPECT_EQ(app->status().at("source"), "default");
  clickDock();
  EXPECT_EQ(app->status().at("source"), "none");
}

TEST_F(RemoteControlTest, RecordingIsReportedWhileThePreferencesAreVisible) {
  launchAndRecord();
  app->preferences()->showWindow();
  EXPECT_EQ(state(), "recording");
}

// The preferences window's level meter.

TEST_F(RemoteControlTest, TheLevelMeterKeepsItsHandsOffTheDevicesDuringASession) {
  const auto level = std::make_shared<memory_host::MemoryLevelIndicator>();
  machine.interfaceLoader.recipe = [&](const std::string&, platform::InterfaceOwner& owner) {
    owner.connectOutlet("audioLevel", level);
    return window = std::make_shared<memory_host::MemoryWindow>();
  };
  launchIntoPreferences();
  const auto listening = [&] {
    machine.runLoop.advance(2);
    return machine.capture.monitoringSessions.back()->running;
  };
  EXPECT_TRUE(listening());
  app->startRecorder();
  EXPECT_FALSE(listening()) << "starting";
  confirmStart();
  EXPECT_FALSE(listening()) << "recording";
  app->stopRecord();
  EXPECT_TRUE(listening()) << "idle";
}

}  // namespace
}  // namespace record_audio
