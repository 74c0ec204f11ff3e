// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using platform::Dictionary;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kFinalPath = "/out/Audio recording 2024-05-17 at 14.03.27.m4a";

class SessionTest : public AppTest {
 protected:
  void muteMicrophone() {
    machine.audioHardware.setValue(
        kMicrophone, memory_host::sideAddress(platform::kAudioDevicePropertyMute, true),
        std::uint32_t{1});
  }
};

// Start.

TEST_F(SessionTest, TheSettingsReachTheRecorder) {
  machine.capture.connect("mic-2", "Headset");
  machine.audioHardware.addDevice(11, "mic-2");
  machine.audioHardware.setStreamConfiguration(11, true, {1});
  machine.userDefaults.values = {
      {"AudioSourceType", 2}, {"AudioSourceID", "mic-2"}, {"Quality", 1}, {"SoundFormat", 1}};
  launch();
  const auto& session = machine.capture.sessions.at(0);
  EXPECT_EQ(session->preset, platform::kCaptureSessionPresetMedium);
  EXPECT_EQ(session->inputs().at(0)->device()->uniqueID(), "mic-2");
  EXPECT_EQ(machine.capture.dataOutputs.size(), 1U);
}

// The quality is under "Size", because the suite's log expects it there.
TEST_F(SessionTest, EveryEventCarriesTheSettings) {
  machine.userDefaults.values = {
      {"AudioSourceType", 2}, {"AudioSourceID", "mic-9"}, {"Quality", 2}, {"SoundFormat", 0}};
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(10);
  ASSERT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Quit"}));
  for (const auto& event : machine.suite.events) {
    EXPECT_EQ(event.prefs, (Dictionary{{"AudioSourceType", std::int64_t{2}},
                                       {"AudioSourceID", "mic-9"},
                                       {"Size", std::uint64_t{2}}}))
        << event.name;
  }
}

TEST_F(SessionTest, EveryEventHasTheSettingsOfItsOwnMoment) {
  launchAndRecord();
  app->preferences()->setAudioParameterType(0, "", "KCNoSound");
  clickDock();
  ASSERT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
  const auto type = [&](std::size_t event) {
    return machine.suite.events.at(event).prefs.value().at("AudioSourceType");
  };
  EXPECT_EQ(type(1), platform::Value(std::int64_t{1}));
  EXPECT_EQ(type(2), platform::Value(std::int64_t{0}));
}

// Two recordings of one process, with other settings for the second.
class ChangedSettingsTest : public SessionTest {
 protected:
  ChangedSettingsTest() {
    preferences.installIn(machine.interfaceLoader);
    auto& hardware = machine.audioHardware;
    hardware.setValue(
        kMicrophone, memory_host::sideAddress(platform::kAudioDevicePropertyActualSampleRate, true),
        48000.0);
    std::vector<std::uint32_t> layout(3 + 2 * 5);  // header and two descriptions
    layout[2] = 2;
    hardware.setList(
        kMicrophone,
        memory_host::sideAddress(platform::kAudioDevicePropertyPreferredChannelLayout, true),
        layout);
  }
  // Records a little and saves it; returns what the file holds.
  std::string recorded() {
    confirmStart();
    const std::vector<float> silence(4800);
    for (const auto& output : machine.capture.dataOutputs) {
      output->deliver(memory_host::floatSampleBuffer({silence, silence}));
      machine.runLoop.settle();
    }
    clickDock();
    machine.runLoop.settle();
    EXPECT_TRUE(platform::stringValue(app->status().at("outputFile"), &path));
    return machine.fileManager.contents(path);
  }

  memory_host::MemoryPreferencesInterface preferences;
  std::string path;
};

TEST_F(ChangedSettingsTest, TheQualityIsReadAtEachStart) {
  machine.userDefaults.values["SoundFormat"] = 1;
  launch();
  const auto bitRateCode = [](const std::string& mp3) {
    return static_cast<unsigned char>(mp3.at(2)) >> 4;
  };
  EXPECT_EQ(bitRateCode(recorded()), 14);  // 320 kbit/s
  app->preferences()->window();
  preferences.shown().pickQuality(2);
  clickDock();
  EXPECT_EQ(bitRateCode(recorded()), 7);  // 96 kbit/s
}

