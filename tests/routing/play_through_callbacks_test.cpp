// SPDX-License-Identifier: MIT
// The two callbacks, called by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "tests/routing/planar_block.h"
#include "tests/routing/play_through_fixture.h"
#include "tests/routing/unstable_bounds.h"

namespace record_audio {
namespace {

using platform::noErr;
using routing_test::at;
using routing_test::kBuffer_frames;
using routing_test::kLoopback;
using routing_test::kSpeakers;
using testing::Each;

constexpr double kThroughOffset_frames = 16 + 512 + 24 + 256;
constexpr float kUntouched = 0.75F;

class PlayThroughCallbacks : public testing::Test, protected routing_test::PlayThroughMachine {
 protected:
  PlayThroughCallbacks() {
    startPlaying();
    // Each sample is its own time.
    host.audioUnits.render = [](const platform::AudioTimeStamp& time, std::uint32_t frames,
                                platform::AudioBufferList& list) {
      platform::AudioBuffer* const buffers = list.mBuffers;
      for (std::uint32_t i = 0; i < list.mNumberBuffers; ++i) {
        auto* const samples = static_cast<float*>(buffers[i].mData);
        for (std::uint32_t frame = 0; frame < frames; ++frame) {
          samples[frame] = static_cast<float>(time.mSampleTime + frame);
        }
      }
    };
  }

  platform::OSStatus input(double time_frames, std::uint32_t frames = kBuffer_frames) {
    return host.audioUnits.driveInput(at(time_frames), frames);
  }
  platform::OSStatus output(double time_frames) {
    for (std::uint32_t i = 0; i < 2; ++i) out.plane(i).assign(kBuffer_frames, kUntouched);
    out.resetSizes();
    return host.audioUnits.driveOutput(at(time_frames), kBuffer_frames, &out.list());
  }
  void expectSilence() {
    EXPECT_THAT(out.plane(0), Each(0.0F));
    EXPECT_THAT(out.plane(1), Each(0.0F));
  }
  void expectUntouched() { EXPECT_THAT(out.plane(0), Each(kUntouched)); }

  std::pair<std::int64_t, std::int64_t> held() const {
    std::pair<std::int64_t, std::int64_t> bounds;
    playThrough->ringBuffer->getTimeBounds(bounds.first, bounds.second);
    return bounds;
  }

