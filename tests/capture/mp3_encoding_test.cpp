// SPDX-License-Identifier: MIT
// How the encoder is set up, every reason to refuse a buffer, and what is written to the file.

#include "tests/capture/recorder_fixture.h"

namespace {

using namespace capture_test;
using memory_host::MemorySampleBuffer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* kTemporaryMp3 = "/tmp-of-memory/Audio_recording_unique-1";

class Mp3EncodingTest : public RecorderFixture {
 protected:
  std::shared_ptr<MemorySampleBuffer> block(std::size_t frames = 4096) {
    const auto tone = sine(440, 0.5, frames);
    return memory_host::floatSampleBuffer({tone, tone});
  }
  void deliverBuffer(std::shared_ptr<platform::SampleBuffer> buffer) {
    dataOutput().deliver(std::move(buffer));
    memory.runLoop.settle();
  }
  // The buffer was refused: nothing reaches the encode queue, and the recording continues.
  void expectDropped(const std::shared_ptr<MemorySampleBuffer>& buffer) {
    memory.runLoop.settle();
    encodeQueue().stalled = true;
    deliverBuffer(buffer);
    EXPECT_THAT(encodeQueue().items, IsEmpty());
    encodeQueue().stalled = false;
    EXPECT_LE(buffer->block.use_count(), 1);
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(errorCount, 0);
    for (int i = 0; i < 3; ++i) deliverBuffer(block());
    EXPECT_GT(writtenBytes(), 0U);
  }
  void failProperty(std::uint32_t selector) {
    memory.audioHardware.fail(kMicId, selector, platform::kAudioDevicePropertyScopeInput,
                              platform::kAudioHardwareUnspecifiedError);
  }
  [[nodiscard]] bool temporaryIsOpen() const {
    return memory.fileManager.files.at(kTemporaryMp3)->handles > 0;
  }
};

TEST_F(Mp3EncodingTest, CreatesAndOpensTheFileThenReadsRateAndLayoutOfTheInputSide) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  memory.audioHardware.calls.clear();
  session().reportStarted();
  EXPECT_THAT(memory.fileManager.journal, ElementsAre(std::string("create ") + kTemporaryMp3,
                                                      std::string("open ") + kTemporaryMp3));
  const auto& calls = memory.audioHardware.calls;
  ASSERT_GE(calls.size(), 3U);
  const auto& uid = calls[calls.size() - 3];
  EXPECT_EQ(uid.address.mSelector, platform::kAudioDevicePropertyDeviceUID);
  const auto& rate = calls[calls.size() - 2];
  EXPECT_EQ(rate.object, kMicId);
  EXPECT_EQ(rate.address, inputAddress(platform::kAudioDevicePropertyActualSampleRate));
  EXPECT_EQ(calls.back().object, kMicId);
  EXPECT_EQ(calls.back().address,
            inputAddress(platform::kAudioDevicePropertyPreferredChannelLayout));
}

// The next recording closes it, or else the end of the process.
TEST_F(Mp3EncodingTest, KeepsTheEmptyFileOpenWhenTheRateCannotBeRead) {
  failProperty(platform::kAudioDevicePropertyActualSampleRate);
  record(kMp3);
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.contents(kTemporaryMp3), "");
  EXPECT_TRUE(temporaryIsOpen());
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, KeepsTheEmptyFileOpenWhenTheLayoutCannotBeRead) {
  failProperty(platform::kAudioDevicePropertyPreferredChannelLayout);
  record(kMp3);
  memory.runLoop.settle();
  EXPECT_TRUE(temporaryIsOpen());
  EXPECT_THAT(memory.suite.logLines, ElementsAre("En error occured while initializing lame"));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, FailsWhenTheDeviceHasGone) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  memory.audioHardware.removeObject(kMicId);
  session().reportStarted();
  EXPECT_THAT(memory.suite.logLines, ElementsAre("En error occured while initializing lame"));
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, RecordsAgainAfterAnEncoderThatCouldNotBeSetUp) {
  failProperty(platform::kAudioDevicePropertyActualSampleRate);
  record(kMp3);
  memory.audioHardware.heal();
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  EXPECT_TRUE(recorder->isRecording());
  memory.runLoop.settle();
  EXPECT_FALSE(temporaryIsOpen());
}