TEST_F(ChangedSettingsTest, TheFormatIsReadAtEachStart) {
  launch();
  recorded();
  EXPECT_TRUE(path.ends_with(".m4a"));
  app->preferences()->window();
  preferences.shown().pickSoundFormat(1);
  clickDock();
  recorded();
  EXPECT_TRUE(path.ends_with(".mp3"));
}

TEST_F(ChangedSettingsTest, TheStatusSaysHowFarTheEncoderIsBehind) {
  machine.userDefaults.values["SoundFormat"] = 1;
  launch();
  confirmStart();
  EXPECT_FALSE(app->status().contains("behindSeconds"));
  machine.dispatch.queue("com.vantrel.korvel.RecordAudio.EncodeQueue")->stalled = true;
  const std::vector<float> silence(11 * 48000);
  machine.capture.dataOutputs.back()->deliver(memory_host::floatSampleBuffer({silence, silence}));
  machine.runLoop.settle();
  EXPECT_EQ(app->status().at("behindSeconds"), 11);
  app->stopRecord();
  EXPECT_FALSE(app->status().contains("behindSeconds"));
}

TEST_F(SessionTest, TheSettingsDictionaryHasAllItsKeysWithNothingStored) {
  launch();
  EXPECT_EQ(lastEvent().prefs, (Dictionary{{"AudioSourceType", std::int64_t{1}},
                                           {"AudioSourceID", ""},
                                           {"Size", std::uint64_t{0}}}));
}

TEST_F(SessionTest, LaunchStartAndQuitHaveNoDetails) {
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(10);
  ASSERT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Quit"}));
  for (const auto& event : machine.suite.events) {
    EXPECT_EQ(event.details.has_value(), event.name == "Stop") << event.name;
  }
}

TEST_F(SessionTest, TheRunningTimeWaitsForTheRecordersConfirmation) {
  launch();
  machine.runLoop.advance(2);
  EXPECT_EQ(blinkTimerCount(), 0U);
  EXPECT_EQ(provider().menuText, "00:00");
  confirmStart();
  EXPECT_EQ(blinkTimerCount(), 1U);
}

TEST_F(SessionTest, TheConfirmationBlinksNotifiesAndMarksTheBundleInOrder) {
  launch();
  EXPECT_THAT(during([&] { confirmStart(); }),
              ElementsAre("setDelegate", std::string("deliver ") + kStartedText,
                          std::string("setIcon ActiveIcon.icns ") + kBundlePath, "status 1"));
}

TEST_F(SessionTest, NoDeviceShowsTheAlertAndQuitsWithoutAnEvent) {
  useSource(0);
  machine.mainBundle.localizedInfo = Dictionary{{"CFBundleDisplayName", "Enregistreur"}};
  launch();
  ASSERT_EQ(machine.alerts.shown.size(), 1U);
  const platform::Alert& alert = machine.alerts.shown[0];
  EXPECT_EQ(alert.style, platform::AlertStyle::kCritical);
  EXPECT_EQ(alert.messageText, "No sound recorded");
  EXPECT_EQ(alert.informativeText,
            "Either the \"Don\u2019t record audio\" option is selected in the \"Enregistreur\" "
            "preferences or no microphone is connected to the computer.");
  EXPECT_THAT(alert.buttons, IsEmpty());
  EXPECT_EQ(alert.extraButton, "Preferences\u2026");
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Quit"}));
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, TheAlertsExtraButtonOpensThePreferencesAndDoneThereEndsTheProcess) {
  useSource(0);
  machine.alerts.answers = {platform::kAlertExtraButtonReturn};
  EXPECT_THAT(during([&] { launch(); }),
              ElementsAre(kHideFromDock, "disableRelaunchOnLogin", "createToolDataClientProvider",
                          "status 1", "locationForCurrentTool", kShowInDock, "event Launch",
                          kShowInDock, "alert No sound recorded", "dismissed", kShowInDock,
                          "loadWindow AudioPreferencesWindow", "activateIgnoringOtherApps YES"));
  ASSERT_TRUE(windowLoaded());
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(app->status().at("state"), platform::Value("preferences"));
  machine.runLoop.advance(60);
  EXPECT_FALSE(ended());
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch"}));
  clickDone();
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, AfterTheAlertsPreferencesTheNextClickRecords) {
  machine.capture.disconnect("mic-1");
  machine.alerts.answers = {platform::kAlertExtraButtonReturn};
  launch();
  machine.capture.connect("mic-1", "Microphone");
  window->orderOut();
  clickDock();
  confirmStart();
  EXPECT_EQ(app->status().at("state"), platform::Value("recording"));
}

