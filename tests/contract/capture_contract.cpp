// SPDX-License-Identifier: MIT
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/file_url.h"
#include "tests/contract/contract_test.h"

// What platform/capture.h promises.

namespace contract {
namespace {

using platform::CaptureSessionPtr;
using platform::MediaType;
using platform::Notification;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

// Whether a stereo buffer keeps platform/sample_buffer.h.
bool isAsPromised(const platform::SampleBuffer& buffer) {
  struct {
    platform::AudioBufferList list;
    platform::AudioBuffer second;
  } room{};
  std::shared_ptr<platform::BlockBuffer> block;
  std::size_t size_bytes = 0;
  const auto read = [&](std::size_t* size, platform::AudioBufferList* list, std::size_t listSize) {
    return buffer.getAudioBufferListWithRetainedBlockBuffer(size, list, listSize, &block) ==
           platform::noErr;
  };
  const auto plane_bytes = static_cast<std::size_t>(buffer.getNumSamples()) * sizeof(float);
  if (!read(&size_bytes, nullptr, 0) || size_bytes != sizeof room) return false;
  if (read(nullptr, &room.list, sizeof room - 1)) return false;
  if (!read(nullptr, &room.list, sizeof room) || block == nullptr) return false;
  const std::byte* const begin = block->getDataPointer(0);
  const platform::AudioBuffer& first = room.list.mBuffers[0];
  return room.list.mNumberBuffers == 2 && begin != nullptr &&
         block->getDataLength() >= 2 * plane_bytes && first.mNumberChannels == 1 &&
         first.mDataByteSize == plane_bytes && first.mData >= begin &&
         room.second.mDataByteSize == plane_bytes &&
         static_cast<const std::byte*>(room.second.mData) ==
             static_cast<const std::byte*>(first.mData) + plane_bytes;
}

// What a data output delivers, on its queue.
class Receiver : public platform::CaptureAudioDataOutputSampleBufferDelegate {
 public:
  void captureOutput(platform::CaptureOutput&,
                     const std::shared_ptr<platform::SampleBuffer>& buffer,
                     platform::CaptureConnection&) override {
    const bool isAlone = calls_.fetch_add(1) == 0;
    const bool isWhole = isAsPromised(*buffer) && isAlone;
    const std::lock_guard lock(mutex_);
    format_ = buffer->getFormatDescription().formatList.at(0);
    frames_ += buffer->getNumSamples();
    areWhole_ = areWhole_ && isWhole;
    isBehindEnd_ = isBehindEnd_ || ends_ > 0;
    calls_.fetch_sub(1);
  }
  void captureOutputDidEndDelivery(platform::CaptureOutput&) override {
    const bool isAlone = calls_.load() == 0;
    const std::lock_guard lock(mutex_);
    areWhole_ = areWhole_ && isAlone;
    ++ends_;
  }

  std::int64_t frames() { return get(frames_); }
  int ends() { return get(ends_); }
  bool areWhole() { return get(areWhole_); }
  bool isBehindEnd() { return get(isBehindEnd_); }
  platform::AudioStreamBasicDescription format() { return get(format_); }

 private:
  template <typename T>
  T get(const T& value) {
    const std::lock_guard lock(mutex_);
    return value;
  }

