// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

// What may happen while an alert is open, and what may not.

namespace record_audio {
namespace {

using platform::Dictionary;
using platform::TerminateReply;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr double kMinute_s = 60;

class AlertWaitTest : public AppTest {
 protected:
  void setMuted(bool muted) {
    machine.audioHardware.setValue(
        kMicrophone, memory_host::sideAddress(platform::kAudioDevicePropertyMute, true),
        std::uint32_t{muted});
  }
  // What the user and others do while the alert is open; one entry per alert.
  void meanwhile(std::function<void()> act) {
    machine.alerts.onShow = [act = std::move(act)](const platform::Alert&) { act(); };
  }
  // A recording of this process has just been saved, and its notification is still shown.
  void launchRecordAndSave() {
    launchAndRecord();
    clickDock();
    machine.runLoop.advance(1);
  }
  std::string state() const {
    std::string text;
    platform::stringValue(app->status().at("state"), &text);
    return text;
  }
};

// An alert that only the user closes.

TEST_F(AlertWaitTest, ANotificationThatExpiresMeanwhileDoesNotEndTheTool) {
  launchRecordAndSave();
  setMuted(true);
  meanwhile([&] {
    machine.runLoop.advance(kMinute_s);
    EXPECT_FALSE(ended());
    EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  });
  EXPECT_THAT(
      during([&] { clickDock(); }),
      ElementsAre(kShowInDock, "event Start", "alert Microphone muted", "dismissed", "setDelegate",
                  std::string("deliver ") + kErrorText, "event Stop", kHideFromDock));
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText)) << "what was due meanwhile is made up for";
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(),
            (Entries{"Launch", "Start", "Stop", "Start", "Stop", "Quit"}));
}

TEST_F(AlertWaitTest, TheToolQuitsAfterTheAlertAboutTheMissingDeviceNotDuringIt) {
  launchRecordAndSave();
  machine.capture.disconnect("mic-1");
  meanwhile([&] {
    machine.runLoop.advance(kMinute_s);
    EXPECT_FALSE(ended());
  });
  clickDock();
  EXPECT_FALSE(ended());
  machine.runLoop.settle();
  EXPECT_TRUE(ended());
}

TEST_F(AlertWaitTest, ARecoveredRecordingIsAnnouncedAfterwardsAndDelaysTheQuit) {
  machine.interruptedRecordings.add("Audio_recording_old", [] {
    platform::RecordingFindings findings;
    findings.contents = platform::RecordingFindings::Contents::kM4a;
    findings.duration_s = 1;
    findings.lastWritten = platform::Date(std::chrono::seconds(1'715'947'200));
    return findings;
  }());
  useSource(0);
  meanwhile([&] {
    machine.runLoop.advance(kMinute_s);
    EXPECT_THAT(machine.fileManager.files, SizeIs(1));
    EXPECT_THAT(showingTexts(), IsEmpty());
  });
  launch();
  EXPECT_THAT(showingTexts(), ElementsAre("An interrupted recording was recovered."));
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(AlertWaitTest, ThePermissionAnswerDoesNotOpenASecondAlert) {
  machine.capture.authorization = platform::AuthorizationStatus::kNotDetermined;
  launch();
  setMuted(true);
  machine.capture.authorization = platform::AuthorizationStatus::kAuthorized;
  meanwhile([&] {
    machine.capture.pendingRequests[0](true);
    machine.runLoop.settle();
  });
  clickDock();
  EXPECT_THAT(machine.alerts.shown, SizeIs(1));
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
}

TEST_F(AlertWaitTest, CancelInAnEarlierStartNotificationEndsNothing) {
  launchAndRecord();
  failRecording();
  const auto started = machine.userNotificationCenter.delivered.front();
  setMuted(true);
  meanwhile([&] {
    machine.userNotificationCenter.activate(
        started, platform::UserNotificationActivationType::kActionButtonClicked);
    EXPECT_EQ(state(), "refused");
  });
  EXPECT_THAT(
      during([&] { clickDock(); }),
      ElementsAre(kShowInDock, "event Start", "alert Microphone muted", "dismissed", "setDelegate",
                  std::string("deliver ") + kErrorText, "event Stop", kHideFromDock));
  EXPECT_THAT(machine.fileManager.files, SizeIs(1)) << "of the recording that failed";
}

TEST_F(AlertWaitTest, ARecordingGoesOnWhileAnAlertOfThePreferencesWaits) {
  launchAndRecord();
  platform::Alert alert;
  meanwhile([&] {
    machine.runLoop.advance(kMinute_s);
    EXPECT_EQ(state(), "recording");
    EXPECT_EQ(app->status().at("elapsedSeconds"), 60);
    EXPECT_TRUE(app->stop());
    EXPECT_THAT(machine.fileManager.journal, Contains(::testing::StartsWith("move ")));
  });
  machine.alerts.runModal(alert);
}

// Clicks and requests.

TEST_F(AlertWaitTest, AClickIsDropped) {
  for (const bool muted : {true, false}) {
    setMuted(muted);
    useSource(muted ? 1 : 0);
    const auto tool = AppDelegate::create(machine.environment);
    machine.application.delegate = tool.get();
    machine.alerts.shown.clear();
    meanwhile([&] {
      EXPECT_TRUE(tool->applicationShouldHandleReopen(false));
      tool->startRecorder();
      machine.runLoop.advance(1);
    });
    tool->applicationDidFinishLaunching();
    machine.runLoop.settle();
    EXPECT_THAT(machine.alerts.shown, SizeIs(1));
    EXPECT_THAT(machine.capture.sessions, IsEmpty());
    tool->removeAllPreviousNotifications();
    tool->applicationWillTerminate();
  }
  machine.application.delegate = app.get();
}

TEST_F(AlertWaitTest, TheStatusSaysWhichAlertIsOpen) {
  useSource(0);
  meanwhile([&] { EXPECT_EQ(state(), "no device"); });
  launch();
  ASSERT_THAT(machine.alerts.shown, SizeIs(1));
}

TEST_F(AlertWaitTest, TheStatusSaysThatTheStartIsRefused) {
  setMuted(true);
  meanwhile([&] { EXPECT_EQ(state(), "refused"); });
  launch();
  ASSERT_THAT(machine.alerts.shown, SizeIs(1));
  EXPECT_EQ(state(), "idle");
}

TEST_F(AlertWaitTest, ThereIsNothingToStopOrToCancel) {
  setMuted(true);
  meanwhile([&] {
    EXPECT_FALSE(app->stop());
    EXPECT_FALSE(app->cancel());
  });
  launch();
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
}

TEST_F(AlertWaitTest, AQuitDismissesTheAlertAndComesLast) {
  setMuted(true);
  meanwhile([&] {
    machine.application.terminate();
    machine.runLoop.advance(kMinute_s);
    EXPECT_FALSE(ended());
  });
  launch();
  EXPECT_FALSE(ended());
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Quit"}));
}

TEST_F(AlertWaitTest, AQuitAtTheAlertAboutTheMissingDeviceEndsTheToolOnce) {
  useSource(0);
  meanwhile([&] {
    EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kCancel);
    machine.application.terminate();
  });
  launch();
  machine.runLoop.settle();
  EXPECT_TRUE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Quit"}));
}

TEST_F(AlertWaitTest, ThePreferencesCanBeOpenedAndKeepTheToolRunning) {
  useSource(0);
  meanwhile([&] { app->application(kPreferencesPath); });
  launch();
  EXPECT_TRUE(window->visible);
  EXPECT_FALSE(ended());
  clickDone();
  EXPECT_TRUE(ended());
}

}  // namespace
}  // namespace record_audio
