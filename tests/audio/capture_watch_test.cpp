// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <vector>

#include "hosts/linux/audio/cycle_watch.h"
#include "hosts/linux/audio/sound_watch.h"
#include "hosts/linux/audio/source_rest.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/realtime_trap.h"

namespace linux_host {
namespace {

// The clock of a device at 48 kHz with cycles of 1024 frames.
struct Device {
  Device() {
    clock.id = 7;
    clock.rate = {1, 48000};
    clock.duration = 1024;
    clock.position = 5'000'000;
    clock.nsec = 1'000'000'000;
  }
  // The next cycle after `skipped` others.
  const spa_io_clock& next(std::uint64_t skipped = 0) {
    const std::uint64_t frames = (skipped + 1) * clock.duration;
    clock.position += frames;
    clock.nsec += frames * 1'000'000'000 / 48000;
    return clock;
  }
  spa_io_clock clock{};
};

TEST(CycleWatch, CountsNothingWhileEveryCycleArrives) {
  Device device;
  CycleWatch watch(48000);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(watch.see(device.next()), 0U);
  EXPECT_EQ(watch.cycle_frames(), 1024U);
}

TEST(CycleWatch, CountsTheFramesOfMissedCyclesAtTheStreamsRate) {
  Device device;
  CycleWatch watch(48000);
  CycleWatch slower(16000);
  EXPECT_EQ(watch.see(device.next()), 0U);
  EXPECT_EQ(slower.see(device.clock), 0U);
  EXPECT_EQ(watch.see(device.next(3)), 3 * 1024U);
  EXPECT_EQ(slower.see(device.clock), 1024U);
  EXPECT_EQ(slower.cycle_frames(), 341U);
  EXPECT_EQ(watch.see(device.next()), 0U);
}

TEST(CycleWatch, DoesNotTakeAChangeOfCycleLengthForALoss) {
  CycleWatch watch(48000);
  // Both kinds of drivers: the position advances by the old length or by the new one.
  for (const bool byOld : {true, false}) {
    Device device;
    EXPECT_EQ(watch.see(device.next()), 0U);
    for (const std::uint64_t length : {8192, 256, 1024}) {
      device.clock.position += byOld ? device.clock.duration : length;
      device.clock.duration = length;
      EXPECT_EQ(watch.see(device.clock), 0U) << length;
      EXPECT_EQ(watch.see(device.next()), 0U) << length;
    }
    device.clock.id += 1;
  }
}

TEST(CycleWatch, StartsOverWithAnotherDeviceAndWithAClockThatWasSet) {
  Device device;
  CycleWatch watch(48000);
  EXPECT_EQ(watch.see(device.next()), 0U);
  device.clock.id = 8;
  device.clock.position += 1'000'000;
  EXPECT_EQ(watch.see(device.clock), 0U);
  device.clock.position = 100;
  EXPECT_EQ(watch.see(device.clock), 0U);
  EXPECT_EQ(watch.see(device.next()), 0U);
  device.clock.rate = {1, 44100};
  device.clock.position += 1'000'000;
  EXPECT_EQ(watch.see(device.clock), 0U);
  device.clock.position += std::uint64_t{1} << 60;
  EXPECT_EQ(watch.see(device.clock), 0U);
  EXPECT_EQ(watch.see(device.next()), 0U);
}

TEST(CycleWatch, CountsTheTimeForWhichADeviceStalled) {
  Device device;
  CycleWatch watch(48000);
  EXPECT_EQ(watch.see(device.next()), 0U);
  device.next();
  device.clock.nsec += 900'000'000;  // it may just have been late
  EXPECT_EQ(watch.see(device.clock), 0U);
  device.next();
  device.clock.nsec += 2'000'000'000;
  EXPECT_NEAR(static_cast<double>(watch.see(device.clock)), 2 * 48000, 48);
}

TEST(CycleWatch, IgnoresImplausibleClocks) {
  CycleWatch watch(48000);
  spa_io_clock clock{};
  EXPECT_EQ(watch.see(clock), 0U);
  clock.duration = 1024;
  clock.rate = {5, 3};
  EXPECT_EQ(watch.see(clock), 0U);
  EXPECT_EQ(watch.cycle_frames(), 0U);
}

TEST(CycleWatch, IsFitForAnAudioThread) {
  const realtime_trap::Report report = realtime_trap::runTrapped([] {
    Device device;
    CycleWatch watch(48000);
    std::uint64_t missed = watch.see(device.next());
    for (int i = 0; i < 100; ++i) missed += watch.see(device.next(1));
    return missed == 100 * 1024;
  });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
}

// The blocks of a source with two channels.
class SoundWatchTest : public testing::Test {
 protected:
  static constexpr std::uint32_t kRate_Hz = 8000;
  // The last sample of each channel, all others silent.
  void send(double time_s, float left, float right, std::uint32_t recorded = 2) {
    for (int i = 0; i < static_cast<int>(time_s * 10); ++i) {
      left_.back() = left;
      right_.back() = right;
      const float* const planes[] = {left_.data(), right_.data()};
      watch.listen(planes, 2, recorded, static_cast<std::uint32_t>(left_.size()));
    }
  }
  SoundWatch watch{kRate_Hz};