  std::atomic<int> calls_{0};  // under way
  std::mutex mutex_;
  std::int64_t frames_ = 0;
  int ends_ = 0;
  bool areWhole_ = true;
  bool isBehindEnd_ = false;
  platform::AudioStreamBasicDescription format_;
};

class FileWatcher : public platform::CaptureFileOutputRecordingDelegate {
 public:
  void captureOutputDidStartRecording(platform::CaptureOutput&, const std::string& url) override {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    started.push_back(url);
  }
  void captureOutputDidFinishRecording(platform::CaptureOutput&, const std::string& url,
                                       const std::string& error) override {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    finished.push_back(url);
    errors.push_back(error);
  }
  const std::thread::id mainThread = std::this_thread::get_id();
  std::vector<std::string> started;
  std::vector<std::string> finished;
  std::vector<std::string> errors;
};

class CaptureContract : public ContractTest {
 protected:
  void SetUp() override {
    auto& center = host().notificationCenter;
    center.addObserver(this, platform::kCaptureSessionDidStartRunningNotification,
                       [this](const Notification& notification) {
                         ++started;
                         about = platform::captureSessionOf(notification);
                         framesAtStart = receiver->frames();
                         if (onStart) onStart();
                       });
    center.addObserver(
        this, platform::kCaptureSessionRuntimeErrorNotification,
        [this](const Notification& notification) {
          about = platform::captureSessionOf(notification);
          isRunningAtError = about != nullptr && about->isRunning();
          const auto text = notification.userInfo.find(platform::kCaptureSessionErrorKey);
          ASSERT_NE(text, notification.userInfo.end());
          errors.push_back(
              text->second.as<std::string>() == nullptr ? "" : *text->second.as<std::string>());
        });
  }
  void TearDown() override {
    host().notificationCenter.removeObserver(this);
    onStart = nullptr;
    about.reset();
  }

  platform::Capture& capture() { return host().capture; }
  platform::CaptureDeviceInputPtr inputOf(const std::string& uniqueID) {
    std::string error;
    auto input = capture().createDeviceInput(capture().deviceWithUniqueID(uniqueID), &error);
    EXPECT_NE(input, nullptr) << error;
    return input;
  }
  CaptureSessionPtr dataSession(const std::string& uniqueID) {
    const auto queue = host().dispatch.createSerialQueue("contract.samples");
    const auto output = capture().createAudioDataOutput();
    output->setSampleBufferDelegate(receiver, queue);
    return sessionOf(capture().createSession(), uniqueID, output);
  }
  CaptureSessionPtr sessionOf(CaptureSessionPtr session, const std::string& uniqueID,
                              const platform::CaptureOutputPtr& output) {
    const auto input = inputOf(uniqueID);
    EXPECT_TRUE(session->canAddInput(input));
    EXPECT_TRUE(session->canAddOutput(output));
    session->addInput(input);
    session->addOutput(output);
    return session;
  }
  bool start(const CaptureSessionPtr& session) {
    const int before = started;
    session->startRunning();
    EXPECT_EQ(started, before) << "posted during the call";
    return rig->runUntil([&] { return started > before; });
  }
  bool receive(std::int64_t frames) {
    return rig->runUntil([&] { return receiver->frames() >= frames; });
  }

