// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>

#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/signal_feed.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using test_support::frameNumberOf;
using test_support::waitUntil;
using testing::HasSubstr;

// Keeps the first channel; can be made to refuse, to block or to fail.
class Keeper : public CaptureConsumer {
 public:
  bool isReady() override { return isWilling; }
  Status take(const float* const* planes, std::uint32_t frames) override {
    std::unique_lock lock(mutex_);
    released_.wait(lock, [this] { return !isHeld_; });
    samples_.insert(samples_.end(), planes[0], planes[0] + frames);
    ++takes;
    if (!error.empty()) return Unexpected(error);
    return {};
  }
  void finish() override { ++finished; }
  std::chrono::milliseconds patience() const override { return patient ? 100ms : kUsualPatience; }

  void hold() {
    const std::lock_guard lock(mutex_);
    isHeld_ = true;
  }
  void release() {
    const std::lock_guard lock(mutex_);
    isHeld_ = false;
    released_.notify_all();
  }
  std::vector<float> samples() {
    const std::lock_guard lock(mutex_);
    return samples_;
  }

  std::atomic<bool> isWilling{true};
  std::atomic<int> finished{0};
  std::atomic<int> takes{0};
  std::string error;
  bool patient = false;  // set before it is added

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  bool isHeld_ = false;
  std::vector<float> samples_;
};

class CaptureRunTest : public testing::Test {
 protected:
  CaptureRunTest() {
    control.createMicrophone("mic");
    control.link("feed", "mic");
    events.onSamples = [this] { ++announced; };
    events.onFailed = [this](const std::string& message) {
      const std::lock_guard lock(mutex);
      failures.push_back(message);
    };
    events.onWarning = [this](const std::string& message) {
      const std::lock_guard lock(mutex);
      warnings.push_back(message);
    };
  }
  std::unique_ptr<CaptureRun> makeRun(std::uint32_t ring_s) {
    return std::make_unique<CaptureRun>(CaptureSource{"mic", "mic", false, 48000, {3, 4}}, events,
                                        std::make_shared<SourceRest>(), work, ring_s);
  }
  static std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps(std::vector<float> samples) {
    std::erase(samples, 0.0F);
    std::vector<std::pair<std::uint64_t, std::uint64_t>> found;
    for (std::size_t i = 1; i < samples.size(); ++i) {
      const std::uint64_t before = frameNumberOf(samples[i - 1]);
      const std::uint64_t now = frameNumberOf(samples[i]);
      if (now != before + 1) found.emplace_back(before, now);
    }
    return found;
  }
  std::vector<std::string> texts(const std::vector<std::string>& list) {
    const std::lock_guard lock(mutex);
    return list;
  }

  test_support::PrivatePipeWire server;
  test_support::PipeWireControl control;
  test_support::SignalFeed feed{"feed", 2, test_support::frameNumber};
  PendingWork work;
  CaptureRun::Events events;
  std::atomic<int> announced{0};
  std::mutex mutex;
  std::vector<std::string> failures;
  std::vector<std::string> warnings;
  std::shared_ptr<Keeper> keeper = std::make_shared<Keeper>();
};

TEST_F(CaptureRunTest, OverflowLosesWholeBlocksAndSaysHowManyFrames) {
  auto run = makeRun(1);
  ASSERT_TRUE(run->addConsumer(keeper));
  run->deliver();
  ASSERT_TRUE(waitUntil([&] { return keeper->samples().size() > 4800; }));
  keeper->hold();
  const std::uint64_t before = feed.framesPlayed();
  ASSERT_TRUE(waitUntil([&] { return feed.framesPlayed() > before + 2 * 48000; }));
  keeper->release();
  ASSERT_TRUE(waitUntil([&] { return !texts(warnings).empty(); }));
  const std::size_t resumed = keeper->samples().size();
  ASSERT_TRUE(waitUntil([&] { return keeper->samples().size() > resumed + 9600; }));
  run->end();
  work.waitUntilIdle();
  run.reset();

  const auto found = gaps(keeper->samples());
  std::uint64_t missing = 0;
  for (const auto& [left, right] : found) missing += right - left - 1;
  EXPECT_GT(missing, 40000U);
  EXPECT_LT(missing, 70000U);
  std::uint64_t reported = 0;
  for (const std::string& text : texts(warnings)) {
    unsigned long long frames = 0;
    ASSERT_EQ(std::sscanf(text.c_str(), "Lost %llu frames", &frames), 1) << text;
    reported += frames;
  }
  EXPECT_EQ(reported, missing);
  EXPECT_EQ(keeper->finished, 1);
  EXPECT_TRUE(texts(failures).empty());
}

