// SPDX-License-Identifier: MIT
#include "app/command_line.h"
#include "app/recording_recovery.h"
#include "tests/app/app_test.h"
#include "tests/capture/threaded_parts.h"

// The next launch recovers the recordings of processes that died.

namespace record_audio {
namespace {

using platform::Dictionary;
using platform::RecordingFindings;
using platform::UserNotificationActivationType;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Contents = RecordingFindings::Contents;
using Outcome = platform::InterruptedRecordings::Claim::Outcome;
using std::chrono::hours;
using std::chrono::seconds;

constexpr const char* kRecoveredText = "An interrupted recording was recovered.";
constexpr const char* kLeftover = "/tmp-of-memory/Audio_recording_old";
constexpr const char* kRecovered = "/out/Audio recording 2024-05-17 at 12.00.00.m4a";
const platform::Date kStart = platform::Date(seconds(1'715'947'200));  // 2024-05-17 12:00:00

class RecoveryTest : public AppTest {
 protected:
  static RecordingFindings recordingOf(Contents contents, platform::Date start = kStart) {
    RecordingFindings findings;
    findings.contents = contents;
    findings.duration_s = 600;
    findings.created = start;
    findings.lastWritten = start + seconds(600);
    return findings;
  }
  memory_host::MemoryInterruptedRecordings::Leftover& leave(const std::string& name,
                                                            const RecordingFindings& findings) {
    return lost.add(name, findings);
  }
  void leaveOne() { leave("Audio_recording_old", recordingOf(Contents::kM4a)); }
  void launchRecordAndSettle() {
    launchAndRecord();
    machine.runLoop.settle();
  }
  RecoveryReport recover() { return RecordingRecovery::create(machine.environment, "/out")->run(); }

  memory_host::MemoryInterruptedRecordings& lost = machine.interruptedRecordings;
};

// At launch.

TEST_F(RecoveryTest, AnInterruptedRecordingComesBackUnderItsOwnStartTime) {
  leaveOne();
  launchRecordAndSettle();
  EXPECT_EQ(machine.fileManager.contents(kRecovered), "sound");
  EXPECT_FALSE(machine.fileManager.fileExists(kLeftover));
  EXPECT_TRUE(lost.leftovers.at(kLeftover).finished);
  EXPECT_FALSE(lost.leftovers.at(kLeftover).claimed);
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText, kRecoveredText));
  EXPECT_THAT(machine.suite.logLines,
              ElementsAre(std::string("An interrupted recording was recovered: ") + kRecovered));
}

TEST_F(RecoveryTest, WithoutAThreadTheNextStartTriesAgain) {
  leaveOne();
  machine.dispatch.hasThreads = false;
  launchRecordAndSettle();
  EXPECT_TRUE(machine.fileManager.fileExists(kLeftover));
  EXPECT_THAT(machine.suite.logLines,
              Contains("There was no thread to spare to look for interrupted recordings; the next "
                       "start does."));
}

TEST_F(RecoveryTest, TheNotificationIsSilentAndShowsTheFile) {
  leaveOne();
  launchRecordAndSettle();
  const auto notification = machine.userNotificationCenter.delivered.back();
  EXPECT_EQ(notification->soundName, std::nullopt);
  EXPECT_EQ(notification->title, std::nullopt);
  EXPECT_TRUE(notification->hasActionButton);
  EXPECT_EQ(notification->actionButtonTitle, "Open");
  EXPECT_EQ(notification->userInfo, (Dictionary{{"OpenPath", kRecovered}}));
  machine.userNotificationCenter.activate(notification,
                                          UserNotificationActivationType::kContentsClicked);
  EXPECT_THAT(machine.workspace.revealed, SizeIs(1));
  machine.userNotificationCenter.activate(notification,
                                          UserNotificationActivationType::kActionButtonClicked);
  EXPECT_THAT(machine.workspace.opened, ElementsAre(kRecovered));
  EXPECT_EQ(app->status().at("state"), "recording");
}

TEST_F(RecoveryTest, TheNotificationDisappearsByItselfLikeAnyOther) {
  leaveOne();
  launchRecordAndSettle();
  machine.runLoop.advance(10);
  EXPECT_THAT(showingTexts(), IsEmpty());
  EXPECT_FALSE(ended());
}

TEST_F(RecoveryTest, TheTextIsTranslated) {
  machine.mainBundle.strings[kRecoveredText] = "wieder da";
  leaveOne();
  launchRecordAndSettle();
  EXPECT_THAT(showingTexts(), Contains("wieder da"));
}

TEST_F(RecoveryTest, SeveralRecordingsAreOneNotification) {
  leaveOne();
  leave("Audio_recording_older", recordingOf(Contents::kMp3, kStart - hours(1)));
  launchRecordAndSettle();
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText, kRecoveredText));
  EXPECT_TRUE(machine.fileManager.fileExists(kRecovered));
  EXPECT_TRUE(machine.fileManager.fileExists("/out/Audio recording 2024-05-17 at 11.00.00.mp3"));
}

