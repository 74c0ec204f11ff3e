// SPDX-License-Identifier: MIT
// The statuses for wrong use of the units. There is no sound server here, so there is no device.

#include <gtest/gtest.h>

#include "hosts/linux/audio_units/pipewire_audio_units.h"

namespace linux_host {
namespace {

using platform::AudioComponentDescription;
using platform::noErr;
using platform::planarFloat;

constexpr AudioComponentDescription kGeneral{platform::kAudioUnitType_Output,
                                             platform::kAudioUnitSubType_HALOutput,
                                             platform::kAudioUnitManufacturer_Apple, 0, 0};
constexpr AudioComponentDescription kDefaultOutput{platform::kAudioUnitType_Output,
                                                   platform::kAudioUnitSubType_DefaultOutput,
                                                   platform::kAudioUnitManufacturer_Apple, 0, 0};
constexpr AudioComponentDescription kVarispeed{platform::kAudioUnitType_FormatConverter,
                                               platform::kAudioUnitSubType_Varispeed,
                                               platform::kAudioUnitManufacturer_Apple, 0, 0};

platform::OSStatus ignoreInput(void*, std::uint32_t*, const platform::AudioTimeStamp*,
                               std::uint32_t, std::uint32_t, platform::AudioBufferList*) {
  return noErr;
}

class UnitStatusesTest : public testing::Test {
 protected:
  platform::AudioUnit newUnit(const AudioComponentDescription& description) {
    platform::AudioUnit unit = nullptr;
    EXPECT_EQ(
        units.AudioComponentInstanceNew(units.AudioComponentFindNext(nullptr, description), &unit),
        noErr);
    return unit;
  }
  template <typename T>
  platform::OSStatus set(platform::AudioUnit unit, std::uint32_t property, std::uint32_t scope,
                         std::uint32_t element, const T& value) {
    return units.AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
  }

  PipeWireConnection connection;
  DeviceClockTable clocks;
  PipeWireAudioHardware hardware{connection, clocks};
  PipeWireAudioUnits units{connection, hardware, clocks};
};

TEST_F(UnitStatusesTest, ComponentsAreFoundByDescriptionOneAfterAnother) {
  EXPECT_NE(units.AudioComponentFindNext(nullptr, kGeneral), nullptr);
  const platform::AudioComponent varispeed = units.AudioComponentFindNext(nullptr, kVarispeed);
  EXPECT_NE(varispeed, nullptr);
  EXPECT_EQ(units.AudioComponentFindNext(varispeed, kVarispeed), nullptr);
  AudioComponentDescription any{};
  int count = 0;
  for (platform::AudioComponent found = nullptr;
       (found = units.AudioComponentFindNext(found, any)) != nullptr;) {
    ++count;
  }
  EXPECT_EQ(count, 3);
  any.componentType = platform::kAudioUnitType_Output;
  any.componentSubType = platform::kAudioUnitSubType_Varispeed;
  EXPECT_EQ(units.AudioComponentFindNext(nullptr, any), nullptr);
}

TEST_F(UnitStatusesTest, InvalidHandlesAreRefused) {
  platform::AudioUnit unit = newUnit(kVarispeed);
  EXPECT_EQ(units.AudioComponentInstanceDispose(unit), noErr);
  EXPECT_EQ(units.AudioComponentInstanceDispose(unit), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioUnitInitialize(unit), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioUnitUninitialize(nullptr), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioOutputUnitStart(nullptr), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioOutputUnitStop(unit), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioUnitSetParameter(nullptr, 0, 0, 0, 1, 0),
            platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioUnitRender(nullptr, nullptr, nullptr, 0, 0, nullptr),
            platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AUGraphStart(nullptr), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.DisposeAUGraph(nullptr), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AudioComponentInstanceNew(nullptr, &unit), platform::kAudio_ParamError);
}

TEST_F(UnitStatusesTest, WithoutAServerThereIsNoDeviceToBindTo) {
  const platform::AudioUnit unit = newUnit(kGeneral);
  EXPECT_EQ(set(unit, platform::kAudioOutputUnitProperty_CurrentDevice, 0, 0, std::uint32_t{77}),
            platform::kAudioHardwareBadDeviceError);
  platform::AudioStreamBasicDescription format;
  std::uint32_t size_bytes = sizeof format;
  EXPECT_EQ(units.AudioUnitGetProperty(unit, platform::kAudioUnitProperty_StreamFormat, 1, 1,
                                       &format, &size_bytes),
            platform::kAudioHardwareBadDeviceError);
  const platform::AURenderCallbackStruct callback{ignoreInput, nullptr};
  EXPECT_EQ(set(unit, platform::kAudioOutputUnitProperty_SetInputCallback, 0, 0, callback), noErr);
  EXPECT_EQ(units.AudioOutputUnitStart(unit), platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(units.AudioOutputUnitStop(unit), noErr);
}

TEST_F(UnitStatusesTest, PropertiesAreRefusedWhereTheyDoNotBelong) {
  const platform::AudioUnit unit = newUnit(kGeneral);
  const platform::AudioUnit output = newUnit(kDefaultOutput);
  const std::uint32_t on = 1;
  EXPECT_EQ(set(unit, platform::kAudioOutputUnitProperty_EnableIO, 1, 1, on), noErr);
  EXPECT_EQ(set(unit, platform::kAudioOutputUnitProperty_EnableIO, 1, 0, on),
            platform::kAudioUnitErr_InvalidProperty);
  EXPECT_EQ(set(unit, platform::kAudioOutputUnitProperty_EnableIO, 1, 1, std::uint64_t{1}),
            platform::kAudioUnitErr_InvalidPropertyValue);
  EXPECT_EQ(set(output, platform::kAudioOutputUnitProperty_EnableIO, 1, 1, on),
            platform::kAudioUnitErr_PropertyNotWritable);
  EXPECT_EQ(set(unit, platform::kAudioDevicePropertyBufferFrameSize, 0, 0, on),
            platform::kAudioUnitErr_PropertyNotWritable);
  EXPECT_EQ(set(unit, 4711, 0, 0, on), platform::kAudioUnitErr_InvalidProperty);
  const auto format = planarFloat(48000, 2);
  EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, 2, 1, format), noErr);
  EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, 1, 1, format),
            platform::kAudioUnitErr_PropertyNotWritable);
  EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, 2, 1, on),
            platform::kAudioUnitErr_InvalidPropertyValue);
  EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, 2, 1, planarFloat(0, 2)),
            platform::kAudioUnitErr_FormatNotSupported);
  EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, 2, 1, planarFloat(48000, 65)),
            platform::kAudioUnitErr_FormatNotSupported);
  // Both directions at once is more than one stream.
  EXPECT_EQ(units.AudioOutputUnitStart(unit), platform::kAudioUnitErr_CannotDoInCurrentContext);
  std::uint32_t read = 0;
  std::uint32_t size_bytes = 2;
  EXPECT_EQ(units.AudioUnitGetProperty(unit, platform::kAudioOutputUnitProperty_EnableIO, 1, 1,
                                       &read, &size_bytes),
            platform::kAudioHardwareBadPropertySizeError);
}

