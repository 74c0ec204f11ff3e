// SPDX-License-Identifier: MIT
// The recorder with real queues: the main thread, data-output queue and encode queue run at once.

#include <future>
#include <thread>

#include "tests/capture/mp3_decoding.h"
#include "tests/capture/recorder_fixture.h"
#include "tests/capture/threaded_parts.h"

namespace {

using namespace capture_test;

class RecorderThreadsTest : public testing::Test {
 protected:
  RecorderThreadsTest() {
    addInputDevice(memory.audioHardware, kMicId, kMicUID);
    mic = memory.capture.connect(kMicUID, "Microphone");
    recorder = record_audio::AudioRecorder::initWithDesktopPath(environment, fileManager.folder);
  }

  void start() {
    ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
    memory.capture.sessions.front()->reportStarted();
    ASSERT_TRUE(recorder->isRecording());
  }
  // Sends blocks of a tone from its own thread, as a capture session does.
  std::thread feed(std::size_t blocks) {
    return std::thread([output = memory.capture.dataOutputs.front(), blocks] {
      const auto tone = sine(1000, 0.5, blocks * 1024);
      for (std::size_t i = 0; i < blocks; ++i) {
        const std::vector<float> block(tone.begin() + static_cast<std::ptrdiff_t>(i * 1024),
                                       tone.begin() + static_cast<std::ptrdiff_t>((i + 1) * 1024));
        output->deliver(memory_host::floatSampleBuffer({block, block}));
      }
    });
  }

  memory_host::MemoryHost memory;
  DiskFileManager fileManager;
  ThreadedDispatch dispatch;
  platform::Host host = hostWith(memory, dispatch, fileManager);
  suite::Environment environment{host, memory.suiteServices};
  std::shared_ptr<memory_host::MemoryCaptureDevice> mic;
  std::shared_ptr<record_audio::AudioRecorder> recorder;
};

TEST_F(RecorderThreadsTest, LosesNoSampleWhileTheDiskStalls) {
  start();
  fileManager.holdWrites();
  feed(300).join();
  // The capture side has finished every block, although nothing could be written.
  std::promise<void> taken;
  memory.capture.dataOutputs.front()->queue->async([&] { taken.set_value(); });
  ASSERT_EQ(taken.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(fileManager.contents(recorder->outputFilePath()), "");

  fileManager.releaseWrites();
  dispatch.waitForSerialQueues();
  recorder->stopRecord();
  dispatch.waitForSerialQueues();
  const auto decoded = decodeMp3(fileManager.contents(recorder->outputFilePath()));
  EXPECT_GE(decoded.left.size(), 300U * 1024);
  EXPECT_GT(shareAt(middle(decoded.left), 1000, 48000), 0.999);
}

TEST_F(RecorderThreadsTest, StopsAndStartsAgainUnderFullLoadWithEveryFileReadable) {
  for (int round = 0; round < 8; ++round) {
    start();
    std::thread feeder = feed(60);
    if (round % 2 == 0) feeder.join();
    recorder->stopRecord();
    EXPECT_FALSE(recorder->isRecording());
    if (feeder.joinable()) feeder.join();
    memory.clock.now_ns += 1'000'000'000;
  }
  dispatch.waitForSerialQueues();
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(fileManager.folder)) {
    const auto decoded = decodeMp3(fileManager.contents(entry.path()));
    EXPECT_EQ(decoded.sampleRate_hz, 48000) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 8U);
}

TEST_F(RecorderThreadsTest, IsDestroyedOnTheMainThreadWhoeverReleasesItLast) {
  std::thread::id destroyedOn;
  // Only the recorder keeps it, through a callback.
  recorder->setOnMuted([sentinel = std::shared_ptr<void>(
                            nullptr, [&](void*) { destroyedOn = std::this_thread::get_id(); })] {});
  std::promise<void> mainLetGo;
  const auto queue = dispatch.createSerialQueue("other");
  queue->async([held = recorder, released = mainLetGo.get_future().share()] { released.wait(); });
  recorder.reset();
  mainLetGo.set_value();
  EXPECT_TRUE(dispatch.main->run([&] { return destroyedOn != std::thread::id(); }));
  EXPECT_EQ(destroyedOn, std::this_thread::get_id());
  EXPECT_EQ(
      memory.notificationCenter.observerCount(platform::kCaptureSessionDidStartRunningNotification),
      0U);
}

}  // namespace