TEST_F(RecoveryTest, WithNothingLeftBehindNothingIsShown) {
  launchRecordAndSettle();
  EXPECT_THAT(lost.journal, ElementsAre("yield", "find"));
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText));
}

TEST_F(RecoveryTest, BeginsWhenTheRecordingRunsAndItsHandlersHaveReturned) {
  leaveOne();
  launch();
  machine.runLoop.settle();
  EXPECT_THAT(lost.journal, IsEmpty());
  confirmStart();
  EXPECT_THAT(lost.journal, IsEmpty());
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), Contains(kRecoveredText));
}

TEST_F(RecoveryTest, HappensOncePerProcess) {
  launchRecordAndSettle();
  app->stopRecord();
  leaveOne();
  clickDock();
  confirmStart();
  machine.runLoop.settle();
  EXPECT_EQ(std::ranges::count(lost.journal, "find"), 1);
}

TEST_F(RecoveryTest, GivesItsThreadBackWhenAllIsDone) {
  leaveOne();
  launchRecordAndSettle();
  const auto queue = machine.dispatch.queue("com.vantrel.korvel.RecordAudio.RecoveryQueue");
  EXPECT_EQ(queue.use_count(), 2) << "the test and the machine";
}

TEST_F(RecoveryTest, DoesNotHoldUpAStop) {
  leaveOne();
  launchAndRecord();
  machine.dispatch.main->runAll();
  machine.dispatch.queue("com.vantrel.korvel.RecordAudio.RecoveryQueue")->stalled = true;
  app->stopRecord();
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  machine.dispatch.queue("com.vantrel.korvel.RecordAudio.RecoveryQueue")->stalled = false;
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText, kRecoveredText));
}

TEST_F(RecoveryTest, QuittingHalfwayLeavesTheFileInOneOfTheTwoPlaces) {
  leaveOne();
  launchAndRecord();
  machine.dispatch.main->runAll();
  machine.runLoop.clear();
  EXPECT_TRUE(machine.fileManager.fileExists(kLeftover));
  EXPECT_FALSE(lost.leftovers.at(kLeftover).claimed);
}

TEST_F(RecoveryTest, HappensInPreferencesModeToo) {
  leaveOne();
  launchIntoPreferences();
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kRecoveredText));
}

TEST_F(RecoveryTest, HappensWithoutAMicrophonePermissionToo) {
  leaveOne();
  machine.capture.authorization = platform::AuthorizationStatus::kDenied;
  launch();
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kPrivacyText, kRecoveredText));
}

TEST_F(RecoveryTest, HappensWhileTheUserReadsThatThereIsNoDevice) {
  leaveOne();
  useSource(0);
  machine.alerts.onShow = [this](const platform::Alert&) { machine.runLoop.settle(); };
  launch();
  EXPECT_THAT(showingTexts(), ElementsAre(kRecoveredText));
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(RecoveryTest, HappensWhenTheRecorderRefusesToo) {
  leaveOne();
  machine.audioHardware.setStreamConfiguration(kMicrophone, true, {});
  launch();
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText, kRecoveredText));
}

TEST_F(RecoveryTest, HappensWhenTheRecordingFailsToo) {
  leaveOne();
  launch();
  failRecording();
  machine.runLoop.settle();
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText, kRecoveredText));
}

TEST_F(RecoveryTest, HappensWhenTheLoopbackDeviceNeverAppearsToo) {
  leaveOne();
  useSource(3);
  plugLoopbackDriver();
  loopbackAppears = false;
  launch();
  machine.runLoop.advance(9);
  EXPECT_THAT(showingTexts(), ElementsAre(kErrorText, kRecoveredText));
}

TEST_F(RecoveryTest, ProblemsGoToTheLogAndNotToTheUser) {
  leave("Audio_recording_strange", {}).findings.problem = "strange is left alone.";
  launchRecordAndSettle();
  EXPECT_THAT(machine.suite.logLines, Contains("strange is left alone."));
  EXPECT_THAT(showingTexts(), ElementsAre(kStartedText));
}

// Which recordings, and under which names.

TEST_F(RecoveryTest, ATakenNameIsNumberedAsUsual) {
  machine.fileManager.addFile(kRecovered, "mine");
  leaveOne();
  leave("Audio_recording_twin", recordingOf(Contents::kM4a));
  const RecoveryReport report = recover();
  EXPECT_THAT(report.recovered, ElementsAre("/out/Audio recording 2024-05-17 at 12.00.00 (1).m4a",
                                            "/out/Audio recording 2024-05-17 at 12.00.00 (2).m4a"));
  EXPECT_EQ(machine.fileManager.contents(kRecovered), "mine");
}