TEST_F(Mp3EncodingTest, SaysWhichFileCannotBeOpened) {
  memory.fileManager.failOpen = true;
  record(kMp3);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre(std::string("Can't open the recording file ") + kTemporaryMp3 +
                              ": check that its folder exists and can be written",
                          "En error occured while initializing lame"));
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, SaysWhichFileCannotBeCreated) {
  memory.fileManager.failCreate = true;
  record(kMp3);
  EXPECT_THAT(memory.suite.logLines, Contains(HasSubstr(kTemporaryMp3)));
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, AppendsToAFileThatCannotBeCreatedButOpened) {
  memory.fileManager.failCreate = true;
  memory.fileManager.addFile(kTemporaryMp3, "older");
  record(kMp3);
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_THAT(memory.suite.logLines, IsEmpty());
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  memory.runLoop.settle();
  const std::string contents = memory.fileManager.contents(recorder->outputFilePath());
  EXPECT_THAT(contents, testing::StartsWith("older"));
  EXPECT_EQ(contents.size(), std::string("older").size() + writtenBytes());
}

TEST_F(Mp3EncodingTest, IgnoresSamplesThatArriveBeforeTheRecording) {
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  encodeQueue().stalled = true;
  deliverBuffer(block());
  EXPECT_THAT(encodeQueue().items, IsEmpty());
  EXPECT_THAT(memory.fileManager.journal, IsEmpty());
}

TEST_F(Mp3EncodingTest, IgnoresSamplesThatArriveAfterTheStopAndFlushesLast) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  memory.runLoop.settle();
  const auto journal = memory.fileManager.journal;
  deliverBuffer(block());
  EXPECT_EQ(memory.fileManager.journal, journal);
  ASSERT_GE(journal.size(), 2U);
  EXPECT_THAT(journal[journal.size() - 2], HasSubstr("write "));
  EXPECT_EQ(journal.back(), std::string("close ") + kTemporaryMp3);
}

TEST_F(Mp3EncodingTest, DropsWhatWaitsOnTheEncodeQueueAtTheStopAndFlushesOnce) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  const auto before_bytes = writtenBytes();
  encodeQueue().stalled = true;
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  // Only the flush of a few frames, not the second of sound that waited.
  EXPECT_LT(writtenBytes() - before_bytes, 7200U);
  EXPECT_GT(writtenBytes(), before_bytes);
  EXPECT_EQ(memory.fileManager.journal.back(), std::string("close ") + kTemporaryMp3);
}

// Records at a low rate, which is soon encoded.
class EncoderBehindTest : public Mp3EncodingTest {
 protected:
  EncoderBehindTest() {
    addInputDevice(memory.audioHardware, kMicId, kMicUID, 1, kRate_hz);
    record(kMp3);
  }
  void deliverFrames(std::size_t frames) { deliver(sine(440, 0.5, frames, kRate_hz)); }
  void deliverSeconds(double seconds) {
    deliverFrames(static_cast<std::size_t>(seconds * kRate_hz));
  }
  void stopEncoding() { encodeQueue().stalled = true; }
  void goOnEncoding() {
    encodeQueue().stalled = false;
    memory.runLoop.settle();
  }
  [[nodiscard]] const std::vector<std::string>& log() const { return memory.suite.logLines; }

  static constexpr double kRate_hz = 8000;
};

TEST_F(EncoderBehindTest, IsLoggedOnceWhenTenSecondsAreWaiting) {
  stopEncoding();
  deliverSeconds(9.9);
  EXPECT_EQ(recorder->encoderBehind_s(), 0);
  EXPECT_THAT(log(), IsEmpty());
  deliverSeconds(0.2);
  EXPECT_EQ(recorder->encoderBehind_s(), 10);
  deliverSeconds(5);
  EXPECT_EQ(recorder->encoderBehind_s(), 15);
  EXPECT_THAT(log(), ElementsAre(HasSubstr("10 seconds of sound behind")));

  goOnEncoding();
  EXPECT_EQ(recorder->encoderBehind_s(), 0);
  deliverSeconds(60);
  EXPECT_THAT(log(), SizeIs(1));
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_THAT(log(), SizeIs(1));  // nothing was dropped
}

