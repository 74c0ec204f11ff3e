// SPDX-License-Identifier: MIT
// Start and stop: every call in order, and what is undone when one of them fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/routing/failing_allocator.h"
#include "tests/routing/play_through_fixture.h"

namespace record_audio {
namespace {

using memory_host::globalAddress;
using memory_host::MemoryAudioHardware;
using memory_host::sideAddress;
using memory_host::UnitKind;
using platform::kAudioUnitScope_Global;
using platform::kAudioUnitScope_Input;
using platform::kAudioUnitScope_Output;
using platform::noErr;
using platform::OSStatus;
using routing_test::kLoopback;
using routing_test::kSpeakers;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Calls = std::vector<std::string>;

const Calls kDisposeUnit{"AudioUnitUninitialize(input)", "AudioComponentInstanceDispose(input)"};
const Calls kDisposeGraphAndUnit{"AUGraphClose", "DisposeAUGraph", "AudioUnitUninitialize(input)",
                                 "AudioComponentInstanceDispose(input)"};

struct Step {
  std::string call;
  Calls cleanup;  // when it fails
};

// All calls to the audio units of a start that succeeds.
const std::vector<Step>& startSteps() {
  static const std::vector<Step> steps{
      {"AudioComponentFindNext", {}},
      {"AudioComponentInstanceNew", {}},
      {"AudioUnitInitialize(input)", {"AudioComponentInstanceDispose(input)"}},
      {"AudioUnitSetProperty(input, EnableIO, input 1)", kDisposeUnit},
      {"AudioUnitSetProperty(input, EnableIO, output 0)", kDisposeUnit},
      {"AudioUnitSetProperty(input, CurrentDevice, global 0)", kDisposeUnit},
      {"AudioUnitSetProperty(input, SetInputCallback, global 0)", kDisposeUnit},
      {"NewAUGraph", kDisposeUnit},
      {"AUGraphOpen",
       {"DisposeAUGraph", "AudioUnitUninitialize(input)", "AudioComponentInstanceDispose(input)"}},
      {"AUGraphAddNode(varispeed)", kDisposeGraphAndUnit},
      {"AUGraphAddNode(output)", kDisposeGraphAndUnit},
      {"AUGraphNodeInfo(1)", kDisposeGraphAndUnit},
      {"AUGraphNodeInfo(2)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(output, CurrentDevice, global 0)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(output, StartTimestampsAtZero, global 0)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(varispeed, SetRenderCallback, input 0)", kDisposeGraphAndUnit},
      {"AudioUnitGetProperty(input, BufferFrameSize, global 0)", kDisposeGraphAndUnit},
      {"AudioUnitGetProperty(input, StreamFormat, input 1)", kDisposeGraphAndUnit},
      {"AudioUnitGetProperty(input, StreamFormat, output 1)", kDisposeGraphAndUnit},
      {"AudioUnitGetProperty(output, StreamFormat, output 0)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(input, StreamFormat, output 1)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(varispeed, StreamFormat, input 0)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(varispeed, StreamFormat, output 0)", kDisposeGraphAndUnit},
      {"AudioUnitSetProperty(output, StreamFormat, input 0)", kDisposeGraphAndUnit},
      {"AUGraphConnectNodeInput(1:0 -> 2:0)", kDisposeGraphAndUnit},
      {"AUGraphInitialize", kDisposeGraphAndUnit},
      {"AudioOutputUnitStart(input)", kDisposeGraphAndUnit},
      {"AUGraphStart",
       {"AudioOutputUnitStop(input)", "AUGraphClose", "DisposeAUGraph",
        "AudioUnitUninitialize(input)", "AudioComponentInstanceDispose(input)"}},
  };
  return steps;
}

class PlayThroughStart : public testing::Test, protected routing_test::PlayThroughMachine {
 protected:
  PlayThroughStart() { EXPECT_TRUE(playThrough->initDevices(kSpeakers)); }
  ~PlayThroughStart() override {
    routing_test::failAllocation(0);
    playThrough.reset();
    EXPECT_THAT(host.audioUnits.misuses, IsEmpty());
    EXPECT_EQ(host.audioUnits.livingUnits(), 0U);
    EXPECT_EQ(host.audioUnits.livingGraphs(), 0U);
  }