TEST_F(SessionTest, WithoutAWindowTheAlertsExtraButtonStillEndsTheProcess) {
  hasScreen = false;
  useSource(0);
  machine.alerts.answers = {platform::kAlertExtraButtonReturn};
  launch();
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, AQuitDuringTheAlertOpensNoPreferences) {
  useSource(0);
  machine.alerts.answers = {platform::kAlertExtraButtonReturn};
  machine.alerts.onShow = [&](const platform::Alert&) { machine.application.terminate(); };
  launch();
  machine.runLoop.settle();
  EXPECT_TRUE(ended());
  EXPECT_FALSE(windowLoaded());
}

// Even for system audio, which needs no microphone: the choice of the device begins with their
// list.
TEST_F(SessionTest, NoMicrophoneShowsTheSameAlertWhateverTheSource) {
  machine.capture.disconnect("mic-1");
  launch();
  ASSERT_EQ(machine.alerts.shown.size(), 1U);
  EXPECT_EQ(machine.alerts.shown[0].messageText, "No sound recorded");
}

TEST_F(SessionTest, TheProcessQuitsOnlyWhenTheAlertIsDismissed) {
  useSource(0);
  machine.alerts.onShow = [&](const platform::Alert&) { EXPECT_FALSE(ended()); };
  EXPECT_THAT(during([&] { launch(); }), Contains("alert No sound recorded"));
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, TheAlertIsInTheUsersLanguage) {
  useSource(0);
  launchIntoPreferences();
  auto& strings = machine.mainBundle.strings;
  strings["No sound recorded"] = "Kein Ton aufgenommen";
  strings
      ["Either the \"Don\u2019t record audio\" option is selected in the \"%@\" preferences or "
       "no microphone is connected to the computer."] = "In %@ ist kein Ton gew\u00e4hlt.";
  window->orderOut();
  clickDock();
  ASSERT_EQ(machine.alerts.shown.size(), 1U);
  EXPECT_EQ(machine.alerts.shown[0].messageText, "Kein Ton aufgenommen");
  EXPECT_EQ(machine.alerts.shown[0].informativeText, "In Record Audio ist kein Ton gew\u00e4hlt.");
}

TEST_F(SessionTest, TheAlertWorksWithoutADisplayNameAndWithoutAPlaceholder) {
  useSource(0);
  machine.mainBundle.localizedInfo.reset();
  launch();
  EXPECT_THAT(machine.alerts.shown.at(0).informativeText, HasSubstr("in the \"\" preferences"));
}

TEST_F(SessionTest, ABundleWithoutADisplayNameEntryLeavesTheNameEmpty) {
  useSource(0);
  machine.mainBundle.localizedInfo = Dictionary{};
  launch();
  EXPECT_THAT(machine.alerts.shown.at(0).informativeText, HasSubstr("in the \"\" preferences"));
}

TEST_F(SessionTest, ATranslationWithoutThePlaceholderIsShownAsItStands) {
  useSource(0);
  machine.mainBundle.strings
      ["Either the \"Don\u2019t record audio\" option is selected in the \"%@\" "
       "preferences or no microphone is connected to the computer."] = "Nothing to hear.";
  launch();
  EXPECT_EQ(machine.alerts.shown.at(0).informativeText, "Nothing to hear.");
}

// Refusal.

TEST_F(SessionTest, AMutedMicrophoneGivesItsAlertThenTheErrorThenTheQuit) {
  muteMicrophone();
  EXPECT_THAT(
      during([&] { launch(); }),
      ElementsAre(kHideFromDock, "disableRelaunchOnLogin", "createToolDataClientProvider",
                  "status 1", "locationForCurrentTool", kShowInDock, "event Launch", kShowInDock,
                  "event Start", "alert Microphone muted", "dismissed", "setDelegate",
                  std::string("deliver ") + kErrorText, "event Stop", kHideFromDock));
  const platform::Alert& alert = machine.alerts.shown.at(0);
  EXPECT_EQ(alert.style, platform::AlertStyle::kCritical);
  EXPECT_EQ(alert.informativeText,
            "Computer microphone is muted. Un-mute microphone to record sound.");
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Error", true}}));
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, TheMutedAlertIsInTheUsersLanguage) {
  muteMicrophone();
  machine.mainBundle.strings["Microphone muted"] = "Mikrofon stumm";
  machine.mainBundle.strings["Computer microphone is muted. Un-mute microphone to record sound."] =
      "Stummschaltung aufheben.";
  launch();
  EXPECT_EQ(machine.alerts.shown.at(0).messageText, "Mikrofon stumm");
  EXPECT_EQ(machine.alerts.shown.at(0).informativeText, "Stummschaltung aufheben.");
}