TEST_F(CaptureRunTest, ConsumerThatIsNotReadyLeavesItsSamplesInTheRing) {
  auto run = makeRun(10);
  keeper->isWilling = false;
  ASSERT_TRUE(run->addConsumer(keeper));
  run->deliver();
  const std::uint64_t before = feed.framesPlayed();
  ASSERT_TRUE(waitUntil([&] { return feed.framesPlayed() > before + 48000; }));
  EXPECT_TRUE(keeper->samples().empty());
  keeper->isWilling = true;
  ASSERT_TRUE(waitUntil([&] { return keeper->samples().size() > 48000; }));
  EXPECT_TRUE(gaps(keeper->samples()).empty());
}

TEST_F(CaptureRunTest, EndDeliversEverythingCapturedEvenToConsumersThatAreNotReady) {
  auto run = makeRun(10);
  keeper->isWilling = false;
  ASSERT_TRUE(run->addConsumer(keeper));
  run->deliver();
  ASSERT_TRUE(waitUntil([&] { return announced == 1; }));
  const std::uint64_t before = feed.framesPlayed();
  ASSERT_TRUE(waitUntil([&] { return feed.framesPlayed() > before + 48000; }));
  run->end();
  work.waitUntilIdle();
  EXPECT_TRUE(run->hasFinished());
  EXPECT_GT(keeper->samples().size(), 30000U);
  EXPECT_TRUE(gaps(keeper->samples()).empty());
  EXPECT_EQ(keeper->finished, 1);
  EXPECT_FALSE(run->addConsumer(std::make_shared<Keeper>()));
}

TEST_F(CaptureRunTest, ConsumersThatFollowOneAnotherShareTheSamplesWithoutGapOrOverlap) {
  auto run = makeRun(10);
  ASSERT_TRUE(run->addConsumer(keeper));
  run->deliver();
  ASSERT_TRUE(waitUntil([&] { return keeper->samples().size() > 9600; }));
  const auto next = std::make_shared<Keeper>();
  ASSERT_TRUE(run->addConsumer(next));
  run->endConsumer(keeper);
  ASSERT_TRUE(waitUntil([&] { return keeper->finished == 1 && next->samples().size() > 9600; }));
  const auto last = frameNumberOf(keeper->samples().back());
  const auto first = frameNumberOf(next->samples().front());
  // A cycle may have come between the two calls.
  EXPECT_LE(last > first ? last - first : first - last, 4 * 1024U);
  EXPECT_EQ(announced, 1);
}

TEST_F(CaptureRunTest, StartRequestedAgainAndAgainIsStillAnnounced) {
  // Often enough that one request comes between the first samples and the check for them.
  for (int round = 0; round < 20; ++round) {
    announced = 0;
    auto run = makeRun(10);
    EXPECT_TRUE(waitUntil([&] {
      run->announce();
      return announced > 0;
    })) << round;
  }
}

TEST_F(CaptureRunTest, PatientConsumerGetsMoreAtOnceAndMissesNothing) {
  keeper->patient = true;
  auto run = makeRun(10);
  ASSERT_TRUE(run->addConsumer(keeper));
  run->deliver();
  ASSERT_TRUE(waitUntil([&] { return keeper->samples().size() > 2 * 48000; }));
  run->end();
  work.waitUntilIdle();
  // Taken block by block it would be 47 per second.
  EXPECT_LT(keeper->takes, static_cast<int>(keeper->samples().size() / 2400));
  EXPECT_TRUE(gaps(keeper->samples()).empty());
}

TEST_F(CaptureRunTest, ConsumersErrorEndsTheRunWithItsText) {
  auto run = makeRun(10);
  keeper->error = "The disk is full.";
  const auto other = std::make_shared<Keeper>();
  ASSERT_TRUE(run->addConsumer(keeper));
  ASSERT_TRUE(run->addConsumer(other));
  run->deliver();
  ASSERT_TRUE(waitUntil([&] { return keeper->finished == 1; }));
  ASSERT_TRUE(waitUntil([&] { return run->hasFinished(); }));
  EXPECT_EQ(texts(failures), std::vector<std::string>{"The disk is full."});
  EXPECT_EQ(other->finished, 1);
  EXPECT_FALSE(other->samples().empty());
}

}  // namespace
}  // namespace linux_host