TEST_F(EncoderBehindTest, IsLoggedAgainAfterItHasCaughtUp) {
  for (int i = 0; i < 2; ++i) {
    stopEncoding();
    deliverSeconds(11);
    goOnEncoding();
  }
  EXPECT_THAT(log(), SizeIs(2));
}

TEST(EncoderBacklogTest, LastsUntilLessThanFiveSecondsWait) {
  record_audio::EncoderBacklog backlog;
  backlog.setRate(1000);
  EXPECT_FALSE(backlog.add(9999));
  EXPECT_TRUE(backlog.add(1));
  backlog.take(5000);
  EXPECT_EQ(backlog.behind_s(), 5);
  EXPECT_FALSE(backlog.add(6000));  // already reported
  EXPECT_EQ(backlog.behind_s(), 11);
  backlog.take(6001);
  EXPECT_EQ(backlog.behind_s(), 0);
  EXPECT_TRUE(backlog.add(6000));
}

TEST_F(EncoderBehindTest, TheLogSaysHowMuchTheStopDropped) {
  deliverSeconds(1);
  stopEncoding();
  deliverSeconds(3);
  recorder->stopRecord();
  goOnEncoding();
  EXPECT_THAT(log(), ElementsAre("The last 3.0 seconds of sound were dropped at the stop: the MP3 "
                                 "encoder had not come to them."));
}

TEST_F(EncoderBehindTest, SamplesAfterTheStopAreDroppedToo) {
  deliverSeconds(1);
  stopEncoding();
  deliverSeconds(1);
  recorder->stopRecord();
  memory.runLoop.settle();
  deliverSeconds(0.5);
  dataOutput().endDelivery();
  goOnEncoding();
  // The report waits until the session has delivered its last samples.
  EXPECT_THAT(log(), ElementsAre(HasSubstr("The last 1.5 seconds")));
}

TEST_F(EncoderBehindTest, SamplesThatArriveWhileTheSessionStopsAreDroppedOnce) {
  deliverSeconds(1);
  stopEncoding();
  session().onStop = [this] { deliverSeconds(0.5); };
  recorder->stopRecord();
  dataOutput().endDelivery();
  goOnEncoding();
  EXPECT_THAT(log(), ElementsAre(HasSubstr("The last 0.5 seconds")));
}

TEST_F(EncoderBehindTest, WhatEveryStopDropsIsNotLogged) {
  deliverSeconds(1);
  stopEncoding();
  deliverFrames(799);
  recorder->stopRecord();
  const auto nothing = block();
  nothing->numSamples = -1;
  deliverBuffer(nothing);
  goOnEncoding();
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(EncoderBehindTest, ATenthOfASecondIsLogged) {
  stopEncoding();
  deliverFrames(800);
  recorder->stopRecord();
  goOnEncoding();
  EXPECT_THAT(log(), ElementsAre(HasSubstr("The last 0.1 seconds")));
}

TEST_F(Mp3EncodingTest, IgnoresSamplesThatWereOnTheDataQueueAtTheStop) {
  record(kMp3);
  dataOutput().deliver(block());
  recorder->stopRecord();
  memory.runLoop.settle();
  // Only the flush: what LAME makes of no samples at all.
  EXPECT_LE(writtenBytes(), 7200U);
}

TEST_F(Mp3EncodingTest, FinishesTheOldFileWhenANewRecordingStartsBeforeTheQueueHasRun) {
  record(kMp3);
  encodeQueue().stalled = true;
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  const std::string first = recorder->outputFilePath();
  memory.runLoop.advance(1);
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  deliver(sine(440, 0.5, 2 * 48000));
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.files.at(first)->handles, 0);
  EXPECT_NEAR(static_cast<double>(memory.fileManager.contents(first).size()), 40000, 4000);
  EXPECT_NEAR(static_cast<double>(memory.fileManager.contents(recorder->outputFilePath()).size()),
              80000, 4000);
}