  std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
  int started = 0;
  std::int64_t framesAtStart = 0;
  bool isRunningAtError = false;
  std::vector<std::string> errors;
  CaptureSessionPtr about;  // the object of the last notification
  std::function<void()> onStart;
};

TEST_F(CaptureContract, AMicrophoneIsListedByItsIdUnderItsName) {
  const std::string id = rig->plugInMicrophone("Desk microphone");
  const auto device = capture().deviceWithUniqueID(id);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->uniqueID(), id);
  EXPECT_EQ(device->localizedName(), "Desk microphone");
  std::vector<std::string> ids;
  for (const auto& listed : capture().devicesWithMediaType(MediaType::kAudio)) {
    ASSERT_NE(listed, nullptr);
    ids.push_back(listed->uniqueID());
  }
  EXPECT_THAT(ids, Contains(id));
  EXPECT_EQ(capture().deviceWithUniqueID("no such device"), nullptr);
  EXPECT_EQ(capture().deviceWithUniqueID(""), nullptr);
}

TEST_F(CaptureContract, AMicrophoneOfOneSourceSaysWhoMadeItOrNothing) {
  rig->plugInMicrophone("one");
  rig->plugInMicrophone("two");
  std::vector<std::string> first;
  for (const auto& device : capture().devicesWithMediaType(MediaType::kAudio)) {
    first.push_back(device->uniqueID());
    EXPECT_NE(device->manufacturer(), platform::kBuiltInManufacturer) << "it was plugged in";
    EXPECT_THAT(device->activeInputSource().value_or("a name"), Not(StrEq("")));
  }
  std::vector<std::string> second;
  for (const auto& device : capture().devicesWithMediaType(MediaType::kAudio)) {
    second.push_back(device->uniqueID());
  }
  EXPECT_EQ(first.size(), 2U);
  EXPECT_EQ(first, second) << "in one order";
}

TEST_F(CaptureContract, AnOnlyMicrophoneIsTheDefault) {
  EXPECT_EQ(capture().defaultDeviceWithMediaType(MediaType::kAudio), nullptr);
  const std::string id = rig->plugInMicrophone("only");
  EXPECT_TRUE(rig->runUntil([&] {
    const auto chosen = capture().defaultDeviceWithMediaType(MediaType::kAudio);
    return chosen != nullptr && chosen->uniqueID() == id;
  }));
}

TEST_F(CaptureContract, DevicesThatComeAndGoAreAnnounced) {
  // A host may take what comes before it is first asked for one that was always there.
  EXPECT_THAT(capture().devicesWithMediaType(MediaType::kAudio), IsEmpty());
  const int observer = 0;
  int came = 0;
  int went = 0;
  const auto count = [](int* counter) {
    return [counter](const Notification& notification) {
      ++*counter;
      EXPECT_EQ(notification.object, nullptr);
      EXPECT_THAT(notification.userInfo, IsEmpty());
    };
  };
  auto& center = host().notificationCenter;
  center.addObserver(&observer, platform::kCaptureDeviceWasConnectedNotification, count(&came));
  center.addObserver(&observer, platform::kCaptureDeviceWasDisconnectedNotification, count(&went));
  const std::string id = rig->plugInMicrophone("mic");
  EXPECT_TRUE(rig->runUntil([&] { return came == 1; }));
  EXPECT_EQ(went, 0);
  rig->unplug(id);
  EXPECT_TRUE(rig->runUntil([&] { return went == 1; }));
  EXPECT_EQ(came, 1);
  EXPECT_EQ(capture().deviceWithUniqueID(id), nullptr);
  center.removeObserver(&observer);
}

TEST_F(CaptureContract, ADeviceThatHasGoneStaysAsItWasAndMakesNoInput) {
  const std::string id = rig->plugInMicrophone("mic");
  const auto device = capture().deviceWithUniqueID(id);
  ASSERT_NE(device, nullptr);
  rig->unplug(id);
  ASSERT_TRUE(rig->runUntil([&] { return capture().deviceWithUniqueID(id) == nullptr; }));
  EXPECT_EQ(device->uniqueID(), id);
  EXPECT_EQ(device->localizedName(), "mic");
  std::string error;
  EXPECT_EQ(capture().createDeviceInput(device, &error), nullptr);
  EXPECT_THAT(error, Not(StrEq("")));
}

TEST_F(CaptureContract, NoDeviceMakesNoInput) {
  std::string error;
  EXPECT_EQ(capture().createDeviceInput(nullptr, &error), nullptr);
  EXPECT_THAT(error, Not(StrEq("")));
}

TEST_F(CaptureContract, ASessionTakesOneInputAndOneOutput) {
  const auto input = inputOf(rig->plugInMicrophone("mic"));
  const auto session = capture().createSession();
  ASSERT_NE(session, nullptr);
  EXPECT_FALSE(session->canAddInput(nullptr));
  EXPECT_FALSE(session->canAddOutput(nullptr));
  session->addInput(nullptr);
  session->addOutput(nullptr);
  EXPECT_THAT(session->inputs(), IsEmpty());
  EXPECT_THAT(session->outputs(), IsEmpty());

  const auto output = capture().createAudioDataOutput();
  EXPECT_TRUE(session->canAddInput(input));
  EXPECT_TRUE(session->canAddOutput(output));
  session->addInput(input);
  session->addOutput(output);
  EXPECT_FALSE(session->canAddInput(input));
  EXPECT_FALSE(session->canAddOutput(capture().createAudioFileOutput()));
  session->addInput(input);
  session->addOutput(capture().createAudioFileOutput());
  EXPECT_THAT(session->inputs(), testing::ElementsAre(input));
  EXPECT_THAT(session->outputs(), testing::ElementsAre(output));
  EXPECT_FALSE(session->isRunning());
}

TEST_F(CaptureContract, AStartIsAnnouncedOnceTheFirstSamplesAreThere) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  EXPECT_EQ(about, session);
  EXPECT_TRUE(session->isRunning());
  ASSERT_TRUE(receive(4800));
  EXPECT_EQ(started, 1);
  EXPECT_THAT(errors, IsEmpty());
}

