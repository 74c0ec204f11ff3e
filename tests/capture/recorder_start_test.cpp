// SPDX-License-Identifier: MIT
// What startRecord() asks, decides and builds.

#include "tests/capture/recorder_fixture.h"

namespace {

using namespace capture_test;
using memory_host::MemoryAudioHardware;
using FailOn = MemoryAudioHardware::FailOn;
using CallKind = MemoryAudioHardware::CallKind;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

class RecorderStartTest : public RecorderFixture {
 protected:
  void setVolume(float volume) {
    memory.audioHardware.setValue(kMicId, inputAddress(platform::kAudioDevicePropertyVolumeScalar),
                                  volume);
  }
  void setMute(std::uint32_t muted) {
    memory.audioHardware.setValue(kMicId, inputAddress(platform::kAudioDevicePropertyMute), muted);
  }
  void reportMutedDevices() {
    recorder->setOnMuted([this] { ++mutedCount; });
  }
  int mutedCount = 0;
};

TEST_F(RecorderStartTest, CreatesOnlyTheEncodeQueueAtInit) {
  EXPECT_EQ(recorder->desktopPath(), "/out");
  EXPECT_EQ(recorder->outputFilePath(), "");
  EXPECT_FALSE(recorder->isRecording());
  ASSERT_EQ(memory.dispatch.serialQueues.size(), 1U);
  EXPECT_EQ(memory.dispatch.serialQueues.front()->label(), kEncodeQueue);
  EXPECT_THAT(memory.capture.sessions, IsEmpty());
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      0U);
}

TEST_F(RecorderStartTest, ChoosesThePresetByQualityAndHighForUnknownCodes) {
  using record_audio::AudioRecorder;
  EXPECT_EQ(AudioRecorder::sessionPresetForQuality(0), platform::kCaptureSessionPresetHigh);
  EXPECT_EQ(AudioRecorder::sessionPresetForQuality(1), platform::kCaptureSessionPresetMedium);
  EXPECT_EQ(AudioRecorder::sessionPresetForQuality(2), platform::kCaptureSessionPresetLow);
  EXPECT_EQ(AudioRecorder::sessionPresetForQuality(5), platform::kCaptureSessionPresetHigh);
  EXPECT_EQ(AudioRecorder::sessionPresetForQuality(~0ULL), platform::kCaptureSessionPresetHigh);
}

TEST_F(RecorderStartTest, RefusesADeviceThatTheAudioHardwareDoesNotKnow) {
  reportMutedDevices();
  const auto stranger = memory.capture.connect("stranger", "Stranger");
  EXPECT_FALSE(recorder->startRecord(stranger, 0, kMp3));
  EXPECT_FALSE(recorder->startRecord(nullptr, 0, kMp3));
  EXPECT_THAT(memory.suite.logLines, IsEmpty());
  EXPECT_THAT(memory.capture.sessions, IsEmpty());
  EXPECT_EQ(startedCount + errorCount + mutedCount, 0);
}

TEST_F(RecorderStartTest, RefusesADeviceWithoutInputChannels) {
  memory.audioHardware.setStreamConfiguration(kMicId, true, {});
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  memory.audioHardware.setStreamConfiguration(kMicId, true, {0, 0});
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
}

TEST_F(RecorderStartTest, RefusesToEncodeWithoutAThreadAndTriesAgain) {
  memory.dispatch.hasThreads = false;
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while preparing to record audio. Error: the system "
                          "has no thread to spare for the encoder. Close other programs and start "
                          "again."));
  EXPECT_THAT(memory.capture.sessions, IsEmpty());
  memory.dispatch.hasThreads = true;
  record(kMp3);
  EXPECT_TRUE(recorder->isRecording());
}

TEST_F(RecorderStartTest, TakesTheThreadThatWasMissingWhenItWasMade) {
  memory.dispatch.hasThreads = false;
  recorder = record_audio::AudioRecorder::initWithDesktopPath(memory.environment, "/out");
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  memory.dispatch.hasThreads = true;
  record(kMp3);
  EXPECT_TRUE(recorder->isRecording());
}