TEST_F(SessionTest, ADeviceUnknownToTheHardwareIsRefusedWithoutAnAlert) {
  machine.audioHardware.removeObject(kMicrophone);
  launch();
  EXPECT_THAT(machine.alerts.shown, IsEmpty());
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText));
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
  EXPECT_EQ(provider().menuText, "unset");
}

TEST_F(SessionTest, ARefusedStartMayBeTriedAgain) {
  muteMicrophone();
  launch();
  EXPECT_TRUE(app->hasFailedRecording());
  machine.audioHardware.setValue(kMicrophone,
                                 memory_host::sideAddress(platform::kAudioDevicePropertyMute, true),
                                 std::uint32_t{0});
  clickDock();
  confirmStart();
  EXPECT_EQ(app->status().at("state"), "recording");
  EXPECT_FALSE(app->hasFailedRecording());
}

// Error.

TEST_F(SessionTest, AnErrorWhileRecordingEndsTheSessionInOrderAndQuits) {
  launchAndRecord();
  machine.runLoop.advance(5);
  EXPECT_THAT(during([&] { failRecording(); }),
              ElementsAre(std::string("setIcon  ") + kBundlePath, "status 0", "setDelegate",
                          std::string("deliver ") + kErrorText, "event Stop",
                          "setApplicationIconImage NSApplicationIcon", "toolIcon ", kHideFromDock));
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Error", true}}));
  EXPECT_TRUE(app->hasFailedRecording());
  EXPECT_EQ(blinkTimerCount(), 0U);
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

// The next launch recovers it from there.
TEST_F(SessionTest, AnErrorLeavesTheFileWhereTheRecorderLeftIt) {
  launchAndRecord();
  failRecording();
  EXPECT_THAT(machine.fileManager.journal, Not(Contains(StartsWith("move "))));
  EXPECT_THAT(machine.fileManager.journal, Not(Contains(StartsWith("remove "))));
  ASSERT_EQ(machine.fileManager.files.size(), 1U);
  EXPECT_THAT(machine.fileManager.files.begin()->first, StartsWith("/tmp-of-memory/"));
}

TEST_F(SessionTest, ARecordingThatFailedIsNotMadeUpForByTheNext) {
  launchAndRecord();
  failRecording();
  clickDock();
  confirmStart();
  app->stopRecord();
  EXPECT_TRUE(app->hasFailedRecording());
}

TEST_F(SessionTest, AnErrorBeforeTheConfirmationHasNoTimerToEnd) {
  launch();
  failRecording();
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Error", true}}));
  EXPECT_EQ(provider().toolIcon, "");
  EXPECT_EQ(app->status().at("state"), "idle");
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

// Stop.

TEST_F(SessionTest, StopTakesItsStepsInOrder) {
  launchAndRecord();
  machine.runLoop.advance(2.5);
  EXPECT_THAT(
      during([&] { app->stopRecord(); }),
      ElementsAre(std::string("move /tmp-of-memory/Audio_recording_unique-1 -> ") + kFinalPath,
                  "setApplicationIconImage NSApplicationIcon", "toolIcon ",
                  std::string("setIcon  ") + kBundlePath, "status 0", "menuIcon MenuIcon",
                  "menuText ", std::string("removeDelivered ") + kStartedText, "setDelegate",
                  std::string("deliver ") + kSavedText, "event Stop"));
  EXPECT_EQ(blinkTimerCount(), 0U);
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Duration", std::int64_t{2500}}}));
}

TEST_F(SessionTest, StopAloneDoesNotTryToQuit) {
  launchAndRecord();
  app->stopRecord();
  EXPECT_EQ(machine.application.policy, platform::ActivationPolicy::kRegular);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended()) << "the notification's timer does";
}

TEST_F(SessionTest, TheDurationCountsFromTheAcceptedStart) {
  machine.runLoop.advance(100);
  launch();
  machine.runLoop.advance(0.25);
  confirmStart();
  machine.runLoop.advance(1.0005);
  app->stopRecord();
  EXPECT_EQ(detail("Duration"), platform::Value(std::int64_t{1250}));
}

TEST_F(SessionTest, AFileThatCouldNotBeMovedIsReportedAsNotSaved) {
  launchAndRecord();
  machine.fileManager.failMove = "Read-only file system";
  app->stopRecord();
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
  EXPECT_EQ(lastEvent().name, "Stop");
}

// Every file name that a stop could use is taken.
class NoNameLeftTest : public SessionTest {
 protected:
  NoNameLeftTest() {
    launchAndRecord();
    clickDock();
    std::string first;
    EXPECT_TRUE(platform::stringValue(app->status().at("outputFile"), &first));
    const std::string base = first.substr(0, first.rfind('.'));
    for (int number = 1; number <= 99; ++number) {
      last = base + " (" + std::to_string(number) + ").m4a";
      machine.fileManager.addFile(last, "theirs");
    }
    clickDock();
    confirmStart();
    EXPECT_TRUE(platform::stringValue(app->status().at("outputFile"), &growing));
  }

  std::string last;
  std::string growing;
};

TEST_F(NoNameLeftTest, SomebodyElsesFileIsNotReportedAsTheRecording) {
  EXPECT_FALSE(app->hasFailedRecording());
  app->stopRecord();
  EXPECT_THAT(showingTexts(), ElementsAre(kUnsavedText));
  const Dictionary status = app->status();
  EXPECT_FALSE(status.contains("outputFile"));
  EXPECT_EQ(status.at("unsavedFile"), platform::Value(growing));
  EXPECT_EQ(status.at("problem"), platform::Value("File exists"));
  EXPECT_EQ(machine.fileManager.contents(last), "theirs");
  EXPECT_TRUE(machine.fileManager.fileExists(growing));
  EXPECT_TRUE(app->hasFailedRecording());
}

TEST_F(NoNameLeftTest, ACancelDeletesTheRecordingAndNobodyElsesFile) {
  app->cancelRecord();
  EXPECT_EQ(machine.fileManager.contents(last), "theirs");
  EXPECT_FALSE(machine.fileManager.fileExists(growing));
  EXPECT_FALSE(app->hasFailedRecording());
}

TEST_F(SessionTest, ASecondRecordingOfTheSameProcessIsSavedBesideTheFirst) {
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(4);
  clickDock();
  confirmStart();
  EXPECT_EQ(blinkTimerCount(), 1U);
  clickDock();
  EXPECT_EQ(machine.fileManager.files.size(), 2U);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop", "Start", "Stop"}));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

// The old timer ends with the process, and blinking twice as often does no harm.
TEST_F(SessionTest, ASecondConfirmationReplacesTheBlinkTimerButLeavesTheOldOneRunning) {
  launchAndRecord();
  app->recordSuccessStarted(app);
  EXPECT_EQ(blinkTimerCount(), 2U);
  app->stopRecord();
  EXPECT_EQ(blinkTimerCount(), 1U);
}

// Cancel.

TEST_F(SessionTest, CancelTakesItsStepsInOrder) {
  launchAndRecord();
  EXPECT_THAT(
      during([&] { app->cancelRecord(); }),
      ElementsAre(std::string("move /tmp-of-memory/Audio_recording_unique-1 -> ") + kFinalPath,
                  "setApplicationIconImage NSApplicationIcon", "toolIcon ",
                  std::string("setIcon  ") + kBundlePath, "status 0", "menuIcon MenuIcon",
                  "menuText ", std::string("remove ") + kFinalPath, "event Stop", kHideFromDock));
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
  EXPECT_THAT(machine.fileManager.files, IsEmpty());
}

TEST_F(SessionTest, CancelShowsNoCompletionAndQuitsWhenTheStartNotificationIsOver) {
  launchAndRecord();
  machine.runLoop.advance(4);
  app->cancelRecord();
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText));
  machine.runLoop.advance(5.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(SessionTest, CancelWithNoNotificationPendingQuitsAtOnce) {
  launchAndRecord();
  machine.runLoop.advance(11);
  app->cancelRecord();
  EXPECT_TRUE(ended());
}

// The user has canceled and expects no further message.
TEST_F(SessionTest, AFileThatCannotBeRemovedIsIgnored) {
  launchAndRecord();
  machine.fileManager.failRemove = "Permission denied";
  app->cancelRecord();
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Canceled", true}}));
  EXPECT_EQ(machine.fileManager.files.size(), 1U);
}

}  // namespace
}  // namespace record_audio
