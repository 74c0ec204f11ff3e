// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <numbers>
#include <vector>

#include "hosts/linux/audio_units/varispeed_unit.h"
#include "tests/support/realtime_trap.h"

namespace linux_host {
namespace {

using platform::noErr;
using platform::OSStatus;
using platform::planarFloat;

constexpr std::uint32_t kBlock_frames = 1024;

// Delivers a sine that depends only on the sample time.
struct Source {
  double frequency_Hz = 1000;
  double rate_Hz = 48000;
  std::uint32_t cut_frames = 0;  // delivers this many fewer, like a ring that runs dry
  std::vector<double> times{};
  bool keepTimes = true;

  static OSStatus callback(void* self, std::uint32_t*, const platform::AudioTimeStamp* time,
                           std::uint32_t, std::uint32_t frames, platform::AudioBufferList* list) {
    auto& source = *static_cast<Source*>(self);
    if (source.keepTimes) source.times.push_back(time->mSampleTime);
    platform::AudioBuffer* const buffers = list->mBuffers;
    for (std::uint32_t channel = 0; channel < list->mNumberBuffers; ++channel) {
      auto* const plane = static_cast<float*>(buffers[channel].mData);
      for (std::uint32_t i = 0; i < frames && source.frequency_Hz > 0; ++i) {
        const double phase = (time->mSampleTime + i) * source.frequency_Hz / source.rate_Hz;
        plane[i] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * phase));
      }
      buffers[channel].mDataByteSize -=
          std::min(source.cut_frames, frames) * static_cast<std::uint32_t>(sizeof(float));
    }
    return noErr;
  }
};

class VarispeedTest : public testing::Test {
 protected:
  void setUp(double inputRate_Hz, double outputRate_Hz, std::uint32_t channels) {
    source.rate_Hz = inputRate_Hz;
    const auto input = planarFloat(inputRate_Hz, channels);
    const auto output = planarFloat(outputRate_Hz, channels);
    const platform::AURenderCallbackStruct callback{Source::callback, &source};
    ASSERT_EQ(unit.setProperty({8, 1, 0}, &input, sizeof input), noErr);
    ASSERT_EQ(unit.setProperty({8, 2, 0}, &output, sizeof output), noErr);
    ASSERT_EQ(unit.setProperty({23, 1, 0}, &callback, sizeof callback), noErr);
    ASSERT_EQ(unit.initialize(), noErr);
    samples.assign(std::size_t{channels} * kBlock_frames, 0);
    list = PlaneList(channels);
    for (std::uint32_t i = 0; i < channels; ++i) {
      list.setPlane(i, samples.data() + std::size_t{i} * kBlock_frames, kBlock_frames);
    }
  }
  OSStatus render() {
    platform::AudioTimeStamp time;
    time.mSampleTime = time_frames;
    std::uint32_t flags = 0;
    const OSStatus status = unit.render(&flags, time, 0, kBlock_frames, list.list());
    time_frames += kBlock_frames;
    return status;
  }
  OSStatus setRate(float rate) {
    return unit.setParameter(platform::kVarispeedParam_PlaybackRate, 0, 0, rate);
  }

  Source source;
  VarispeedUnit unit;
  PlaneList list;
  std::vector<float> samples;
  double time_frames = 0;
};

TEST_F(VarispeedTest, ConsumesExactlyAtTheQuotientOfTheRatesTimesThePlaybackRate) {
  struct Case {
    double inputRate_Hz;
    double outputRate_Hz;
    float rate;
  };
  for (const Case& c : {Case{48000, 48000, 1.0F},
                        {48000, 44100, 1.0F},
                        {44100, 48000, 1.0F},
                        {48000, 48000, 1.0003F},
                        {48000, 44100, 0.9997F}}) {
    unit.uninitialize();
    setUp(c.inputRate_Hz, c.outputRate_Hz, 2);
    source.times.clear();
    ASSERT_EQ(setRate(c.rate), noErr);
    constexpr int kCycles = 500;
    for (int i = 0; i < kCycles; ++i) ASSERT_EQ(render(), noErr);
    const double needed =
        kCycles * kBlock_frames * c.inputRate_Hz / c.outputRate_Hz * static_cast<double>(c.rate);
    // At most the filter's length and one piece ahead.
    EXPECT_GE(source.times.back() + 128, needed);
    EXPECT_LE(source.times.back(), needed + 64);
    for (std::size_t i = 1; i < source.times.size(); ++i) {
      ASSERT_EQ(source.times[i], source.times[i - 1] + 128);
    }
  }
}

