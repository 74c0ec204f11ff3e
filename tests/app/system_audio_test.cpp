// SPDX-License-Identifier: MIT
#include "routing/audio_play_through.h"
#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using platform::Dictionary;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class SystemAudioTest : public AppTest {
 protected:
  SystemAudioTest() {
    useSource(3);
    plugLoopbackDriver();
  }
  bool playsOn(platform::AudioDeviceID device) {
    return machine.audioUnits.graphRunning() &&
           machine.audioUnits.number(memory_host::UnitKind::kOutput,
                                     platform::kAudioOutputUnitProperty_CurrentDevice,
                                     platform::kAudioUnitScope_Global, 0) == device;
  }
  // The user is told without a sound, which would be recorded. The log says why.
  void expectNotHeard(const std::string& logged) {
    EXPECT_THAT(showingTexts(),
                ElementsAre("The sound is recorded, but you will not hear it.", kStartedText));
    EXPECT_EQ(machine.userNotificationCenter.showing.at(0)->soundName, std::nullopt);
    EXPECT_THAT(
        machine.suite.logLines,
        ElementsAre(::testing::EndsWith("The computer's sound is recorded, but it " + logged)));
  }
  static std::string cannotBePlayed(platform::OSStatus status) {
    return "cannot be played on the device 30 (status " + std::to_string(status) + ").";
  }
  void launchWithoutLoopback() {
    loopbackAppears = false;
    launch();
  }
};

TEST_F(SystemAudioTest, NothingHappensUntilTheWaiterAnswers) {
  EXPECT_THAT(during([&] { app->applicationDidFinishLaunching(); }),
              ElementsAre("disableRelaunchOnLogin", "createToolDataClientProvider", "status 1",
                          "locationForCurrentTool", kShowInDock, "event Launch", kShowInDock,
                          "show loopback"));
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
  EXPECT_FALSE(app->canQuit());
}

TEST_F(SystemAudioTest, TheLoopbackIsRecordedAndPlayedOnThePreviousOutput) {
  launch();
  EXPECT_THAT(
      during([&] { machine.runLoop.advance(0.01); }),
      ElementsAre("default output 20", "event Start", "setApplicationIconImage ActiveIcon.icns",
                  "toolIcon KorvelIconOn", "menuIcon MenuIconOn", "menuText 00:00"));
  EXPECT_EQ(app->audioWaiter(), nullptr);
  ASSERT_NE(app->audioPlayThrough(), nullptr);
  EXPECT_TRUE(machine.audioUnits.graphRunning());
  EXPECT_EQ(machine.audioUnits.number(memory_host::UnitKind::kOutput,
                                      platform::kAudioOutputUnitProperty_CurrentDevice,
                                      platform::kAudioUnitScope_Global, 0),
            kSpeakers);
  EXPECT_EQ(machine.capture.sessions.at(0)->inputs().at(0)->device()->uniqueID(),
            kLoopbackDeviceUID);
}

TEST_F(SystemAudioTest, StopDisposesOfThePlayThroughAndHidesTheLoopbackLast) {
  launchAndRecordSystemAudio();
  const Entries entries = during([&] { app->internalStop(); });
  ASSERT_GE(entries.size(), 2U);
  EXPECT_EQ(entries[entries.size() - 2], "menuText ");
  EXPECT_EQ(entries.back(), "hide loopback");
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
  EXPECT_FALSE(machine.audioUnits.graphRunning());
  EXPECT_EQ(machine.audioUnits.livingUnits(), 0U);
  EXPECT_EQ(machine.audioUnits.livingGraphs(), 0U);
  EXPECT_EQ(machine.audioHardware.defaultOutput(), kLoopback) << "never written back";
}

TEST_F(SystemAudioTest, CancelHidesTheLoopbackToo) {
  launchAndRecordSystemAudio();
  EXPECT_THAT(during([&] { app->cancelRecord(); }), Contains("hide loopback"));
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
}

TEST_F(SystemAudioTest, AStopWithoutAPlayThroughLeavesTheLoopbackAlone) {
  useSource(1);
  launchAndRecord();
  EXPECT_THAT(during([&] { app->stopRecord(); }), Not(Contains("hide loopback")));
}

// Played into itself, the loopback would feed back.
TEST_F(SystemAudioTest, ThePlayThroughIsNotStartedWhenTheLoopbackWasTheDefaultOutputAlready) {
  machine.audioHardware.setDefaultOutput(kLoopback);
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
  ASSERT_NE(app->audioPlayThrough(), nullptr);
  EXPECT_THAT(machine.audioUnits.calls, IsEmpty());
  EXPECT_THAT(during([&] { app->stopRecord(); }), Contains("hide loopback"));
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
}