TEST_F(Mp3EncodingTest, LogsTheFormatFlagsOnlyWhenExtendedLoggingIsOn) {
  record(kMp3);
  deliverBuffer(block());
  EXPECT_THAT(memory.suite.logLines, IsEmpty());
  memory.suite.extendedLogging = true;
  deliverBuffer(block());
  EXPECT_THAT(memory.suite.logLines, ElementsAre("Audio format flags: 41"));
  EXPECT_THAT(memory.suite.logFormats, ElementsAre("Audio format flags: %d"));
}

TEST_F(Mp3EncodingTest, DropsABufferWhoseListSizeCannotBeRead) {
  record(kMp3);
  const auto buffer = block();
  buffer->sizeStatus = -12731;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("Error occured while capturing audio, cannot read size of buffer list "
                          "with error -12731"));
}

TEST_F(Mp3EncodingTest, DropsABufferWhoseListCannotBeRead) {
  record(kMp3);
  const auto buffer = block();
  buffer->listStatus = -12736;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("Error occured while capturing audio, cannot get audio buffer list with "
                          "error -12736"));
}

TEST_F(Mp3EncodingTest, DropsABufferWithoutData) {
  record(kMp3);
  const auto buffer = block();
  buffer->block->noData = true;
  expectDropped(buffer);
  EXPECT_THAT(
      memory.suite.logLines,
      ElementsAre("Error occured while capturing audio, cannot get data from block buffer"));
}

TEST_F(Mp3EncodingTest, DropsABufferWithoutABlock) {
  record(kMp3);
  const auto buffer = block();
  buffer->block = nullptr;
  expectDropped(buffer);
  EXPECT_THAT(
      memory.suite.logLines,
      ElementsAre("Error occured while capturing audio, cannot get data from block buffer"));
}

TEST_F(Mp3EncodingTest, DropsSixtyFourBitSamplesAndGoesOn) {
  record(kMp3);
  const auto buffer = block();
  auto& format = buffer->description.formatList.front();
  format.mBitsPerChannel = 64;
  format.mBytesPerFrame = 8;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("This audio format is not supported yet. BitsPerChannel: 64, "
                          "BytesPerFrame: 8, ChannelsPerFrame: 2, Flags: 41"));
}

TEST_F(Mp3EncodingTest, DropsABufferWithoutChannels) {
  record(kMp3);
  const auto buffer = block();
  buffer->description.formatList.front().mChannelsPerFrame = 0;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr("ChannelsPerFrame: 0")));
}

TEST_F(Mp3EncodingTest, DropsABufferOfSamplesWithoutBits) {
  record(kMp3);
  const auto buffer = block();
  buffer->description.formatList.front().mBitsPerChannel = 0;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr("BitsPerChannel: 0")));
}

TEST_F(Mp3EncodingTest, DropsABufferWithAnImpossibleSampleCount) {
  record(kMp3);
  for (const std::int64_t count : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 40}) {
    memory.suite.logLines.clear();
    const auto buffer = block();
    buffer->numSamples = count;
    expectDropped(buffer);
    EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr(std::to_string(count))));
  }
}

TEST_F(Mp3EncodingTest, TakesAsManySamplesAsTheEncodersOutputHasRoomFor) {
  record(kMp3);
  const auto buffer = block();
  buffer->block->noData = true;  // or it would have to be gigabytes
  buffer->numSamples = record_audio::Mp3Encoder::kMaxSamples;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr("cannot get data")));
  memory.suite.logLines.clear();
  ++buffer->numSamples;
  expectDropped(buffer);
  EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr("cannot be encoded")));
}

TEST_F(Mp3EncodingTest, ReadsNoFurtherThanTheBlockReaches) {
  record(kMp3);
  memory.suite.extendedLogging = true;
  const auto buffer = block(1024);
  buffer->numSamples = 4096;  // of which the two planes hold 2048 words
  deliverBuffer(buffer);
  EXPECT_THAT(memory.suite.logLines,
              Contains("A buffer of 4096 samples holds the bytes of 2048; the others are recorded "
                       "as silence"));
  EXPECT_TRUE(recorder->isRecording());
}