TEST_F(VarispeedTest, KeepsTheToneUnchanged) {
  setUp(48000, 44100, 2);
  std::vector<float> heard;
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(render(), noErr);
    heard.insert(heard.end(), samples.begin(), samples.begin() + kBlock_frames);
  }
  double worst = 0;
  for (std::size_t i = 2000; i < heard.size(); ++i) {
    const double phase = static_cast<double>(i) * 1000 / 44100;
    const double expected = 0.5 * std::sin(2 * std::numbers::pi * phase);
    worst = std::max(worst, std::abs(static_cast<double>(heard[i]) - expected));
  }
  EXPECT_LT(worst, 1e-3);
}

TEST_F(VarispeedTest, GlidesWhenTheRateChanges) {
  setUp(48000, 48000, 1);
  std::vector<float> heard;
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(setRate(1.0F + 0.0005F * static_cast<float>(i % 2)), noErr);
    ASSERT_EQ(render(), noErr);
    heard.insert(heard.end(), samples.begin(), samples.end());
  }
  const double most = 4 * 0.5 * std::pow(std::sin(std::numbers::pi * 1000 / 48000), 2) * 1.02;
  for (std::size_t i = 5000; i < heard.size(); ++i) {
    const double second = static_cast<double>(heard[i]) - 2 * static_cast<double>(heard[i - 1]) +
                          static_cast<double>(heard[i - 2]);
    ASSERT_LE(std::abs(second), most) << i;
  }
}

TEST_F(VarispeedTest, FramesTheDeviceSkippedCountAsConsumed) {
  setUp(48000, 44100, 2);
  for (int i = 0; i < 10; ++i) ASSERT_EQ(render(), noErr);
  const double before = source.times.back();
  time_frames += 4410;
  ASSERT_EQ(render(), noErr);
  const double first = *std::upper_bound(source.times.begin(), source.times.end(), before);
  EXPECT_NEAR(first, before + 128 + 4800, 1);
}

TEST_F(VarispeedTest, StepsBackOnceWhenItsSourceKeepsComingUpShort) {
  setUp(48000, 48000, 2);
  const auto stepsBack = [&] {
    int steps = 0;
    for (std::size_t i = 1; i < source.times.size(); ++i) {
      if (source.times[i] < source.times[i - 1] + 128) ++steps;
    }
    return steps;
  };
  for (int i = 0; i < 10; ++i) ASSERT_EQ(render(), noErr);
  source.cut_frames = 40;
  ASSERT_EQ(render(), noErr);  // once: a block was late
  source.cut_frames = 0;
  for (int i = 0; i < 10; ++i) ASSERT_EQ(render(), noErr);
  EXPECT_EQ(stepsBack(), 0);
  source.cut_frames = 40;
  for (int i = 0; i < 4; ++i) ASSERT_EQ(render(), noErr);
  source.cut_frames = 0;
  for (int i = 0; i < 20; ++i) ASSERT_EQ(render(), noErr);
  EXPECT_EQ(stepsBack(), 1);
  // The unit does not keep stepping back for a source that never catches up.
  source.cut_frames = 40;
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(render(), noErr);
  EXPECT_GT(source.times.back(), 2000 * kBlock_frames - 9 * kBlock_frames);
}

