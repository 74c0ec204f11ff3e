// SPDX-License-Identifier: MIT
// From the session's first report to the moved file, with everything that can go wrong between.

#include "tests/capture/recorder_fixture.h"
#include "tests/capture/threaded_parts.h"

namespace {

using namespace capture_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kFinalMp3 = "/out/Audio recording 2024-05-17 at 14.03.27.mp3";
constexpr const char* kFinalM4a = "/out/Audio recording 2024-05-17 at 14.03.27.m4a";
constexpr const char* kTemporary = "/tmp-of-memory/Audio_recording_unique-1";

using RecorderSessionTest = RecorderFixture;

TEST_F(RecorderSessionTest, RecordsM4aIntoATemporaryFileThroughTheFileOutput) {
  record(kM4a);
  EXPECT_THAT(fileOutput().startedURLs, ElementsAre(std::string("file://") + kTemporary));
  EXPECT_THAT(fileOutput().fileTypes, ElementsAre(platform::kFileTypeMPEG4));
  EXPECT_EQ(recorder->outputFilePath(), kTemporary);
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(startedCount, 1);
  EXPECT_EQ(errorCount, 0);
}

TEST_F(RecorderSessionTest, ReportsSuccessOnlyWhenRecordingIsSet) {
  bool recordingAtReport = false;
  recorder->setOnRecordSuccessStarted([&] { recordingAtReport = recorder->isRecording(); });
  record(kMp3);
  EXPECT_TRUE(recordingAtReport);
}

TEST_F(RecorderSessionTest, RecordsWithoutCallbacks) {
  recorder->setOnRecordSuccessStarted(nullptr);
  recorder->setOnRecordError(nullptr);
  record(kM4a);
  EXPECT_TRUE(recorder->isRecording());
  session().reportError("gone");
  EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RecorderSessionTest, ReportsAFileOutputThatThrowsAsAnError) {
  memory.capture.throwOnFileStart = "no such folder";
  record(kM4a);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while recording audio. Error: no such folder"));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_EQ(startedCount, 0);
  EXPECT_EQ(errorCount, 1);
}

TEST_F(RecorderSessionTest, ReportsAnEncoderThatCannotBeSetUp) {
  memory.audioHardware.fail(kMicId, platform::kAudioDevicePropertyActualSampleRate,
                            platform::kAudioDevicePropertyScopeInput,
                            platform::kAudioHardwareUnspecifiedError);
  record(kMp3);
  EXPECT_THAT(memory.suite.logLines, ElementsAre("En error occured while initializing lame"));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_EQ(startedCount, 0);
  EXPECT_EQ(errorCount, 1);
}

// The recorder has only two encoders. A host reads any other stored number as m4a.
TEST_F(RecorderSessionTest, StartsNoEncoderForOtherFormatsAndSurvivesTheirSamples) {
  record(2);
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(startedCount, 1);
  EXPECT_THAT(memory.fileManager.journal, IsEmpty());
  deliver(sine(440, 0.5, 4096));
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(writtenBytes(), 0U);
  EXPECT_EQ(recorder->outputFilePath(), kFinalMp3);
  EXPECT_THAT(memory.suite.logLines, Contains(HasSubstr("Can't move file from")));
}

// Two starts in quick succession cause two reports; the recording must stay in one file.
TEST_F(RecorderSessionTest, GoesOnWhenTheSessionReportsTwice) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  session().reportStarted();
  session().reportStarted();
  EXPECT_EQ(fileOutput().startedURLs.size(), 1U);
  EXPECT_EQ(startedCount, 1);
  EXPECT_EQ(errorCount, 0);
  EXPECT_EQ(recorder->outputFilePath(), kTemporary);
}

TEST_F(RecorderSessionTest, StopsTheFileOutputThenTheSessionAndMovesTheFileAtOnce) {
  record(kM4a);
  recorder->stopRecord();
  EXPECT_EQ(fileOutput().stopCount, 1);
  EXPECT_EQ(session().journal.back(), "stopRunning");
  EXPECT_THAT(memory.fileManager.journal,
              ElementsAre(std::string("move ") + kTemporary + " -> " + kFinalM4a));
  EXPECT_EQ(memory.fileManager.contents(kFinalM4a), "aac samples");
  EXPECT_EQ(recorder->outputFilePath(), kFinalM4a);
  EXPECT_EQ(recorder->recordedFile(), kFinalM4a);
  EXPECT_EQ(recorder->whyNotSaved(), "");
  EXPECT_FALSE(recorder->isRecording());
}

// Looks, at the moment of the move, what has been stopped.
class WatchingFileManager : public memory_host::MemoryFileManager {
 public:
  std::string moveItem(const std::string& from, const std::string& to) override {
    atMove();
    return MemoryFileManager::moveItem(from, to);
  }
  std::function<void()> atMove = [] {};
};