TEST_F(SystemAudioTest, RecordingGoesOnWhenThePlayThroughCannotBeConfigured) {
  machine.audioHardware.fail(kSpeakers, platform::kAudioDevicePropertySafetyOffset,
                             platform::kAudioDevicePropertyScopeOutput, -1);
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
  EXPECT_EQ(app->status().at("state"), "recording");
  expectNotHeard(cannotBePlayed(platform::kAudioHardwareBadObjectError));
}

// The play-through starts all the same.
TEST_F(SystemAudioTest, RecordingGoesOnWhenAPropertyOfTheLoopbackCannotBeRead) {
  machine.audioHardware.fail(kLoopback, platform::kAudioDevicePropertySafetyOffset,
                             platform::kAudioDevicePropertyScopeInput, -1);
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
  EXPECT_TRUE(playsOn(kSpeakers));
  expectNotHeard(
      "may not be heard on the device 30: a property of that device or of the loopback device "
      "cannot be read.");
}

TEST_F(SystemAudioTest, RecordingGoesOnWhenThePlayThroughCannotBeStarted) {
  machine.audioUnits.removeComponent(memory_host::UnitKind::kInput);
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
  EXPECT_EQ(app->status().at("state"), "recording");
  EXPECT_NE(app->audioPlayThrough(), nullptr);
  expectNotHeard(cannotBePlayed(platform::kAudioHardwareUnspecifiedError));
}

TEST_F(SystemAudioTest, ThereIsNoNoticeAboutAPlayThroughThatWorks) {
  launchAndRecordSystemAudio();
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText));
  EXPECT_THAT(machine.suite.logLines, IsEmpty());
}

TEST_F(SystemAudioTest, ALoopbackThatNeverAppearsEndsInTheErrorAndTheQuit) {
  launchWithoutLoopback();
  machine.runLoop.advance(2);
  EXPECT_NE(app->audioWaiter(), nullptr);
  EXPECT_THAT(during([&] { machine.runLoop.advance(0.02); }),
              ElementsAre("hide loopback", "setDelegate", std::string("deliver ") + kErrorText,
                          "event Stop", kHideFromDock));
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Error", true}}));
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Stop"}));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(SystemAudioTest, ARefusedStartTearsThePlayThroughDownFirst) {
  launch();
  machine.audioHardware.setValue(kLoopback,
                                 memory_host::sideAddress(platform::kAudioDevicePropertyMute, true),
                                 std::uint32_t{1});
  EXPECT_THAT(during([&] { machine.runLoop.advance(0.01); }),
              ElementsAre("default output 20", "event Start", "alert Microphone muted", "dismissed",
                          "hide loopback", "setDelegate", std::string("deliver ") + kErrorText,
                          "event Stop", kHideFromDock));
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
  EXPECT_EQ(machine.audioUnits.livingGraphs(), 0U);
}

// So the user still hears what plays.
TEST_F(SystemAudioTest, AnErrorWhileRecordingLeavesThePlayThroughAndTheMenu) {
  launchAndRecordSystemAudio();
  EXPECT_THAT(during([&] { failRecording(); }), Not(Contains("hide loopback")));
  EXPECT_NE(app->audioPlayThrough(), nullptr);
  EXPECT_EQ(provider().menuIcon, "MenuIconOn");
}

// So the user still hears what plays.
TEST_F(SystemAudioTest, WithoutAnyMicrophoneTheAlertLeavesThePlayThroughAsItIs) {
  launch();
  machine.capture.disconnect("mic-1");
  const Entries entries = during([&] { machine.runLoop.advance(0.01); });
  EXPECT_THAT(entries, Contains("alert No sound recorded"));
  EXPECT_THAT(entries, Not(Contains("hide loopback")));
  EXPECT_NE(app->audioPlayThrough(), nullptr);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Quit"}));
}

TEST_F(SystemAudioTest, ALeftoverPlayThroughIsReplacedByTheNextSession) {
  launch();
  app->showNotificationError();
  machine.capture.disconnect("mic-1");
  machine.runLoop.advance(0.01);
  ASSERT_NE(app->audioPlayThrough(), nullptr);
  ASSERT_FALSE(ended()) << "the notification is pending";
  machine.capture.connect("mic-1", "Desk microphone");
  clickDock();
  machine.runLoop.advance(0.01);
  EXPECT_EQ(machine.audioUnits.livingGraphs(), 1U);
  EXPECT_EQ(machine.audioUnits.livingUnits(), 1U);
  EXPECT_TRUE(playsOn(kSpeakers));
}