TEST_F(CaptureContract, SamplesArePlanarFloatAndComeBehindTheHandlers) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  onStart = [&] {
    rig->keepBusy(0.1);
    EXPECT_EQ(receiver->frames(), 0);
  };
  ASSERT_TRUE(start(session));
  EXPECT_EQ(framesAtStart, 0);
  ASSERT_TRUE(receive(4800));
  const auto format = receiver->format();
  EXPECT_EQ(format.mSampleRate, 48000);
  EXPECT_EQ(format.mFormatID, platform::kAudioFormatLinearPCM);
  EXPECT_EQ(format.mFormatFlags, platform::kAudioFormatFlagIsFloat |
                                     platform::kAudioFormatFlagIsPacked |
                                     platform::kAudioFormatFlagIsNonInterleaved);
  EXPECT_EQ(format.mChannelsPerFrame, 2U);
  EXPECT_EQ(format.mBitsPerChannel, 32U);
  EXPECT_TRUE(receiver->areWhole());
}

TEST_F(CaptureContract, TheEndOfTheDeliveryComesBehindTheLastSamplesOnce) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(receive(480));
  EXPECT_EQ(receiver->ends(), 0);
  session->stopRunning();
  EXPECT_FALSE(session->isRunning());
  session->stopRunning();
  ASSERT_TRUE(rig->runUntil([&] { return receiver->ends() == 1; }));
  const std::int64_t frames = receiver->frames();
  rig->pass(0.1);
  EXPECT_EQ(receiver->frames(), frames);
  EXPECT_EQ(receiver->ends(), 1);
  EXPECT_FALSE(receiver->isBehindEnd());
}

TEST_F(CaptureContract, StartingARunningSessionAnnouncesItAgain) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(start(session));
  EXPECT_EQ(started, 2);
  EXPECT_TRUE(session->isRunning());
}

TEST_F(CaptureContract, ASessionMayRunAgain) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  for (int run = 1; run <= 3; ++run) {
    ASSERT_TRUE(start(session)) << run;
    ASSERT_TRUE(receive(receiver->frames() + 480)) << run;
    session->stopRunning();
    ASSERT_TRUE(rig->runUntil([&] { return receiver->ends() == run; })) << run;
  }
  EXPECT_THAT(errors, IsEmpty());
}

TEST_F(CaptureContract, NothingIsPostedOfARunThatWasStoppedBeforeItBegan) {
  const auto session = dataSession(rig->plugInMicrophone("mic"));
  session->startRunning();
  EXPECT_TRUE(session->isRunning());
  session->stopRunning();
  EXPECT_FALSE(session->isRunning());
  rig->pass(0.3);
  EXPECT_EQ(started, 0);
  EXPECT_THAT(errors, IsEmpty());
  EXPECT_EQ(receiver->frames(), 0);
}