  // Everything is undone, and the destructor has nothing to do.
  void expectNothingLeft() {
    EXPECT_FALSE(playThrough->running);
    EXPECT_EQ(playThrough->ringBuffer, nullptr);
    EXPECT_EQ(playThrough->inputBufferList, nullptr);
    EXPECT_EQ(host.audioUnits.livingUnits(), 0U);
    EXPECT_EQ(host.audioUnits.livingGraphs(), 0U);
    const std::size_t callsSoFar = host.audioUnits.calls.size();
    playThrough.reset();
    EXPECT_EQ(host.audioUnits.calls.size(), callsSoFar);
  }

  Calls callsFrom(std::size_t index) const {
    const Calls& calls = host.audioUnits.calls;
    return {calls.begin() + static_cast<std::ptrdiff_t>(index), calls.end()};
  }

  std::vector<std::pair<platform::AudioObjectID, std::uint32_t>> hardwareReads() const {
    std::vector<std::pair<platform::AudioObjectID, std::uint32_t>> reads;
    for (const MemoryAudioHardware::Call& call : host.audioHardware.calls) {
      reads.emplace_back(call.object, call.address.mSelector);
    }
    return reads;
  }
};

TEST_F(PlayThroughStart, ConstructionOnlySaysNotRunning) {
  EXPECT_FALSE(playThrough->running);
  EXPECT_THAT(host.audioUnits.calls, IsEmpty());
}

TEST_F(PlayThroughStart, InitDevicesReadsBothSidesInOrder) {
  EXPECT_EQ(playThrough->outputDevice.deviceID, kSpeakers);
  EXPECT_EQ(playThrough->outputDevice.safetyOffset, 24U);
  EXPECT_EQ(playThrough->outputDevice.bufferFrameSize, 256U);
  EXPECT_EQ(playThrough->inputDevice.deviceID, kLoopback);
  EXPECT_EQ(playThrough->inputDevice.safetyOffset, 16U);
  EXPECT_EQ(playThrough->inputDevice.bufferFrameSize, 512U);
  const auto& calls = host.audioHardware.calls;
  ASSERT_EQ(calls.size(), 5U);
  EXPECT_EQ(calls[0].object, platform::kAudioObjectSystemObject);
  EXPECT_EQ(calls[0].address, globalAddress(platform::kAudioHardwarePropertyTranslateUIDToDevice));
  EXPECT_EQ(calls[0].qualifier, kLoopbackDeviceUID);
  EXPECT_EQ(calls[1].address, sideAddress(platform::kAudioDevicePropertySafetyOffset, false));
  EXPECT_EQ(calls[2].address, sideAddress(platform::kAudioDevicePropertyBufferFrameSize, false));
  EXPECT_EQ(calls[3].address, sideAddress(platform::kAudioDevicePropertySafetyOffset, true));
  EXPECT_EQ(calls[4].address, sideAddress(platform::kAudioDevicePropertyBufferFrameSize, true));
}

TEST_F(PlayThroughStart, InitDevicesFailsWithEachOfItsReads) {
  const auto failing = [&](platform::AudioObjectID object,
                           platform::AudioObjectPropertyAddress address) {
    host.audioHardware.fail(object, address.mSelector, address.mScope, -50);
    AudioPlayThrough other(host.host);
    const bool result = other.initDevices(kSpeakers);
    host.audioHardware.heal();
    // The first read is the loopback's id: without it nothing else is tried.
    const bool isFirst = object == platform::kAudioObjectSystemObject;
    EXPECT_EQ(other.outputDevice.deviceID, isFirst ? 0 : kSpeakers);
    return !result;
  };
  EXPECT_TRUE(failing(platform::kAudioObjectSystemObject,
                      globalAddress(platform::kAudioHardwarePropertyTranslateUIDToDevice)));
  for (const auto selector : {platform::kAudioDevicePropertySafetyOffset,
                              platform::kAudioDevicePropertyBufferFrameSize}) {
    EXPECT_TRUE(failing(kSpeakers, sideAddress(selector, false)));
    EXPECT_TRUE(failing(kLoopback, sideAddress(selector, true)));
  }
}

// The start that may follow uses the id.
TEST_F(PlayThroughStart, InitDeviceKeepsTheIdWhenAReadFails) {
  PlayThroughDevice device;
  EXPECT_FALSE(device.initDevice(host.audioHardware, 4711, true));
  EXPECT_EQ(device.deviceID, 4711U);
}

TEST_F(PlayThroughStart, WithoutALoopbackDeviceTheInputSideCannotBeRead) {
  host.audioHardware.removeObject(kLoopback);
  AudioPlayThrough other(host.host);
  EXPECT_FALSE(other.initDevices(kSpeakers));
  EXPECT_EQ(other.inputDevice.deviceID, 0U);
  EXPECT_EQ(other.outputDevice.deviceID, kSpeakers);
}

TEST_F(PlayThroughStart, MakesAllCallsInOrder) {
  EXPECT_EQ(playThrough->start(), noErr);
  Calls expected;
  for (const Step& step : startSteps()) expected.push_back(step.call);
  EXPECT_THAT(host.audioUnits.calls, ElementsAreArray(expected));
  EXPECT_TRUE(playThrough->running);
  EXPECT_TRUE(host.audioUnits.inputRunning());
  EXPECT_TRUE(host.audioUnits.graphRunning());
}

TEST_F(PlayThroughStart, WritesTheValuesOfAllProperties) {
  ASSERT_EQ(playThrough->start(), noErr);
  const auto& units = host.audioUnits;
  EXPECT_EQ(units.number(UnitKind::kInput, platform::kAudioOutputUnitProperty_EnableIO,
                         kAudioUnitScope_Input, 1),
            1U);
  EXPECT_EQ(units.number(UnitKind::kInput, platform::kAudioOutputUnitProperty_EnableIO,
                         kAudioUnitScope_Output, 0),
            0U);
  EXPECT_EQ(units.number(UnitKind::kInput, platform::kAudioOutputUnitProperty_CurrentDevice,
                         kAudioUnitScope_Global, 0),
            kLoopback);
  EXPECT_EQ(units.number(UnitKind::kOutput, platform::kAudioOutputUnitProperty_CurrentDevice,
                         kAudioUnitScope_Global, 0),
            kSpeakers);
  EXPECT_EQ(
      units.number(UnitKind::kOutput, platform::kAudioOutputUnitProperty_StartTimestampsAtZero,
                   kAudioUnitScope_Global, 0),
      0U);
  EXPECT_EQ(units.inputCallback.inputProc, &AudioPlayThrough::inputProc);
  EXPECT_EQ(units.inputCallback.inputProcRefCon, playThrough.get());
  EXPECT_EQ(units.renderCallback.inputProc, &AudioPlayThrough::outputProc);
  EXPECT_EQ(units.renderCallback.inputProcRefCon, playThrough.get());
}

TEST_F(PlayThroughStart, ConvertsFromTheLoopbackRateToTheRealDevices) {
  ASSERT_EQ(playThrough->start(), noErr);
  const auto& units = host.audioUnits;
  EXPECT_EQ(units.format(UnitKind::kInput, kAudioUnitScope_Output, 1).mSampleRate, 48000);
  EXPECT_EQ(units.format(UnitKind::kVarispeed, kAudioUnitScope_Input, 0).mSampleRate, 48000);
  EXPECT_EQ(units.format(UnitKind::kVarispeed, kAudioUnitScope_Output, 0).mSampleRate, 44100);
  EXPECT_EQ(units.format(UnitKind::kOutput, kAudioUnitScope_Input, 0).mSampleRate, 44100);
}

TEST_F(PlayThroughStart, ReadsTheNominalRatesOfInputThenOutput) {
  host.audioHardware.calls.clear();
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_THAT(hardwareReads(),
              ElementsAre(std::pair{kLoopback, platform::kAudioDevicePropertyNominalSampleRate},
                          std::pair{kSpeakers, platform::kAudioDevicePropertyNominalSampleRate}));
}

TEST_F(PlayThroughStart, UsesTheSmallerChannelCountEitherWay) {
  const std::vector<std::array<std::uint32_t, 3>> cases{{2, 6, 2}, {6, 2, 2}, {1, 8, 1}, {8, 8, 8}};
  for (const auto& [loopback, real, used] : cases) {
    setChannels(loopback, real);
    AudioPlayThrough other(host.host);
    ASSERT_TRUE(other.initDevices(kSpeakers));
    ASSERT_EQ(other.start(), noErr);
    for (const auto& [kind, scope, element] :
         {std::tuple{UnitKind::kInput, kAudioUnitScope_Output, 1U},
          std::tuple{UnitKind::kVarispeed, kAudioUnitScope_Input, 0U},
          std::tuple{UnitKind::kVarispeed, kAudioUnitScope_Output, 0U},
          std::tuple{UnitKind::kOutput, kAudioUnitScope_Input, 0U}}) {
      EXPECT_EQ(host.audioUnits.format(kind, scope, element).mChannelsPerFrame, used);
    }
    EXPECT_EQ(other.ringBuffer->channelCount, static_cast<std::int32_t>(used));
    EXPECT_EQ(other.inputBufferList->mNumberBuffers, used);
  }
}

TEST_F(PlayThroughStart, SizesTheBuffersForThePeriodAndTheRingForTwentyOfThem) {
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_EQ(playThrough->ringBuffer->capacityFrames, 16384U);
  EXPECT_EQ(playThrough->ringBuffer->bytesPerFrame, 4U);
  const platform::AudioBuffer* const buffers = playThrough->inputBufferList->mBuffers;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(buffers[i].mNumberChannels, 1U);
    EXPECT_EQ(buffers[i].mDataByteSize, 2048U);
    EXPECT_NE(buffers[i].mData, nullptr);
  }
}

// 20 periods of 51 frames fit into 1024, and 20 of 52 do not. Of 21 and 19 periods this is not
// true.
TEST_F(PlayThroughStart, TheRingHasExactlyTwentyPeriodsOfTheInputUnit) {
  for (const auto& [period_frames, capacity_frames] : {std::pair{51U, 1024U}, {52U, 2048U}}) {
    host.audioUnits.setBufferFrameSize(period_frames);  // the device says another size
    AudioPlayThrough other(host.host);
    ASSERT_TRUE(other.initDevices(kSpeakers));
    ASSERT_EQ(other.start(), noErr);
    EXPECT_EQ(other.ringBuffer->capacityFrames, capacity_frames);
    const platform::AudioBuffer* const buffers = other.inputBufferList->mBuffers;
    EXPECT_EQ(buffers[0].mDataByteSize, period_frames * sizeof(float));
  }
}

TEST_F(PlayThroughStart, TheClientFormatIsTheOneBehindTheInputUnit) {
  auto client = platform::planarFloat(96000, 7);
  client.mFormatFlags |= 1U << 30;
  host.audioUnits.setFormat(UnitKind::kInput, kAudioUnitScope_Output, 1, client);
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_EQ(host.audioUnits.format(UnitKind::kVarispeed, kAudioUnitScope_Input, 0).mSampleRate,
            48000);
  EXPECT_EQ(host.audioUnits.format(UnitKind::kVarispeed, kAudioUnitScope_Input, 0).mFormatFlags,
            client.mFormatFlags);
  EXPECT_EQ(host.audioUnits.format(UnitKind::kOutput, kAudioUnitScope_Input, 0).mFormatFlags,
            client.mFormatFlags);
}

TEST_F(PlayThroughStart, PresetsTheTimesAndTheOffset) {
  playThrough->firstInputTime = 5;
  playThrough->firstOutputTime = 5;
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_EQ(playThrough->firstInputTime.load(), -1.0);
  EXPECT_EQ(playThrough->firstOutputTime, -1.0);
  EXPECT_EQ(playThrough->inputToOutputOffset, 16 + 512 + 24 + 256);
}

TEST_F(PlayThroughStart, AStartThatFailsAtOnceHasPresetEverything) {
  playThrough->ringBuffer = std::make_unique<RingBuffer>();
  playThrough->inputToOutputOffset = 5;
  host.audioUnits.removeComponent(UnitKind::kInput);
  EXPECT_NE(playThrough->start(), noErr);
  EXPECT_EQ(playThrough->inputToOutputOffset, 0);
  expectNothingLeft();
}

// The parts are unsigned 32-bit frames; their sum wraps to a signed number.
TEST_F(PlayThroughStart, TheOffsetIsASignedThirtyTwoBitSum) {
  playThrough->inputDevice = {kLoopback, 0x7FFFFFFF, 1};
  playThrough->outputDevice = {kSpeakers, 0, 0};
  playThrough->computeThroughOffset();
  EXPECT_EQ(playThrough->inputToOutputOffset, -2147483648.0);
}

TEST_F(PlayThroughStart, TheStatusOfAFailedCallIsReturnedAfterExactlyItsCleanup) {
  for (std::size_t i = 0; i < startSteps().size(); ++i) {
    const Step& step = startSteps()[i];
    SCOPED_TRACE(step.call);
    host.audioUnits.calls.clear();
    playThrough = std::make_unique<AudioPlayThrough>(host.host);
    ASSERT_TRUE(playThrough->initDevices(kSpeakers));
    host.audioUnits.failCall = static_cast<int>(i) + 1;
    host.audioUnits.failStatus = -7000 - static_cast<OSStatus>(i);
    const OSStatus expected =
        i == 0 ? platform::kAudioHardwareUnspecifiedError : host.audioUnits.failStatus;
    EXPECT_EQ(playThrough->start(), expected);
    host.audioUnits.failCall = 0;
    ASSERT_GT(host.audioUnits.calls.size(), i);
    EXPECT_EQ(host.audioUnits.calls[i], step.call);
    EXPECT_THAT(callsFrom(i + 1), ElementsAreArray(step.cleanup));
    expectNothingLeft();
  }
}

TEST_F(PlayThroughStart, WithoutAnOutputComponentItSaysUnspecified) {
  host.audioUnits.removeComponent(UnitKind::kInput);
  EXPECT_EQ(playThrough->start(), platform::kAudioHardwareUnspecifiedError);
  EXPECT_EQ(static_cast<std::uint32_t>(platform::kAudioHardwareUnspecifiedError),
            platform::fourCharCode("what"));
  expectNothingLeft();
}

TEST_F(PlayThroughStart, AnUnreadableNominalRateClosesTheGraph) {
  for (const auto& [device, callBefore] :
       {std::pair{kLoopback, "AudioUnitGetProperty(output, StreamFormat, output 0)"},
        {kSpeakers, "AudioUnitSetProperty(varispeed, StreamFormat, input 0)"}}) {
    host.audioHardware.fail(device, platform::kAudioDevicePropertyNominalSampleRate,
                            platform::kAudioObjectPropertyScopeGlobal, -61);
    EXPECT_EQ(playThrough->start(), -61);
    host.audioHardware.heal();
    const std::size_t cleanupStart = host.audioUnits.calls.size() - kDisposeGraphAndUnit.size();
    EXPECT_THAT(callsFrom(cleanupStart), ElementsAreArray(kDisposeGraphAndUnit));
    EXPECT_EQ(host.audioUnits.calls[cleanupStart - 1], callBefore);
    EXPECT_FALSE(playThrough->running);
    EXPECT_EQ(host.audioUnits.livingUnits(), 0U);
  }
}

TEST_F(PlayThroughStart, EveryAllocationThatFailsIsMinus620AfterAFullCleanup) {
  // The list, two channels, the ring and its storage.
  constexpr int kAllocations = 5;
  for (int i = 1; i <= kAllocations; ++i) {
    SCOPED_TRACE("allocation " + std::to_string(i));
    playThrough = std::make_unique<AudioPlayThrough>(host.host);
    ASSERT_TRUE(playThrough->initDevices(kSpeakers));
    host.audioUnits.calls.clear();
    routing_test::failAllocation(i);
    EXPECT_EQ(playThrough->start(), -620);
    routing_test::failAllocation(0);
    const auto lastSetting = std::find(host.audioUnits.calls.begin(), host.audioUnits.calls.end(),
                                       "AudioUnitSetProperty(output, StreamFormat, input 0)");
    EXPECT_THAT(Calls(lastSetting + 1, host.audioUnits.calls.end()),
                ElementsAreArray(kDisposeGraphAndUnit));
    expectNothingLeft();
  }
  playThrough = std::make_unique<AudioPlayThrough>(host.host);
  ASSERT_TRUE(playThrough->initDevices(kSpeakers));
  routing_test::failAllocation(kAllocations + 1);
  EXPECT_EQ(playThrough->start(), noErr);
}

TEST_F(PlayThroughStart, StopTakesEverythingDownInOrder) {
  ASSERT_EQ(playThrough->start(), noErr);
  playThrough->firstInputTime = 10;
  playThrough->firstOutputTime = 20;
  playThrough->inputToOutputOffset = 30;
  const std::size_t before = host.audioUnits.calls.size();
  EXPECT_EQ(playThrough->stop(), 0);
  EXPECT_THAT(
      callsFrom(before),
      ElementsAre("AudioOutputUnitStop(input)", "AUGraphStop", "AudioUnitUninitialize(input)",
                  "AUGraphClose", "DisposeAUGraph", "AudioComponentInstanceDispose(input)"));
  EXPECT_EQ(playThrough->firstInputTime.load(), -1.0);
  EXPECT_EQ(playThrough->firstOutputTime, -1.0);
  EXPECT_EQ(playThrough->inputToOutputOffset, 30);
  expectNothingLeft();
}

// Whatever fails, the rest must be freed.
TEST_F(PlayThroughStart, StopIgnoresFailures) {
  for (int i = 1; i <= 6; ++i) {
    routing_test::PlayThroughMachine machine;
    ASSERT_TRUE(machine.playThrough->initDevices(kSpeakers));
    ASSERT_EQ(machine.playThrough->start(), noErr);
    machine.host.audioUnits.failCall = static_cast<int>(machine.host.audioUnits.calls.size()) + i;
    EXPECT_EQ(machine.playThrough->stop(), 0);
    EXPECT_EQ(machine.playThrough->ringBuffer, nullptr);
    EXPECT_EQ(machine.host.audioUnits.calls.size(), startSteps().size() + 6);
  }
}

TEST_F(PlayThroughStart, StopWhileNotRunningDoesNothing) {
  EXPECT_EQ(playThrough->stop(), 0);
  EXPECT_THAT(host.audioUnits.calls, IsEmpty());
  ASSERT_EQ(playThrough->start(), noErr);
  playThrough->stop();
  const std::size_t calls = host.audioUnits.calls.size();
  EXPECT_EQ(playThrough->stop(), 0);
  EXPECT_EQ(host.audioUnits.calls.size(), calls);
}

TEST_F(PlayThroughStart, DestructionStops) {
  ASSERT_EQ(playThrough->start(), noErr);
  playThrough.reset();
  EXPECT_EQ(host.audioUnits.livingUnits(), 0U);
  EXPECT_EQ(host.audioUnits.livingGraphs(), 0U);
}

TEST_F(PlayThroughStart, ARecordThatWasOnlyConfiguredIsDestroyedWithoutACall) {
  playThrough.reset();
  EXPECT_THAT(host.audioUnits.calls, IsEmpty());
}

}  // namespace
}  // namespace record_audio