TEST(RecorderStopOrderTest, StopsOutputAndSessionBeforeItMovesAndClearsRecordingLast) {
  memory_host::MemoryHost memory;
  WatchingFileManager fileManager;
  platform::Host host = hostWith(memory, memory.dispatch, fileManager);
  addInputDevice(memory.audioHardware, kMicId, kMicUID);
  const auto mic = memory.capture.connect(kMicUID, "Microphone");
  const auto recorder =
      record_audio::AudioRecorder::initWithDesktopPath({host, memory.suiteServices}, "/out");
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  auto& session = *memory.capture.sessions.front();
  session.reportStarted();

  int moves = 0;
  fileManager.atMove = [&] {
    ++moves;
    EXPECT_EQ(memory.capture.fileOutputs.front()->stopCount, 1);
    EXPECT_FALSE(session.running);
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(recorder->outputFilePath(), kTemporary);
  };
  recorder->stopRecord();
  EXPECT_EQ(moves, 1);
  EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RecorderSessionTest, StopsTheEncoderBeforeTheSession) {
  record(kMp3);
  memory.runLoop.settle();
  encodeQueue().stalled = true;
  int stops = 0;
  session().onStop = [&] {
    ++stops;
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_THAT(encodeQueue().items, testing::SizeIs(1));  // the flush
    EXPECT_TRUE(memory.fileManager.fileExists(kTemporary));
  };
  recorder->stopRecord();
  EXPECT_EQ(stops, 1);
}

// The writers keep the file open, so they finish it under its new name.
TEST_F(RecorderSessionTest, MovesTheMp3WithoutWaitingForItsFlush) {
  record(kMp3);
  encodeQueue().stalled = true;
  recorder->stopRecord();
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_TRUE(memory.fileManager.fileExists(kFinalMp3));
  EXPECT_FALSE(memory.fileManager.fileExists(kTemporary));
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.journal.back(), std::string("close ") + kTemporary);
}

// The completion notification looks for the file at that path and reports that it is missing.
TEST_F(RecorderSessionTest, NamesTheFinalPathAndLogsWhenTheMoveFails) {
  record(kM4a);
  memory.fileManager.failMove = "read-only file system";
  recorder->stopRecord();
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre(std::string("Can't move file from ") + kTemporary + " to " + kFinalM4a +
                          ". Error: read-only file system"));
  EXPECT_EQ(recorder->outputFilePath(), kFinalM4a);
  EXPECT_EQ(recorder->recordedFile(), kTemporary);
  EXPECT_EQ(recorder->whyNotSaved(), "read-only file system");
  EXPECT_TRUE(memory.fileManager.fileExists(kTemporary));
  EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RecorderSessionTest, ForgetsWhyTheLastRecordingWasNotSavedWhenTheNextOneRuns) {
  record(kM4a);
  memory.fileManager.failMove = "read-only file system";
  recorder->stopRecord();
  record(kM4a);
  EXPECT_EQ(recorder->whyNotSaved(), "");
  EXPECT_EQ(recorder->recordedFile(), recorder->outputFilePath());
}

TEST_F(RecorderSessionTest, FailsToMoveOntoTheLastNumberAndKeepsBothFiles) {
  memory.fileManager.addFile(kFinalM4a);
  for (int number = 1; number <= 99; ++number) {
    memory.fileManager.addFile(
        "/out/Audio recording 2024-05-17 at 14.03.27 (" + std::to_string(number) + ").m4a",
        "older");
  }
  record(kM4a);
  recorder->stopRecord();
  const std::string last = "/out/Audio recording 2024-05-17 at 14.03.27 (99).m4a";
  EXPECT_EQ(recorder->outputFilePath(), last);
  EXPECT_EQ(memory.fileManager.contents(last), "older");
  EXPECT_EQ(memory.fileManager.contents(kTemporary), "aac samples");
}

TEST_F(RecorderSessionTest, DoesNothingAtAStopWithoutARecording) {
  recorder->stopRecord();
  EXPECT_EQ(recorder->outputFilePath(), "");
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  recorder->stopRecord();
  EXPECT_EQ(session().journal.back(), "startRunning");
  session().reportStarted();
  recorder->stopRecord();
  const auto journal = memory.fileManager.journal;
  recorder->stopRecord();
  EXPECT_EQ(memory.fileManager.journal, journal);
  EXPECT_EQ(fileOutput().stopCount, 1);
  EXPECT_EQ(recorder->outputFilePath(), kFinalM4a);
}

// A session that reports an error has stopped by itself, and the next launch recovers the file.
TEST_F(RecorderSessionTest, LeavesFileAndSessionAloneAfterARuntimeError) {
  record(kM4a);
  bool recordingAtReport = true;
  recorder->setOnRecordError([&] { recordingAtReport = recorder->isRecording(); });
  memory.notificationCenter.post(platform::captureSessionNotification(
      platform::kCaptureSessionRuntimeErrorNotification, memory.capture.sessions.front(),
      {{platform::kCaptureSessionErrorKey, "the source is gone"}}));
  EXPECT_FALSE(recordingAtReport);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while recording audio. Error: the source is gone"));
  EXPECT_EQ(recorder->outputFilePath(), kTemporary);
  EXPECT_TRUE(memory.fileManager.fileExists(kTemporary));
  EXPECT_EQ(fileOutput().stopCount, 0);
  EXPECT_EQ(session().journal.back(), "startRunning");
}