TEST_F(CaptureContract, ASessionWithoutAnInputFailsByItsRuntimeError) {
  const auto session = capture().createSession();
  session->addOutput(capture().createAudioDataOutput());
  session->startRunning();
  EXPECT_THAT(errors, IsEmpty()) << "posted during the call";
  ASSERT_TRUE(rig->runUntil([&] { return !errors.empty(); }));
  EXPECT_THAT(errors, testing::ElementsAre(Not(StrEq(""))));
  EXPECT_EQ(about, session);
  EXPECT_FALSE(session->isRunning());
  EXPECT_EQ(started, 0);
}

TEST_F(CaptureContract, ADeviceThatGoesEndsTheRunWithAnErrorThatNamesIt) {
  const std::string id = rig->plugInMicrophone("Desk microphone");
  const auto session = dataSession(id);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(receive(480));
  rig->unplug(id);
  ASSERT_TRUE(rig->runUntil([&] { return !errors.empty(); }));
  EXPECT_THAT(errors, testing::ElementsAre(testing::HasSubstr("Desk microphone")));
  EXPECT_FALSE(isRunningAtError);
  EXPECT_EQ(about, session);
  EXPECT_FALSE(session->isRunning());
  EXPECT_TRUE(rig->runUntil([&] { return receiver->ends() == 1; }));

  session->startRunning();
  ASSERT_TRUE(rig->runUntil([&] { return errors.size() == 2; }));
  EXPECT_FALSE(session->isRunning());
  EXPECT_EQ(started, 1);
}

TEST_F(CaptureContract, ASessionThatListensPostsNothing) {
  const auto session = capture().createMonitoringSession();
  ASSERT_NE(session, nullptr) << "not every host has such sessions, but those tested here do";
  const std::string id = rig->plugInMicrophone("mic");
  const auto output = capture().createAudioDataOutput();
  output->setSampleBufferDelegate(receiver, host().dispatch.createSerialQueue("contract.level"));
  sessionOf(session, id, output);
  session->startRunning();
  EXPECT_TRUE(session->isRunning());
  ASSERT_TRUE(receive(480));
  rig->unplug(id);
  EXPECT_TRUE(rig->runUntil([&] { return !session->isRunning(); }));
  EXPECT_EQ(started, 0);
  EXPECT_THAT(errors, IsEmpty());
}

class FileOutputContract : public CaptureContract {
 protected:
  CaptureSessionPtr fileSession(const std::string& uniqueID) {
    output = capture().createAudioFileOutput();
    auto session = capture().createSession();
    session->setSessionPreset(platform::kCaptureSessionPresetHigh);
    return sessionOf(std::move(session), uniqueID, output);
  }
  void record(const std::string& name) {
    output->startRecordingToOutputFileURL(url(name), platform::kFileTypeMPEG4, watcher);
  }
  std::string path(const std::string& name) { return rig->folder() + "/" + name; }
  std::string url(const std::string& name) { return platform::fileURLWithPath(path(name)); }
  bool isFinished(std::size_t files = 1) {
    return rig->runUntil([&] { return watcher->finished.size() >= files; });
  }

  std::shared_ptr<FileWatcher> watcher = std::make_shared<FileWatcher>();
  std::shared_ptr<platform::CaptureAudioFileOutput> output;
};

TEST_F(FileOutputContract, AFileIsBegunAndCompletedAndBothAreReportedFromTheLoop) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  output->setMetadata({"title", {}});
  ASSERT_TRUE(start(session));
  record("a");
  EXPECT_THAT(watcher->started, IsEmpty()) << "told during the call";
  ASSERT_TRUE(rig->runUntil([&] { return !watcher->started.empty(); }));
  EXPECT_THAT(watcher->started, testing::ElementsAre(url("a")));
  rig->pass(0.3);
  output->stopRecording();
  EXPECT_THAT(watcher->finished, IsEmpty()) << "told during the call";
  session->stopRunning();
  ASSERT_TRUE(isFinished());
  EXPECT_THAT(watcher->finished, testing::ElementsAre(url("a")));
  EXPECT_THAT(watcher->errors, testing::ElementsAre(""));
  const auto held = rig->contents(path("a"));
  ASSERT_TRUE(held.has_value());
  EXPECT_THAT(*held, Not(IsEmpty()));
}