TEST_F(Mp3EncodingTest, EndsTheRecordingOnceWhenTheDiskIsFullAndKeepsWhatWasWritten) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  const auto kept = memory.fileManager.contents(kTemporaryMp3);
  memory.fileManager.freeSpace_bytes = 100;
  encodeQueue().stalled = true;
  deliver(sine(440, 0.5, 48000));
  encodeQueue().stalled = false;
  memory.fileManager.journal.clear();
  memory.runLoop.settle();

  EXPECT_EQ(errorCount, 1);
  EXPECT_FALSE(recorder->isRecording());
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre(std::string("An error occurred while recording audio. Error: No space "
                                      "left on device. What was recorded before is kept in ") +
                          kTemporaryMp3));
  EXPECT_EQ(recorder->outputFilePath(), kTemporaryMp3);
  EXPECT_EQ(memory.fileManager.contents(kTemporaryMp3), kept);
  EXPECT_THAT(memory.fileManager.journal, ElementsAre(std::string("close ") + kTemporaryMp3));
}

TEST_F(Mp3EncodingTest, PostsTheSessionsRuntimeErrorForAFailedWrite) {
  record(kMp3);
  std::vector<platform::Notification> posted;
  memory.notificationCenter.addObserver(
      this, platform::kCaptureSessionRuntimeErrorNotification,
      [&](const platform::Notification& notification) { posted.push_back(notification); });
  memory.fileManager.freeSpace_bytes = 0;
  deliver(sine(440, 0.5, 48000));
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(platform::captureSessionOf(posted.front()), memory.capture.sessions.front());
  EXPECT_FALSE(session().running) << "the microphone stays open";
  std::string text;
  platform::stringValue(posted.front().userInfo.at(platform::kCaptureSessionErrorKey), &text);
  EXPECT_THAT(text, HasSubstr("No space left on device"));
}

TEST_F(Mp3EncodingTest, RecordsAgainOnceThereIsSpace) {
  record(kMp3);
  memory.fileManager.freeSpace_bytes = 0;
  deliver(sine(440, 0.5, 48000));
  ASSERT_EQ(errorCount, 1);
  memory.fileManager.freeSpace_bytes.reset();
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  deliver(sine(440, 0.5, 48000));
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_GT(memory.fileManager.contents(recorder->outputFilePath()).size(), 30000U);
  EXPECT_EQ(errorCount, 1);
}

TEST_F(Mp3EncodingTest, LogsAFlushThatFailsAfterTheStopWithoutAnError) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  memory.fileManager.freeSpace_bytes = 0;
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("The end of a recording was lost. Error: No space left on device"));
  EXPECT_EQ(errorCount, 0);
}

TEST_F(Mp3EncodingTest, LogsAFailedWriteOfAnEarlierRecordingWithoutEndingTheNextOne) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  encodeQueue().stalled = true;
  recorder->stopRecord();
  memory.runLoop.advance(1);
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  memory.fileManager.freeSpace_bytes = 0;
  encodeQueue().runAll();
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_EQ(errorCount, 0);
  EXPECT_THAT(memory.suite.logLines, ElementsAre(HasSubstr("The end of a recording was lost.")));
}

TEST_F(Mp3EncodingTest, LogsAFailedFlushOfARecorderThatIsGone) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  recorder->stopRecord();
  recorder.reset();
  memory.fileManager.freeSpace_bytes = 0;
  memory.runLoop.settle();
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("The end of a recording was lost. Error: No space left on device"));
}

TEST_F(Mp3EncodingTest, FlushesARecordingThatIsDestroyedBeforeItsStop) {
  record(kMp3);
  deliver(sine(440, 0.5, 48000));
  const auto before_bytes = writtenBytes();
  recorder.reset();
  memory.runLoop.settle();
  EXPECT_GT(writtenBytes(), before_bytes);
  EXPECT_FALSE(temporaryIsOpen());
}

}  // namespace