TEST_F(RecoveryTest, WithEveryUsualNameTakenItGetsAHigherNumber) {
  machine.fileManager.addFile(kRecovered, "mine");
  for (int i = 1; i <= 101; ++i) {
    machine.fileManager.addFile(
        "/out/Audio recording 2024-05-17 at 12.00.00 (" + std::to_string(i) + ").m4a", "mine");
  }
  leaveOne();
  const RecoveryReport report = recover();
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_THAT(report.recovered,
              ElementsAre("/out/Audio recording 2024-05-17 at 12.00.00 (102).m4a"));
}

TEST_F(RecoveryTest, TheLastNumberIs9999AndWithoutOneItStaysAndSaysWhy) {
  const auto numbered = [](int number) {
    return "/out/Audio recording 2024-05-17 at 12.00.00 (" + std::to_string(number) + ").m4a";
  };
  machine.fileManager.addFile(kRecovered, "mine");
  for (int i = 1; i < 9999; ++i) machine.fileManager.addFile(numbered(i), "mine");
  leaveOne();
  leave("Audio_recording_twin", recordingOf(Contents::kM4a));
  const RecoveryReport report = recover();
  EXPECT_THAT(report.recovered, ElementsAre(numbered(9999)));
  EXPECT_THAT(report.problems, SizeIs(1));
  EXPECT_EQ(machine.fileManager.contents("/tmp-of-memory/Audio_recording_twin"), "sound");
  EXPECT_FALSE(lost.leftovers.at("/tmp-of-memory/Audio_recording_twin").claimed);
}

TEST_F(RecoveryTest, FilesThatAreNotOursAreSilentlyLeftAlone) {
  leaveOne();
  lost.leftovers.at(kLeftover).outcome = Outcome::kNotOurs;
  const RecoveryReport report = recover();
  EXPECT_THAT(report.recovered, IsEmpty());
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_THAT(report.soundless, IsEmpty());
  EXPECT_THAT(lost.journal, ElementsAre("find", std::string("claim ") + kLeftover));
}

TEST_F(RecoveryTest, LeftoversWithoutSoundStayAndAreNotAProblem) {
  leaveOne();
  lost.leftovers.at(kLeftover).outcome = Outcome::kEmpty;
  leave("Audio_recording_silent", recordingOf(Contents::kNoSound));
  const RecoveryReport report = recover();
  EXPECT_THAT(report.soundless, ElementsAre(kLeftover, "/tmp-of-memory/Audio_recording_silent"));
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_EQ(machine.fileManager.files.size(), 2U);
}

TEST_F(RecoveryTest, ARefusedClaimIsAProblem) {
  leaveOne();
  lost.leftovers.at(kLeftover).outcome = Outcome::kRefused;
  lost.leftovers.at(kLeftover).claimProblem = "no right to read it";
  EXPECT_THAT(recover().problems, ElementsAre("no right to read it"));
}

TEST_F(RecoveryTest, ARecordingThatCannotBeFinishedStaysAndTheOthersComeBack) {
  leaveOne();
  lost.leftovers.at(kLeftover).finishProblem = "no room for its index";
  leave("Audio_recording_other", recordingOf(Contents::kM4a));
  const RecoveryReport report = recover();
  EXPECT_THAT(report.problems, ElementsAre("no room for its index"));
  EXPECT_THAT(report.recovered, ElementsAre(kRecovered));
  EXPECT_EQ(machine.fileManager.contents(kLeftover), "sound");
}

TEST_F(RecoveryTest, ARecordingThatCannotBeFinishedInPlaceIsFinishedAfterItsMove) {
  leaveOne();
  lost.leftovers.at(kLeftover).finishProblem = "no room for its index";
  lost.leftovers.at(kLeftover).finishesElsewhere = true;
  const RecoveryReport report = recover();
  EXPECT_THAT(report.problems, IsEmpty());
  EXPECT_THAT(report.recovered, ElementsAre(kRecovered));
  EXPECT_TRUE(lost.leftovers.at(kLeftover).finished);
  EXPECT_EQ(machine.fileManager.contents(kRecovered), "sound");
}

TEST_F(RecoveryTest, AFileThatIsNotARecordingIsNeverTouched) {
  leave("Audio_recording_strange", {}).findings.problem = "strange";
  EXPECT_THAT(recover().problems, ElementsAre("strange"));
  EXPECT_THAT(lost.journal, ElementsAre("find", "claim /tmp-of-memory/Audio_recording_strange"));
}

