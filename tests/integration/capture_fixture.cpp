// SPDX-License-Identifier: MIT
#include "tests/integration/capture_fixture.h"

#include <poll.h>

#include <algorithm>
#include <cstring>

namespace linux_host {

TestQueue::TestQueue()
    : thread_([this] {
        std::unique_lock lock(mutex_);
        for (;;) {
          wake_.wait(lock, [this] { return isDone_ || !items_.empty(); });
          if (items_.empty()) return;
          const std::function<void()> item = std::move(items_.front());
          items_.pop_front();
          lock.unlock();
          item();
          lock.lock();
        }
      }) {}

TestQueue::~TestQueue() {
  {
    const std::lock_guard lock(mutex_);
    isDone_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void TestQueue::async(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  items_.push_back(std::move(work));
  wake_.notify_all();
}

void SampleCollector::captureOutput(platform::CaptureOutput&,
                                    const std::shared_ptr<platform::SampleBuffer>& buffer,
                                    platform::CaptureConnection&) {
  if (const auto stall_ms = stall_ms_.exchange(0); stall_ms > 0) {
    poll(nullptr, 0, static_cast<int>(stall_ms));
  }
  const platform::AudioStreamBasicDescription& format =
      buffer->getFormatDescription().formatList.at(0);
  std::size_t size = 0;
  EXPECT_EQ(buffer->getAudioBufferListWithRetainedBlockBuffer(&size, nullptr, 0, nullptr),
            platform::noErr);
  std::vector<std::byte> list(size);
  std::shared_ptr<platform::BlockBuffer> block;
  EXPECT_EQ(buffer->getAudioBufferListWithRetainedBlockBuffer(
                nullptr, reinterpret_cast<platform::AudioBufferList*>(list.data()), size, &block),
            platform::noErr);
  const auto frames = static_cast<std::size_t>(buffer->getNumSamples());
  EXPECT_EQ(block->getDataLength(), frames * format.mChannelsPerFrame * sizeof(float));
  EXPECT_EQ(format.mFormatFlags & platform::kAudioFormatFlagIsNonInterleaved,
            platform::kAudioFormatFlagIsNonInterleaved);

  const std::lock_guard lock(mutex_);
  rate_Hz_ = format.mSampleRate;
  planes_.resize(format.mChannelsPerFrame);
  for (std::size_t channel = 0; channel < planes_.size(); ++channel) {
    std::vector<float>& plane = planes_[channel];
    plane.resize(plane.size() + frames);
    std::memcpy(plane.data() + plane.size() - frames,
                block->getDataPointer(channel * frames * sizeof(float)), frames * sizeof(float));
  }
}

std::size_t SampleCollector::frames() const {
  const std::lock_guard lock(mutex_);
  return planes_.empty() ? 0 : planes_[0].size();
}

std::vector<float> SampleCollector::channel(std::size_t channel) const {
  const std::lock_guard lock(mutex_);
  return planes_.at(channel);
}

std::size_t SampleCollector::channels() const {
  const std::lock_guard lock(mutex_);
  return planes_.size();
}

double SampleCollector::rate_Hz() const {
  const std::lock_guard lock(mutex_);
  return rate_Hz_;
}

void SampleCollector::clear() {
  const std::lock_guard lock(mutex_);
  planes_.clear();
}

CaptureFixture::CaptureFixture(test_support::PrivatePipeWire::Options options)
    : server(std::move(options)),
      capture({connection, notifications,
               [this](std::function<void()> work) { mainLoop.post(std::move(work)); }, pendingWork,
               files, m4aWriters, permission}) {
  notifications.addObserver(this, platform::kCaptureSessionDidStartRunningNotification,
                            [this](const platform::Notification&) { ++started_; });
  notifications.addObserver(this, platform::kCaptureSessionRuntimeErrorNotification,
                            [this](const platform::Notification& notification) {
                              const auto text =
                                  notification.userInfo.find(platform::kCaptureSessionErrorKey);
                              ASSERT_NE(text, notification.userInfo.end());
                              errors_.push_back(*text->second.as<std::string>());
                            });
}

CaptureFixture::~CaptureFixture() {
  notifications.removeObserver(this);
}

platform::CaptureDevicePtr CaptureFixture::device(const std::string& nodeName) {
  platform::CaptureDevicePtr found;
  mainLoop.runUntil([&] { return (found = capture.deviceWithUniqueID(nodeName)) != nullptr; });
  return found;
}

platform::CaptureSessionPtr CaptureFixture::dataSession(
    const std::string& nodeName, const std::shared_ptr<SampleCollector>& collector) {
  platform::CaptureSessionPtr session = capture.createSession();
  std::string error;
  const auto input = capture.createDeviceInput(device(nodeName), &error);
  EXPECT_NE(input, nullptr) << error;
  const auto output = capture.createAudioDataOutput();
  // The queue belongs to the fixture, which outlives the session.
  output->setSampleBufferDelegate(collector,
                                  std::shared_ptr<platform::DispatchQueue>(&queue, [](auto*) {}));
  EXPECT_TRUE(session->canAddInput(input));
  EXPECT_TRUE(session->canAddOutput(output));
  session->addInput(input);
  session->addOutput(output);
  return session;
}

platform::CaptureSessionPtr CaptureFixture::fileSession(
    const std::string& nodeName, const std::string& preset,
    std::shared_ptr<platform::CaptureAudioFileOutput>* output) {
  platform::CaptureSessionPtr session = capture.createSession();
  session->setSessionPreset(preset);
  std::string error;
  session->addInput(capture.createDeviceInput(device(nodeName), &error));
  *output = capture.createAudioFileOutput();
  session->addOutput(*output);
  return session;
}

bool CaptureFixture::start(const platform::CaptureSessionPtr& session) {
  const int before = started_;
  session->startRunning();
  return mainLoop.runUntil([&] { return started_ > before; });
}

std::size_t countJumps(std::vector<float> samples) {
  std::erase(samples, 0.0F);
  std::size_t jumps = 0;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    if (test_support::frameNumberOf(samples[i]) !=
        test_support::frameNumberOf(samples[i - 1]) + 1) {
      ++jumps;
    }
  }
  return jumps;
}

void expectUnbroken(const std::vector<float>& recorded, std::size_t least_frames) {
  const auto silent = std::count(recorded.begin(), recorded.end(), 0.0F);
  EXPECT_GE(recorded.size() - static_cast<std::size_t>(silent), least_frames) << "it is silent";
  EXPECT_EQ(countJumps(recorded), 0U);
}

void repeatOnSlowMachine(const std::function<std::string()>& attempt) {
  constexpr int kAttempts = 3;
  std::string problem;
  for (int i = 0; i < kAttempts; ++i) {
    problem = attempt();
    if (problem.empty()) return;
    std::printf("attempt %d: %s\n", i + 1, problem.c_str());
  }
  FAIL() << problem << ", " << kAttempts << " times in a row";
}

}  // namespace linux_host