TEST_F(UnitStatusesTest, RenderingOutsideOfTheInputCallbackIsRefused) {
  const platform::AudioUnit unit = newUnit(kGeneral);
  PlaneList list(2);
  const platform::AudioTimeStamp time;
  std::uint32_t flags = 0;
  EXPECT_EQ(units.AudioUnitRender(unit, &flags, &time, 1, 10, &list.list()),
            platform::kAudioUnitErr_CannotDoInCurrentContext);
  EXPECT_EQ(units.AudioUnitRender(unit, &flags, &time, 0, 10, &list.list()),
            platform::kAudioUnitErr_InvalidElement);
  EXPECT_EQ(units.AudioUnitRender(unit, &flags, nullptr, 1, 10, &list.list()),
            platform::kAudio_ParamError);
}

TEST_F(UnitStatusesTest, GraphsGoThroughTheirStatesInOrder) {
  platform::AUGraph graph = nullptr;
  ASSERT_EQ(units.NewAUGraph(&graph), noErr);
  platform::AUNode varispeed = 0;
  platform::AUNode output = 0;
  ASSERT_EQ(units.AUGraphAddNode(graph, kVarispeed, &varispeed), noErr);
  EXPECT_EQ(units.AUGraphInitialize(graph), platform::kAudioUnitErr_Uninitialized);
  EXPECT_EQ(units.AUGraphStart(graph), platform::kAudioUnitErr_Uninitialized);
  platform::AudioUnit unit = nullptr;
  EXPECT_EQ(units.AUGraphNodeInfo(graph, varispeed, &unit), noErr);
  EXPECT_EQ(unit, nullptr);
  ASSERT_EQ(units.AUGraphOpen(graph), noErr);
  ASSERT_EQ(units.AUGraphAddNode(graph, kDefaultOutput, &output), noErr);
  EXPECT_EQ(units.AUGraphNodeInfo(graph, varispeed, &unit), noErr);
  EXPECT_NE(unit, nullptr);
  EXPECT_EQ(units.AudioComponentInstanceDispose(unit), platform::kAUGraphErr_InvalidAudioUnit);
  EXPECT_EQ(units.AUGraphNodeInfo(graph, 3, &unit), platform::kAUGraphErr_NodeNotFound);
  AudioComponentDescription unknown = kVarispeed;
  unknown.componentSubType = 1;
  platform::AUNode none = 0;
  EXPECT_NE(units.AUGraphAddNode(graph, unknown, &none), noErr);
  EXPECT_EQ(units.AUGraphConnectNodeInput(graph, output, 0, varispeed, 0),
            platform::kAUGraphErr_InvalidConnection);
  EXPECT_EQ(units.AUGraphConnectNodeInput(graph, varispeed, 1, output, 0),
            platform::kAUGraphErr_InvalidConnection);
  EXPECT_EQ(units.AUGraphConnectNodeInput(graph, varispeed, 0, 9, 0),
            platform::kAUGraphErr_NodeNotFound);
  EXPECT_EQ(units.AUGraphConnectNodeInput(graph, varispeed, 0, output, 0), noErr);
  EXPECT_EQ(units.AUGraphInitialize(graph), noErr);
  EXPECT_EQ(units.AUGraphStart(graph), platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(units.AUGraphStop(graph), noErr);
  EXPECT_EQ(units.AUGraphClose(graph), noErr);
  EXPECT_EQ(units.DisposeAUGraph(graph), noErr);
  EXPECT_EQ(units.AUGraphClose(graph), platform::kAUGraphErr_InvalidAudioUnit);
}

}  // namespace
}  // namespace linux_host