TEST_F(RecorderStartTest, NeedsNoThreadOfItsOwnForAFileOutput) {
  memory.dispatch.hasThreads = false;
  recorder =
      record_audio::AudioRecorder::initWithDesktopPath(memory.environment, recorder->desktopPath());
  record(kM4a);
  EXPECT_TRUE(recorder->isRecording());
  recorder->stopRecord();
  EXPECT_FALSE(recorder->isRecording());
  // If the next recording's encoder still has no thread, the recording ends with an error.
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  recorder->setOnRecordError([this] { ++errorCount; });
  session().reportStarted();
  EXPECT_EQ(errorCount, 1);
  EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RecorderStartTest, FindsTheDeviceByReadingListThenChannelsThenUid) {
  addInputDevice(memory.audioHardware, 41, "other");
  memory.audioHardware.addDevice(39, "speaker");  // no input channels, so its UID is not read
  memory.audioHardware.calls.clear();
  EXPECT_EQ(recorder->getAudioId("other"), 41U);

  std::vector<std::pair<CallKind, std::uint32_t>> asked;
  for (const auto& call : memory.audioHardware.calls) {
    asked.emplace_back(call.kind, call.address.mSelector);
  }
  constexpr auto kDevices = platform::kAudioHardwarePropertyDevices;
  constexpr auto kStreams = platform::kAudioDevicePropertyStreamConfiguration;
  constexpr auto kUid = platform::kAudioDevicePropertyDeviceUID;
  EXPECT_THAT(
      asked,
      ElementsAre(std::pair(CallKind::kGetSize, kDevices), std::pair(CallKind::kGet, kDevices),
                  std::pair(CallKind::kGetSize, kStreams), std::pair(CallKind::kGet, kStreams),
                  std::pair(CallKind::kDeviceGet, kUid), std::pair(CallKind::kGetSize, kStreams),
                  std::pair(CallKind::kGet, kStreams), std::pair(CallKind::kDeviceGet, kUid)));
  for (const auto& call : memory.audioHardware.calls) {
    if (call.address.mSelector == kStreams) {
      EXPECT_EQ(call.address.mScope, platform::kAudioDevicePropertyScopeInput);
    }
    // Channel 0, and not the input side.
    if (call.address.mSelector == kUid) {
      EXPECT_EQ(call.address, memory_host::sideAddress(kUid, false));
    }
  }
}

TEST_F(RecorderStartTest, ComparesUidsExactly) {
  EXPECT_EQ(recorder->getAudioId("mic"), kMicId);
  EXPECT_EQ(recorder->getAudioId("Mic"), 0U);
  EXPECT_EQ(recorder->getAudioId("mi"), 0U);
  EXPECT_EQ(recorder->getAudioId(""), 0U);
}

TEST_F(RecorderStartTest, FindsNoDeviceAndAsksNoFurtherWhenTheListCannotBeRead) {
  for (const FailOn on : {FailOn::kSize, FailOn::kRead, FailOn::kAfterRead}) {
    memory.audioHardware.fail(
        platform::kAudioObjectSystemObject, platform::kAudioHardwarePropertyDevices,
        platform::kAudioObjectPropertyScopeGlobal, platform::kAudioHardwareUnspecifiedError, on);
    EXPECT_EQ(recorder->getAudioId("mic"), 0U);
    EXPECT_EQ(memory.audioHardware.calls.back().status, platform::kAudioHardwareUnspecifiedError);
    memory.audioHardware.heal();
  }
  EXPECT_EQ(recorder->getAudioId("mic"), kMicId);
}