TEST_F(FileOutputContract, EveryPresetAndOneThatIsNoneMakesAFile) {
  const std::string id = rig->plugInMicrophone("mic");
  std::size_t files = 0;
  for (const char* preset :
       {platform::kCaptureSessionPresetHigh, platform::kCaptureSessionPresetMedium,
        platform::kCaptureSessionPresetLow, "no such preset"}) {
    const auto session = fileSession(id);
    session->setSessionPreset(preset);
    ASSERT_TRUE(start(session)) << preset;
    record(preset);
    rig->pass(0.1);
    session->stopRunning();
    ASSERT_TRUE(isFinished(++files)) << preset;
    EXPECT_EQ(watcher->errors.back(), "") << preset;
    EXPECT_THAT(rig->contents(path(preset)).value_or(""), Not(IsEmpty())) << preset;
  }
}

TEST_F(FileOutputContract, ASessionThatStopsCompletesItsFileToo) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  record("a");
  rig->pass(0.1);
  session->stopRunning();
  ASSERT_TRUE(isFinished());
  EXPECT_THAT(watcher->errors, testing::ElementsAre(""));
  output->stopRecording();
  rig->pass(0.05);
  EXPECT_EQ(watcher->finished.size(), 1U);
}

TEST_F(FileOutputContract, AFileMovedWhileItIsWrittenIsCompleteUnderItsNewName) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  record("a");
  rig->pass(0.3);
  output->stopRecording();
  session->stopRunning();
  EXPECT_EQ(host().fileManager.moveItem(path("a"), path("b")), "");
  ASSERT_TRUE(isFinished());
  EXPECT_THAT(watcher->errors, testing::ElementsAre(""));
  EXPECT_EQ(rig->contents(path("a")), std::nullopt);
  EXPECT_THAT(rig->contents(path("b")).value_or(""), Not(IsEmpty()));
}

TEST_F(FileOutputContract, WhatCannotBeBegunIsAnException) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  EXPECT_THROW(record("early"), platform::CaptureException);
  ASSERT_TRUE(start(session));
  EXPECT_THROW(output->startRecordingToOutputFileURL(url("a"), "no such type", watcher),
               platform::CaptureException);
  EXPECT_THROW(record("no folder/a"), platform::CaptureException);
  EXPECT_THROW(output->startRecordingToOutputFileURL("no url", platform::kFileTypeMPEG4, watcher),
               platform::CaptureException);
  record("a");
  EXPECT_THROW(record("second"), platform::CaptureException);
  session->stopRunning();
  ASSERT_TRUE(isFinished());
  EXPECT_THROW(record("late"), platform::CaptureException);
  EXPECT_EQ(rig->contents(path("early")), std::nullopt);
  EXPECT_EQ(rig->contents(path("late")), std::nullopt);
}

TEST_F(FileOutputContract, NoMoreRoomIsTheSessionsRuntimeError) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  ASSERT_TRUE(start(session));
  record("a");
  rig->pass(0.1);
  rig->limitFiles(0);
  ASSERT_TRUE(rig->runUntil([&] { return !errors.empty(); }));
  rig->limitFiles(std::nullopt);
  EXPECT_FALSE(session->isRunning());
  ASSERT_TRUE(isFinished());
  EXPECT_THAT(watcher->errors, testing::ElementsAre(Not(StrEq(""))));
}

TEST_F(FileOutputContract, AStopWithoutARecordingDoesNothing) {
  const auto session = fileSession(rig->plugInMicrophone("mic"));
  output->stopRecording();
  ASSERT_TRUE(start(session));
  output->stopRecording();
  rig->pass(0.05);
  EXPECT_TRUE(session->isRunning());
  EXPECT_THAT(watcher->finished, IsEmpty());
}

}  // namespace
}  // namespace contract