 private:
  std::vector<float> left_ = std::vector<float>(kRate_Hz / 10);
  std::vector<float> right_ = std::vector<float>(kRate_Hz / 10);
};

TEST_F(SoundWatchTest, SilenceFromTheStartIsReportedAfterThreeSeconds) {
  send(2.9, 0, 0);
  EXPECT_FALSE(watch.isSilent());
  send(0.1, 0, 0);
  EXPECT_TRUE(watch.isSilent());
  send(0.1, 0, 0.1F);
  EXPECT_FALSE(watch.isSilent());
}

TEST_F(SoundWatchTest, SilenceAfterSoundIsReportedAfterTenSeconds) {
  send(5, 0.1F, 0);
  send(9.9, 0, 0);
  EXPECT_FALSE(watch.isSilent());
  send(0.1, 0, 0);
  EXPECT_TRUE(watch.isSilent());
  EXPECT_FALSE(watch.hasSoundElsewhere());
  send(0.1, 0.1F, 0);
  EXPECT_FALSE(watch.isSilent());
}

TEST_F(SoundWatchTest, OnlyWhatIsRecordedCounts) {
  send(2.9, 0, 0.1F, 1);
  EXPECT_FALSE(watch.isSilent());
  EXPECT_FALSE(watch.hasSoundElsewhere());
  send(0.1, 0, 0.1F, 1);
  EXPECT_TRUE(watch.isSilent());
  EXPECT_TRUE(watch.hasSoundElsewhere());
  send(0.1, 0, 0, 1);
  EXPECT_TRUE(watch.isSilent());
  EXPECT_FALSE(watch.hasSoundElsewhere());
}

TEST(SourceRest, ASourceThatNobodyHasRecordedIsReadyAtOnce) {
  SourceRest rest;
  EXPECT_EQ(rest.left("mic").count(), 0);
  rest.ending("other");
  EXPECT_EQ(rest.left("mic").count(), 0);
}

TEST(SourceRest, LastsFromTheEndOfTheLastStream) {
  SourceRest rest;
  rest.ending("mic");
  rest.ending("mic");
  rest.ended("mic", true);
  EXPECT_EQ(rest.left("mic"), SourceRest::kRest);
  rest.ended("mic", false);
  EXPECT_GT(rest.left("mic").count(), 0);
  EXPECT_LE(rest.left("mic"), SourceRest::kRest);
  EXPECT_TRUE(test_support::waitUntil([&] { return rest.left("mic").count() == 0; }));
  rest.ending("mic");
  rest.ended("mic", false);  // ended before it was connected
  EXPECT_EQ(rest.left("mic").count(), 0);
}

}  // namespace
}  // namespace linux_host