// A read that fails means that the list is out of date, so the rest of it is not trusted either.
TEST_F(RecorderStartTest, GivesUpAtTheFirstUidThatCannotBeRead) {
  addInputDevice(memory.audioHardware, 41, "later");
  memory.audioHardware.fail(kMicId, platform::kAudioDevicePropertyDeviceUID,
                            platform::kAudioObjectPropertyScopeGlobal,
                            platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(recorder->getAudioId("later"), 0U);
}

TEST_F(RecorderStartTest, AsksNothingOfADeviceThatGoesWhileTheListIsRead) {
  auto& hardware = memory.audioHardware;
  addInputDevice(hardware, 41, "other");
  hardware.onSize = [&](platform::AudioObjectID object, const auto&) {
    if (object == platform::kAudioObjectSystemObject) hardware.removeObject(kMicId);
  };
  hardware.calls.clear();
  EXPECT_EQ(recorder->getAudioId("a third"), 0U);
  for (const auto& call : hardware.calls) {
    EXPECT_TRUE(call.object == platform::kAudioObjectSystemObject || call.object == 41U)
        << call.object;
  }
}

TEST_F(RecorderStartTest, SumsTheChannelsOfAllInputBuffers) {
  memory.audioHardware.setStreamConfiguration(kMicId, true, {2, 1, 4});
  memory.audioHardware.setStreamConfiguration(kMicId, false, {8});
  EXPECT_EQ(recorder->countCannels(kMicId), 7);
}

TEST_F(RecorderStartTest, CountsNoChannelsAndAsksNoFurtherWhenTheyCannotBeRead) {
  for (const FailOn on : {FailOn::kSize, FailOn::kRead, FailOn::kAfterRead}) {
    memory.audioHardware.fail(kMicId, platform::kAudioDevicePropertyStreamConfiguration,
                              platform::kAudioDevicePropertyScopeInput,
                              platform::kAudioHardwareUnspecifiedError, on);
    EXPECT_EQ(recorder->countCannels(kMicId), 0);
    EXPECT_EQ(memory.audioHardware.calls.back().status, platform::kAudioHardwareUnspecifiedError);
    memory.audioHardware.heal();
  }
  EXPECT_EQ(recorder->countCannels(999), 0);
  EXPECT_EQ(recorder->countCannels(kMicId), 2);
}

TEST_F(RecorderStartTest, TakesADeviceWithoutVolumeAndMuteAsAudible) {
  reportMutedDevices();
  memory.audioHardware.calls.clear();
  EXPECT_TRUE(recorder->isInputVolumeOk(kMicId));
  EXPECT_FALSE(recorder->isMuted(kMicId));
  EXPECT_THAT(memory.audioHardware.calls,
              Each(Field(&MemoryAudioHardware::Call::kind, CallKind::kHasProperty)))
      << "reads what the device does not have";
  EXPECT_TRUE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_EQ(mutedCount, 0);
}

TEST_F(RecorderStartTest, ReadsVolumeAndMuteOfTheInputSide) {
  setVolume(0.125F);
  setMute(0);
  EXPECT_TRUE(recorder->isInputVolumeOk(kMicId));
  EXPECT_FALSE(recorder->isMuted(kMicId));
  setVolume(0.0F);
  setMute(7);
  EXPECT_FALSE(recorder->isInputVolumeOk(kMicId));
  EXPECT_TRUE(recorder->isMuted(kMicId));
}

// The status of these reads is not checked, so each value stays at its start.
TEST_F(RecorderStartTest, TakesAVolumeThatCannotBeReadAsZeroAndAMuteThatCannotBeReadAsOff) {
  setVolume(1.0F);
  setMute(1);
  for (const auto selector :
       {platform::kAudioDevicePropertyVolumeScalar, platform::kAudioDevicePropertyMute}) {
    memory.audioHardware.fail(kMicId, selector, platform::kAudioDevicePropertyScopeInput,
                              platform::kAudioHardwareUnspecifiedError, FailOn::kRead);
  }
  EXPECT_FALSE(recorder->isInputVolumeOk(kMicId));
  EXPECT_FALSE(recorder->isMuted(kMicId));
}

TEST_F(RecorderStartTest, ReportsAVolumeOfZeroAsMutedAndCreatesNothing) {
  reportMutedDevices();
  setVolume(0.0F);
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_EQ(mutedCount, 1);
  EXPECT_THAT(memory.capture.sessions, IsEmpty());
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      0U);
}

TEST_F(RecorderStartTest, ReportsAMutedDeviceOfFullVolume) {
  reportMutedDevices();
  setVolume(1.0F);
  setMute(1);
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_EQ(mutedCount, 1);
}

// Without a callback nobody could say why there is no recording.
TEST_F(RecorderStartTest, RecordsAMutedDeviceWithoutTheMutedCallback) {
  setVolume(0.0F);
  setMute(1);
  EXPECT_TRUE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_TRUE(session().running);
}