TEST_F(RecoveryTest, AFullDiskOrAMissingFolderLeavesTheFileWhereItIs) {
  leaveOne();
  machine.fileManager.failMove = "No space left on device";
  const RecoveryReport report = recover();
  EXPECT_THAT(report.problems, ElementsAre("No space left on device"));
  EXPECT_EQ(machine.fileManager.contents(kLeftover), "sound");
  EXPECT_FALSE(lost.leftovers.at(kLeftover).claimed);
}

TEST_F(RecoveryTest, AnUnreadableTemporaryFolderIsAProblem) {
  lost.findProblem = "cannot read it";
  EXPECT_THAT(recover().problems, ElementsAre("cannot read it"));
}

TEST_F(RecoveryTest, NothingIsEverRemoved) {
  leaveOne();
  leave("Audio_recording_strange", {});
  leave("Audio_recording_silent", recordingOf(Contents::kNoSound));
  EXPECT_THAT(recover().recovered, SizeIs(1));
  EXPECT_THAT(machine.fileManager.journal, Not(Contains(HasSubstr("remove"))));
  EXPECT_THAT(machine.fileManager.files, SizeIs(3));
}

// For the race detector.
TEST(RecoveryThreadsTest, TheQueueAndTheMainThreadTakeTurns) {
  memory_host::MemoryHost memory;
  for (int i = 0; i < 20; ++i) {
    RecordingFindings findings;
    findings.contents = i % 2 == 0 ? Contents::kM4a : Contents::kMp3;
    memory.interruptedRecordings.add("Audio_recording_" + std::to_string(i), findings);
  }
  std::optional<RecoveryReport> report;
  {
    capture_test::ThreadedDispatch dispatch;
    platform::Host host = capture_test::hostWith(memory, dispatch, memory.fileManager);
    RecordingRecovery::create({host, memory.suiteServices}, "/out")
        ->start([&](const RecoveryReport& finished) { report = finished; });
    EXPECT_TRUE(dispatch.main->run([&] { return report.has_value(); }));
  }
  ASSERT_TRUE(report);
  EXPECT_THAT(report->recovered, SizeIs(20));
  EXPECT_THAT(report->problems, IsEmpty());
  EXPECT_THAT(memory.fileManager.files, SizeIs(20));
}

// When a recording began.

TEST(StartOfRecordingTest, IsWhenTheFileWasCreated) {
  const RecordingFindings findings{Contents::kM4a,       "",     60,
                                   kStart + seconds(61), kStart, kStart + seconds(1)};
  EXPECT_EQ(startOfRecording(findings), kStart);
}

TEST(StartOfRecordingTest, OfACopyComesFromItsOwnDateOrItsLength) {
  RecordingFindings copy{Contents::kM4a, "", 60, kStart + seconds(60), kStart + hours(1), kStart};
  EXPECT_EQ(startOfRecording(copy), kStart);
  copy.stated = std::nullopt;
  EXPECT_EQ(startOfRecording(copy), kStart);
  copy.stated = kStart + hours(2);
  EXPECT_EQ(startOfRecording(copy), kStart);
}

TEST(StartOfRecordingTest, TheDateMayBeFiveSecondsLaterThanTheLengthSays) {
  RecordingFindings findings{Contents::kMp3,      "",          60, kStart + seconds(60),
                             kStart + seconds(5), std::nullopt};
  EXPECT_EQ(startOfRecording(findings), kStart + seconds(5));
  findings.created = kStart + seconds(5) + std::chrono::milliseconds(1);
  EXPECT_EQ(startOfRecording(findings), kStart);
}

TEST(StartOfRecordingTest, WithoutAnyDateComesFromTheLength) {
  const RecordingFindings findings{Contents::kMp3,       "",           90,
                                   kStart + seconds(90), std::nullopt, std::nullopt};
  EXPECT_EQ(startOfRecording(findings), kStart);
}

// What --recover prints.

TEST(PrintRecoveryTest, PathsGoToTheOutputAndReasonsToTheErrors) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(printRecovery({{"/out/a.m4a", "/out/b.mp3"}, {"c is strange."}, {"/tmp/d"}}, out, err),
            1);
  EXPECT_EQ(out.str(), "/out/a.m4a\n/out/b.mp3\n");
  EXPECT_THAT(err.str(), AllOf(HasSubstr("record-audio: c is strange.\n"), HasSubstr("/tmp/d")));
}

TEST(PrintRecoveryTest, LeftoversWithoutSoundAreNotAFailure) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(printRecovery({{}, {}, {"/tmp/d"}}, out, err), 0);
  EXPECT_EQ(printRecovery({}, out, err), 0);
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace record_audio