TEST_F(RecorderSessionTest, SurvivesARuntimeErrorWithoutText) {
  record(kM4a);
  memory.notificationCenter.post({platform::kCaptureSessionRuntimeErrorNotification, nullptr, {}});
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while recording audio. Error: (null)"));
  EXPECT_EQ(errorCount, 1);
}

TEST_F(RecorderSessionTest, ReportsARuntimeErrorBeforeTheSessionRan) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  session().reportError("no answer");
  EXPECT_EQ(errorCount, 1);
  EXPECT_EQ(startedCount, 0);
}

TEST_F(RecorderSessionTest, RecordsAgainIntoANewFileAfterAnError) {
  record(kM4a);
  session().reportError("gone");
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  session().reportStarted();
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(recorder->outputFilePath(), "/tmp-of-memory/Audio_recording_unique-2");
  EXPECT_TRUE(memory.fileManager.fileExists(kTemporary));
}

TEST_F(RecorderSessionTest, RecordsAgainIntoANewFileAfterAStop) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  memory.runLoop.settle();
  const auto first = memory.fileManager.contents(kFinalMp3);

  memory.runLoop.advance(10);
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  EXPECT_TRUE(recorder->isRecording());
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.contents(kFinalMp3), first);
  EXPECT_EQ(recorder->outputFilePath(), "/out/Audio recording 2024-05-17 at 14.03.37.mp3");
  EXPECT_EQ(memory.fileManager.contents(recorder->outputFilePath()).size(), first.size());
}

// The session is built only once, with the output of its first format.
TEST_F(RecorderSessionTest, FailsWhenARestartAsksForM4aOfASessionWithADataOutput) {
  record(kMp3);
  recorder->stopRecord();
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  session().reportStarted();
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre(HasSubstr("An error occurred while recording audio. Error: ")));
  EXPECT_EQ(errorCount, 1);
  EXPECT_FALSE(recorder->isRecording());
}

// The session is built only once. Its file output is not used for MP3, so no samples come.
TEST_F(RecorderSessionTest, ARestartOfAnM4aSessionAsMp3MakesAFileWithoutSound) {
  record(kM4a);
  recorder->stopRecord();
  memory.runLoop.advance(10);
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(startedCount, 2);
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_THAT(fileOutput().startedURLs, testing::SizeIs(1));
  EXPECT_EQ(fileOutput().stopCount, 1);
  EXPECT_EQ(recorder->outputFilePath(), "/out/Audio recording 2024-05-17 at 14.03.37.mp3");
  EXPECT_TRUE(memory.fileManager.fileExists(recorder->outputFilePath()));
  EXPECT_EQ(memory.fileManager.journal.back(), "close /tmp-of-memory/Audio_recording_unique-2");
}

// The recorder listens to every session and uses the outputs of the one that reports.
TEST_F(RecorderSessionTest, RecordsIntoTheFirstOutputOfWhicheverSessionReports) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  const auto other = memory.capture.createSession();
  other->addOutput(memory.capture.createAudioFileOutput());
  other->addOutput(memory.capture.createAudioFileOutput());
  memory.capture.sessions.at(1)->reportStarted();
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(startedCount, 1);
  EXPECT_THAT(fileOutput().startedURLs, IsEmpty());
  EXPECT_THAT(memory.capture.fileOutputs.at(1)->startedURLs,
              ElementsAre(std::string("file://") + kTemporary));
  EXPECT_THAT(memory.capture.fileOutputs.at(2)->startedURLs, IsEmpty());
}

TEST_F(RecorderSessionTest, CompletesTheMp3AlthoughTheStoredFormatChangedMeanwhile) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.journal.back(), std::string("close ") + kTemporary);
  EXPECT_EQ(recorder->outputFilePath(), kFinalM4a);
}

TEST_F(RecorderSessionTest, UnregistersWhenItIsDestroyed) {
  record(kM4a);
  recorder.reset();
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      0U);
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionRuntimeErrorNotification),
      0U);
  session().reportStarted();
  EXPECT_EQ(startedCount, 1);
}

TEST_F(RecorderSessionTest, LeavesTheEncoderAloneWhenItIsDestroyedWithoutHavingRecorded) {
  recorder.reset();
  EXPECT_THAT(encodeQueue().items, IsEmpty());
}

TEST_F(RecorderSessionTest, SurvivesACallbackThatReleasesIt) {
  recorder->setOnRecordSuccessStarted([this] { recorder.reset(); });
  record(kMp3);
  EXPECT_EQ(recorder, nullptr);
  memory.runLoop.settle();
}

TEST_F(RecorderSessionTest, IgnoresTheFileOutputsReports) {
  record(kM4a);
  recorder->captureOutputDidStartRecording(fileOutput(), "file:///a");
  recorder->captureOutputDidFinishRecording(fileOutput(), "file:///a", "an error");
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(errorCount, 0);
  EXPECT_THAT(memory.suite.logLines, IsEmpty());
}

}  // namespace