TEST_F(RecorderStartTest, BuildsTheSessionForMp3AroundADataOutput) {
  EXPECT_TRUE(recorder->startRecord(mic, 1, kMp3));
  EXPECT_EQ(session().preset, platform::kCaptureSessionPresetMedium);
  EXPECT_THAT(session().journal,
              ElementsAre("canAddInput", "canAddOutput", "addInput", "addOutput", "startRunning"));
  ASSERT_EQ(session().inputs().size(), 1U);
  EXPECT_EQ(session().inputs().front()->device(), mic);
  ASSERT_EQ(memory.capture.dataOutputs.size(), 1U);
  EXPECT_EQ(session().outputs().front(), memory.capture.dataOutputs.front());
  EXPECT_EQ(dataOutput().delegate.lock(), recorder);
  EXPECT_EQ(dataOutput().queue, memory.dispatch.queue(kDataQueue));
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      1U);
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionRuntimeErrorNotification),
      1U);
  EXPECT_EQ(startedCount, 0);
  EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RecorderStartTest, BuildsTheSessionForM4aAroundAFileOutput) {
  EXPECT_TRUE(recorder->startRecord(mic, 2, kM4a));
  EXPECT_EQ(session().preset, platform::kCaptureSessionPresetLow);
  EXPECT_THAT(memory.capture.dataOutputs, IsEmpty());
  ASSERT_EQ(memory.capture.fileOutputs.size(), 1U);
  EXPECT_EQ(session().outputs().front(), memory.capture.fileOutputs.front());
  EXPECT_EQ(memory.dispatch.queue(kDataQueue), nullptr);
}

TEST_F(RecorderStartTest, UsesADataOutputForEveryOtherFormatCode) {
  EXPECT_TRUE(recorder->startRecord(mic, 0, 2));
  EXPECT_EQ(memory.capture.dataOutputs.size(), 1U);
}

// The answer says only that the start was requested.
TEST_F(RecorderStartTest, LogsTheInputErrorAndStillAnswersYes) {
  memory.capture.inputError = "the device is busy";
  EXPECT_TRUE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while preparing to record audio. Error: the device is "
                          "busy"));
  EXPECT_THAT(session().journal, IsEmpty());
  EXPECT_FALSE(session().running);
  EXPECT_EQ(startedCount + errorCount, 0);
}

TEST_F(RecorderStartTest, AsksTheSessionForTheInputFirstAndAddsNothingWhenItIsRefused) {
  memory.capture.refuseInput = true;
  EXPECT_TRUE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while preparing to record audio. Error: (null)"));
  EXPECT_THAT(session().journal, ElementsAre("canAddInput"));
}

TEST_F(RecorderStartTest, AddsNothingWhenTheSessionRefusesTheOutput) {
  memory.capture.refuseOutput = true;
  EXPECT_TRUE(recorder->startRecord(mic, 0, kM4a));
  EXPECT_THAT(memory.suite.logLines,
              ElementsAre("An error occurred while preparing to record audio. Error: (null)"));
  EXPECT_THAT(session().journal, ElementsAre("canAddInput", "canAddOutput"));
}

// The stored codes alone choose the branch at the next start, and the extension.
TEST_F(RecorderStartTest, OnlyStoresTheCodesWhileRecording) {
  record(kMp3);
  const auto other = memory.capture.connect("other", "Other");
  addInputDevice(memory.audioHardware, 41, "other");
  const auto journal = session().journal;
  EXPECT_TRUE(recorder->startRecord(other, 1, kM4a));
  EXPECT_EQ(session().journal, journal);
  EXPECT_EQ(memory.capture.sessions.size(), 1U);
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_THAT(recorder->generatePath(), testing::EndsWith(".m4a"));
}

// The session is built only once.
TEST_F(RecorderStartTest, RunsTheSameSessionAgainWithItsDeviceAndPreset) {
  record(kMp3);
  recorder->stopRecord();
  memory.runLoop.settle();
  session().journal.clear();

  addInputDevice(memory.audioHardware, 41, "other");
  EXPECT_TRUE(recorder->startRecord(memory.capture.connect("other", "Other"), 2, kMp3));
  EXPECT_THAT(session().journal, ElementsAre("startRunning"));
  EXPECT_EQ(memory.capture.sessions.size(), 1U);
  EXPECT_EQ(session().preset, platform::kCaptureSessionPresetHigh);
  EXPECT_EQ(session().inputs().front()->device(), mic);
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      1U);
}

TEST_F(RecorderStartTest, StillRefusesUnknownAndMutedDevicesAtARestart) {
  record(kMp3);
  recorder->stopRecord();
  reportMutedDevices();
  setVolume(0.0F);
  EXPECT_FALSE(recorder->startRecord(mic, 0, kMp3));
  EXPECT_EQ(mutedCount, 1);
  EXPECT_FALSE(recorder->startRecord(memory.capture.connect("stranger", "S"), 0, kMp3));
}

}  // namespace