TEST_F(VarispeedTest, RefusesInvalidValues) {
  std::uint32_t flags = 0;
  const platform::AudioTimeStamp time;
  PlaneList none(2);
  EXPECT_EQ(unit.render(&flags, time, 0, 10, none.list()), platform::kAudioUnitErr_Uninitialized);
  setUp(48000, 44100, 2);
  EXPECT_EQ(unit.render(&flags, time, 1, 10, list.list()), platform::kAudioUnitErr_InvalidElement);
  EXPECT_EQ(unit.render(&flags, time, 0, 10, none.list()), platform::kAudio_ParamError);
  EXPECT_EQ(unit.render(&flags, time, 0, kBlock_frames + 1, list.list()),
            platform::kAudio_ParamError);
  EXPECT_EQ(unit.render(&flags, time, 0, VarispeedUnit::kMostFrames + 1, list.list()),
            platform::kAudioUnitErr_TooManyFramesToProcess);
  EXPECT_EQ(unit.setParameter(1, 0, 0, 1), platform::kAudioUnitErr_InvalidParameter);
  EXPECT_EQ(unit.setParameter(0, 1, 0, 1), platform::kAudioUnitErr_InvalidScope);
  EXPECT_EQ(unit.setParameter(0, 0, 1, 1), platform::kAudioUnitErr_InvalidElement);
  for (const float rate : {0.0F, -1.0F, 100.0F, NAN, INFINITY}) {
    EXPECT_EQ(setRate(rate), platform::kAudioUnitErr_InvalidPropertyValue) << rate;
  }
  const auto format = planarFloat(48000, 2);
  EXPECT_EQ(unit.setProperty({8, 1, 0}, &format, sizeof format),
            platform::kAudioUnitErr_CannotDoInCurrentContext);
  EXPECT_EQ(unit.setProperty({8, 1, 0}, &format, 4), platform::kAudioUnitErr_InvalidPropertyValue);
  EXPECT_EQ(unit.setProperty({8, 1, 1}, &format, sizeof format),
            platform::kAudioUnitErr_InvalidProperty);
  EXPECT_EQ(unit.start(), platform::kAudioUnitErr_InvalidElement);
  unit.uninitialize();
  auto interleaved = format;
  interleaved.mFormatFlags = platform::kAudioFormatFlagIsFloat;
  EXPECT_EQ(unit.setProperty({8, 1, 0}, &interleaved, sizeof interleaved),
            platform::kAudioUnitErr_FormatNotSupported);
  const auto other = planarFloat(48000, 6);
  EXPECT_EQ(unit.setProperty({8, 1, 0}, &other, sizeof other), noErr);
  EXPECT_EQ(unit.initialize(), platform::kAudioUnitErr_FormatNotSupported);
}

TEST_F(VarispeedTest, RenderingNeitherAllocatesNorLocksNorMakesASystemCall) {
  setUp(48000, 44100, 8);
  source.keepTimes = false;
  const realtime_trap::Report report = realtime_trap::runTrapped([this] {
    bool good = true;
    for (int i = 0; i < 200; ++i) {
      good &= setRate(1.0F + 1e-5F * static_cast<float>(i % 7)) == noErr;
      if (i % 50 == 49) time_frames += 2000;  // skipped
      source.cut_frames = i % 20 > 14 ? 30 : 0;
      good &= render() == noErr;
    }
    return good;
  });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
}

// Times measured with a sanitizer say nothing about the converter.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(VarispeedTest, TakesASmallPartOfThePeriodWithEightChannels) {
  setUp(48000, 44100, 8);
  const auto threadTime_s = [] {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  };
  std::vector<double> times_s;
  source.frequency_Hz = 0;
  for (int i = 0; i < 2000; ++i) {
    const double before_s = threadTime_s();
    ASSERT_EQ(render(), noErr);
    times_s.push_back(threadTime_s() - before_s);
  }
  std::sort(times_s.begin(), times_s.end());
  const double period_s = kBlock_frames / 44100.0;
  const double p999_s = times_s[times_s.size() * 999 / 1000];
  std::cout << "p99.9 of eight channels: " << p999_s * 1e6 << " us of " << period_s * 1e6
            << " us, median " << times_s[times_s.size() / 2] * 1e6 << " us\n";
  EXPECT_LT(p999_s, period_s / 20);
}
#endif

}  // namespace
}  // namespace linux_host