// An error leaves the loopback as the default output. It also leaves the play-through, which knows
// the real one.
TEST_F(SystemAudioTest, TheNextRecordingAfterAnErrorIsHeardOnTheSameSpeakers) {
  launchAndRecordSystemAudio();
  for (int i = 0; i < 2; ++i) {
    failRecording();
    clickDock();
    machine.runLoop.advance(0.01);
    confirmStart();
    ASSERT_EQ(machine.audioHardware.defaultOutput(), kLoopback);
    EXPECT_TRUE(playsOn(kSpeakers));
    EXPECT_EQ(machine.audioUnits.livingGraphs(), 1U);
    EXPECT_EQ(app->status().at("state"), "recording");
  }
}

// Stop while waiting.

TEST_F(SystemAudioTest, StopWhileWaitingOnlyReleasesTheWaiter) {
  machine.clock.now_ns = 7'000'000'000;
  launchWithoutLoopback();
  machine.runLoop.advance(1);
  EXPECT_THAT(during([&] { app->stopRecord(); }),
              ElementsAre("setDelegate", std::string("deliver ") + kUnsavedText, "event Stop"));
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(app->status().at("state"), "idle");
  EXPECT_EQ(detail("Duration"), platform::Value(std::int64_t{8000})) << "from tick 0";
}

// The recorder still names that file, and it is in the folder that the notification shows.
TEST_F(SystemAudioTest, StopWhileWaitingShowsTheFileOfAnEarlierRecording) {
  launchAndRecordSystemAudio();
  clickDock();
  machine.runLoop.advance(5);
  loopbackAppears = false;
  clickDock();
  machine.runLoop.advance(1);
  clickDock();
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  EXPECT_EQ(detail("Duration"), platform::Value(std::int64_t{6000})) << "from the previous start";
}

// The recorder still names the file of the last recording, so that is the one that goes.
TEST_F(SystemAudioTest, TheCancelButtonOfAnEarlierNotificationEndsTheWait) {
  launchAndRecordSystemAudio();
  const auto started = machine.userNotificationCenter.delivered.back();
  clickDock();
  ASSERT_EQ(machine.fileManager.files.size(), 1U);
  clickDock();
  ASSERT_NE(app->audioWaiter(), nullptr);
  machine.userNotificationCenter.activate(
      started, platform::UserNotificationActivationType::kActionButtonClicked);
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(lastEvent().name, "Stop");
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText)) << "of the last recording";
  EXPECT_THAT(machine.fileManager.files, IsEmpty());
}

TEST_F(SystemAudioTest, DockClickWhileWaitingStopsAndQuits) {
  launchWithoutLoopback();
  clickDock();
  EXPECT_EQ(app->audioWaiter(), nullptr);
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kProhibited);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(SystemAudioTest, AWaitThatTheUserEndedRecordsNothingWhenTheDeviceAppearsAfterAll) {
  launch();
  clickDock();
  EXPECT_THAT(during([&] { machine.runLoop.advance(1); }),
              ElementsAre("default output 20", "hide loopback"));
  EXPECT_THAT(machine.capture.sessions, IsEmpty());
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Stop"}));
}

TEST_F(SystemAudioTest, AWaitThatTheUserEndedReportsNoErrorWhenItGivesUp) {
  launchWithoutLoopback();
  clickDock();
  machine.runLoop.advance(3);
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Stop"}));
}

// A waiter cannot be canceled: it goes on polling after its session has ended.
TEST_F(SystemAudioTest, AnAbandonedWaitDoesNotDisturbTheNextSession) {
  launch();
  clickDock();
  machine.runLoop.advance(0.005);
  clickDock();
  const Entries entries = during([&] { machine.runLoop.advance(1); });
  EXPECT_THAT(entries, Not(Contains("hide loopback")));
  EXPECT_EQ(machine.capture.sessions.size(), 1U);
  confirmStart();
  EXPECT_EQ(app->status().at("state"), "recording");
  EXPECT_EQ(machine.audioUnits.livingGraphs(), 1U);
}

TEST_F(SystemAudioTest, ALateConfirmationOfAnAbandonedStartTakesThePlaceOfTheNextWait) {
  launch();
  machine.runLoop.advance(0.01);
  app->stop();
  machine.runLoop.advance(AppDelegate::kUnconfirmedStartGrace_s);
  loopbackAppears = false;
  clickDock();
  ASSERT_EQ(app->status().at("state"), "waiting");
  confirmStart();
  EXPECT_EQ(app->audioWaiter(), nullptr);
  machine.runLoop.advance(3);
  EXPECT_EQ(app->status().at("state"), "idle") << "the stop that was asked for";
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
}

TEST_F(SystemAudioTest, AWaiterResultWithoutAWaiterDoesNothing) {
  useSource(1);
  launch();
  for (const bool success : {true, false}) {
    EXPECT_THAT(during([&] { app->onWaitFinished(success); }), IsEmpty());
  }
  EXPECT_EQ(app->audioPlayThrough(), nullptr);
  EXPECT_EQ(app->status().at("state"), "starting");
}

}  // namespace
}  // namespace record_audio