  routing_test::PlanarBlock<float> out{2, kBuffer_frames};
};

using Bounds = std::pair<std::int64_t, std::int64_t>;

TEST_F(PlayThroughCallbacks, InputStoresWhatItRendersAtItsOwnTime) {
  EXPECT_EQ(input(1000), noErr);
  EXPECT_EQ(held(), Bounds(0, 1512));
  EXPECT_EQ(playThrough->firstInputTime.load(), 1000);
  EXPECT_EQ(input(1512), noErr);
  EXPECT_EQ(held().second, 2024);
  EXPECT_EQ(playThrough->firstInputTime.load(), 1000);
  EXPECT_EQ(host.audioUnits.renderCalls, 2U);
}

TEST_F(PlayThroughCallbacks, AnInputThatBeginsAtZeroHasBegun) {
  input(0);
  input(512);
  EXPECT_EQ(playThrough->firstInputTime.load(), 0);
  output(300);
  expectSilence();
  EXPECT_EQ(playThrough->firstOutputTime, 300);
  output(300 + kThroughOffset_frames);
  EXPECT_EQ(out.plane(0)[1], 1.0F);
}

TEST_F(PlayThroughCallbacks, InputRendersWithTheFlagsAndTheBusItIsGiven) {
  using memory_host::MemoryAudioUnits;
  input(1000, 256);
  EXPECT_EQ(host.audioUnits.lastRender,
            (MemoryAudioUnits::RenderCall{MemoryAudioUnits::kInputFlags,
                                          MemoryAudioUnits::kInputBus, 256}));
}

TEST_F(PlayThroughCallbacks, InputTruncatesTheSampleTime) {
  input(1000.9);
  EXPECT_EQ(held().second, 1512);
  EXPECT_EQ(playThrough->firstInputTime.load(), 1000.9);
}

#ifndef NDEBUG
TEST_F(PlayThroughCallbacks, ASecondThreadOnEitherSideIsCaught) {
  input(0);
  output(0);
  EXPECT_DEATH(std::thread([this] { input(kBuffer_frames); }).join(), "a second thread");
  EXPECT_DEATH(std::thread([this] { output(kBuffer_frames); }).join(), "a second thread");
}
#endif

TEST_F(PlayThroughCallbacks, InputTimesOutOfRangeAreTheNearestThatTheRingHas) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  const std::vector<std::pair<double, std::int64_t>> cases{{1e300, kMost},
                                                           {1e19, kMost},
                                                           {9223372036854775808.0, kMost},
                                                           {-9223372036854775808.0, kLeast},
                                                           {-1e300, kLeast},
                                                           {std::nan(""), kLeast}};
  for (const auto& [time_frames, stored] : cases) {
    routing_test::PlayThroughMachine machine;
    machine.startPlaying();
    EXPECT_EQ(machine.host.audioUnits.driveInput(at(time_frames), 1), noErr);
    std::int64_t start = 0;
    std::int64_t end = 0;
    machine.playThrough->ringBuffer->getTimeBounds(start, end);
    EXPECT_EQ(end, stored == kMost ? kLeast : kLeast + 1) << time_frames;
  }
}

TEST_F(PlayThroughCallbacks, InputReturnsAFailureToRenderAndStoresNothing) {
  host.audioUnits.renderStatus = -10863;
  EXPECT_EQ(input(1000), -10863);
  EXPECT_EQ(held(), Bounds(0, 0));
  EXPECT_EQ(playThrough->firstInputTime.load(), 1000);
}

TEST_F(PlayThroughCallbacks, InputReturnsTheRingsRefusal) {
  playThrough->ringBuffer->capacityFrames = kBuffer_frames / 2;
  EXPECT_EQ(input(0), 3);
}

TEST_F(PlayThroughCallbacks, InputDoesNotUseTheListItIsGiven) {
  platform::AudioBufferList none{0, {{0, 0, nullptr}}};
  EXPECT_EQ(host.audioUnits.driveInput(at(0), kBuffer_frames, &none), noErr);
  EXPECT_EQ(held().second, 512);
}

TEST_F(PlayThroughCallbacks, OutputBeforeAnyInputIsSilenceAndAsksNoClock) {
  EXPECT_EQ(output(7), noErr);
  expectSilence();
  EXPECT_EQ(host.audioHardware.currentTimeCalls, 0U);
  EXPECT_EQ(playThrough->firstOutputTime, -1.0);
}

TEST_F(PlayThroughCallbacks, OutputIsSilenceOnceTheLoopbackHasStopped) {
  input(1000);
  host.audioHardware.failCurrentTime(kLoopback, platform::kAudioHardwareNotRunningError);
  EXPECT_EQ(output(7), noErr);
  expectSilence();
  EXPECT_EQ(host.audioUnits.setParameterCalls, 0U);
  EXPECT_EQ(playThrough->firstOutputTime, -1.0);
}

TEST_F(PlayThroughCallbacks, OutputReturnsAnErrorOfItsOwnClockAndLeavesTheListAlone) {
  input(1000);
  host.audioHardware.failCurrentTime(kSpeakers, -66);
  EXPECT_EQ(output(7), -66);
  expectUntouched();
}

TEST_F(PlayThroughCallbacks, OutputReturnsARefusedRateAndLeavesTheListAlone) {
  input(1000);
  host.audioUnits.setParameterStatus = -10866;
  EXPECT_EQ(output(7), -10866);
  expectUntouched();
  EXPECT_EQ(playThrough->firstOutputTime, -1.0);
}

TEST_F(PlayThroughCallbacks, TheFirstOutputAfterInputIsSilenceAndSetsTheOffset) {
  input(1000);
  EXPECT_EQ(output(5000), noErr);
  expectSilence();
  EXPECT_EQ(playThrough->firstOutputTime, 5000);
  EXPECT_EQ(playThrough->inputToOutputOffset, kThroughOffset_frames - (1000 - 5000));
}

TEST_F(PlayThroughCallbacks, EveryOutputSetsTheRateToTheQuotientOfTheClocks) {
  input(1000);
  output(0);
  EXPECT_EQ(host.audioUnits.lastParameter.value, 1.0F);
  setClock(kLoopback, 1.0003);
  setClock(kSpeakers, 0.9999);
  output(512);
  EXPECT_EQ(host.audioUnits.lastParameter.value, static_cast<float>(1.0003 / 0.9999));
  EXPECT_EQ(host.audioUnits.lastParameter.kind, memory_host::UnitKind::kVarispeed);
  EXPECT_EQ(host.audioUnits.lastParameter.parameter, platform::kVarispeedParam_PlaybackRate);
  EXPECT_EQ(host.audioUnits.lastParameter.scope, platform::kAudioUnitScope_Global);
  EXPECT_EQ(host.audioUnits.lastParameter.element, 0U);
  EXPECT_EQ(host.audioUnits.lastParameter.offset_frames, 0U);
  EXPECT_EQ(host.audioUnits.setParameterCalls, 2U);
}

TEST_F(PlayThroughCallbacks, OutputPlaysTheInputDelayedByBothBuffersAndSafetyOffsets) {
  for (int i = 0; i < 4; ++i) input(10000 + i * 512);
  output(300);
  EXPECT_EQ(output(300 + kThroughOffset_frames), noErr);
  EXPECT_EQ(out.plane(0)[0], 10000.0F);
  EXPECT_EQ(out.plane(1)[511], 10511.0F);
  EXPECT_EQ(output(300 + kThroughOffset_frames + 512), noErr);
  EXPECT_EQ(out.plane(0)[0], 10512.0F);
}

TEST_F(PlayThroughCallbacks, OutputTruncatesTheAddressOfTheRing) {
  for (int i = 0; i < 4; ++i) input(10000 + i * 512);
  output(0);
  output(kThroughOffset_frames + 0.9);
  EXPECT_EQ(out.plane(0)[0], 10000.0F);
}

TEST_F(PlayThroughCallbacks, FramesThatAreNotHeldAreSilenceWithoutANewAnchor) {
  input(1000);
  output(0);
  const double offset = playThrough->inputToOutputOffset;
  EXPECT_EQ(output(1'000'000), noErr);
  expectSilence();
  EXPECT_EQ(playThrough->inputToOutputOffset, offset);
}

// The writer was too fast for the reader; the oldest frame gives it the most time.
TEST_F(PlayThroughCallbacks, AFailedFetchIsSilenceAndGoesOnFromTheOldestFrame) {
  for (int i = 0; i < 40; ++i) input(i * 512);
  EXPECT_EQ(held(), Bounds(40 * 512 - 16384, 40 * 512));
  output(900);
  routing_test::makeBoundsUnstable(*playThrough->ringBuffer);
  EXPECT_EQ(output(1412), noErr);
  expectSilence();
  EXPECT_EQ(playThrough->inputToOutputOffset, 1412 - (40 * 512 - 16384));

  input(40 * 512);  // publishes stable bounds again
  output(1924);
  EXPECT_EQ(out.plane(0)[0], 40 * 512 - 16384 + 512);
}

TEST_F(PlayThroughCallbacks, SilenceFillsWhatTheListHasRoomFor) {
  out.plane(0).assign(kBuffer_frames, kUntouched);
  out.plane(1).assign(kBuffer_frames, kUntouched);
  out.buffer(0).mDataByteSize = 8;
  EXPECT_EQ(host.audioUnits.driveOutput(at(0), kBuffer_frames, &out.list()), noErr);
  EXPECT_EQ(out.plane(0)[1], 0.0F);
  EXPECT_EQ(out.plane(0)[2], kUntouched);
  EXPECT_THAT(out.plane(1), Each(0.0F));
}

}  // namespace
}  // namespace record_audio
