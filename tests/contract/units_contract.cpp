// SPDX-License-Identifier: MIT
#include <array>
#include <atomic>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/audio_unit.h promises of units that run, and what it refuses.

namespace contract {
namespace {

using platform::AudioDeviceID;
using platform::AudioUnit;
using platform::AUGraph;
using platform::AUNode;
using platform::noErr;
using platform::OSStatus;
using platform::planarFloat;

constexpr std::uint32_t kMostFrames = 16384;

// Room for stereo.
class StereoPlanes {
 public:
  StereoPlanes() {
    header_.mNumberBuffers = 2;
    for (auto& plane : planes_) plane.resize(kMostFrames);
  }
  platform::AudioBufferList* forFrames(std::uint32_t frames) {
    const auto size_bytes = frames * static_cast<std::uint32_t>(sizeof(float));
    header_.mBuffers[0] = {1, size_bytes, planes_[0].data()};
    second_ = {1, size_bytes, planes_[1].data()};
    return &header_;
  }

 private:
  platform::AudioBufferList header_{};
  platform::AudioBuffer second_{};  // right behind the first
  std::array<std::vector<float>, 2> planes_;
};

// What the callbacks note. They run on audio threads.
struct Notes {
  platform::AudioUnits* units = nullptr;
  AudioUnit unit = nullptr;  // rendered by the input callback
  StereoPlanes planes;
  StereoPlanes tooShort;

  std::atomic<int> calls{0};
  std::atomic<int> gaps{0};      // where a sample time is not the last one's and its frames
  std::atomic<int> failures{0};  // renders
  std::atomic<int> oddities{0};  // arguments that no such callback gets
  std::atomic<OSStatus> shortRender{noErr};
  double next = -1;

  void follow(const platform::AudioTimeStamp* time, std::uint32_t frames) {
    if (frames == 0 || time == nullptr) {
      oddities.fetch_add(1);
      return;
    }
    if (next >= 0 && time->mSampleTime != next) gaps.fetch_add(1);
    next = time->mSampleTime + frames;
    calls.fetch_add(1);
  }
};

OSStatus onInput(void* refCon, std::uint32_t* flags, const platform::AudioTimeStamp* time,
                 std::uint32_t bus, std::uint32_t frames, platform::AudioBufferList* data) {
  auto& notes = *static_cast<Notes*>(refCon);
  if (bus != 1 || data != nullptr || flags == nullptr) notes.oddities.fetch_add(1);
  if (frames > 0 && frames <= kMostFrames && notes.unit != nullptr) {
    const OSStatus status = notes.units->AudioUnitRender(notes.unit, flags, time, bus, frames,
                                                         notes.planes.forFrames(frames));
    if (status != noErr) notes.failures.fetch_add(1);
    notes.shortRender = notes.units->AudioUnitRender(notes.unit, flags, time, bus, frames,
                                                     notes.tooShort.forFrames(frames - 1));
  }
  notes.follow(time, frames);
  return noErr;
}

OSStatus onRender(void* refCon, std::uint32_t* flags, const platform::AudioTimeStamp* time,
                  std::uint32_t bus, std::uint32_t frames, platform::AudioBufferList* data) {
  auto& notes = *static_cast<Notes*>(refCon);
  if (bus != 0 || data == nullptr || flags == nullptr) {
    notes.oddities.fetch_add(1);
  } else if (data->mNumberBuffers != 2 ||
             data->mBuffers[0].mDataByteSize < frames * sizeof(float)) {
    notes.oddities.fetch_add(1);
  }
  notes.follow(time, frames);
  return noErr;
}

class UnitContract : public ContractTest {
 protected:
  platform::AudioUnits& units() { return host().audioUnits; }
  void SetUp() override { notes.units = &units(); }

  AudioUnit make(const platform::AudioComponentDescription& description) {
    AudioUnit made = nullptr;
    const auto component = units().AudioComponentFindNext(nullptr, description);
    EXPECT_NE(component, nullptr);
    EXPECT_EQ(units().AudioComponentInstanceNew(component, &made), noErr);
    EXPECT_NE(made, nullptr);
    return made;
  }
  template <typename T>
  OSStatus set(AudioUnit unit, std::uint32_t property, std::uint32_t scope, std::uint32_t element,
               const T& value) {
    return units().AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
  }
  OSStatus bind(AudioUnit unit, AudioDeviceID device) {
    return set(unit, platform::kAudioOutputUnitProperty_CurrentDevice,
               platform::kAudioUnitScope_Global, 0, device);
  }
  AudioDeviceID deviceWithUID(const std::string& uid) {
    const platform::OwnedString text(platform::StringObject::create(uid));
    const platform::StringRef qualifier = text.get();
    AudioDeviceID device = 0;
    std::uint32_t size_bytes = sizeof device;
    const platform::AudioObjectPropertyAddress address{
        platform::kAudioHardwarePropertyTranslateUIDToDevice,
        platform::kAudioObjectPropertyScopeGlobal, platform::kAudioObjectPropertyElementMaster};
    EXPECT_EQ(host().audioHardware.AudioObjectGetPropertyData(platform::kAudioObjectSystemObject,
                                                              address, sizeof qualifier, &qualifier,
                                                              &size_bytes, &device),
              noErr);
    return device;
  }
  // A unit that records from the device and notes what it gets, in the header's order.
  AudioUnit makeInput(AudioDeviceID device) {
    const AudioUnit unit = make(platform::kHALOutputUnit);
    notes.unit = unit;
    EXPECT_EQ(units().AudioUnitInitialize(unit), noErr);
    constexpr std::uint32_t kEnableIO = platform::kAudioOutputUnitProperty_EnableIO;
    EXPECT_EQ(set(unit, kEnableIO, platform::kAudioUnitScope_Input, 1, std::uint32_t{1}), noErr);
    EXPECT_EQ(set(unit, kEnableIO, platform::kAudioUnitScope_Output, 0, std::uint32_t{0}), noErr);
    if (device != 0) {
      EXPECT_EQ(bind(unit, device), noErr);
    }
    EXPECT_EQ(set(unit, platform::kAudioUnitProperty_StreamFormat, platform::kAudioUnitScope_Output,
                  1, planarFloat(48000, 2)),
              noErr);
    return unit;
  }
  OSStatus listenWith(AudioUnit unit) {
    return set(unit, platform::kAudioOutputUnitProperty_SetInputCallback,
               platform::kAudioUnitScope_Global, 0,
               platform::AURenderCallbackStruct{onInput, &notes});
  }
  void takeDown(AudioUnit unit) {
    EXPECT_EQ(units().AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(units().AudioUnitUninitialize(unit), noErr);
    EXPECT_EQ(units().AudioComponentInstanceDispose(unit), noErr);
  }
  bool wereCalled(int more) {
    const int before = notes.calls;
    return rig->runUntil([&] { return notes.calls >= before + more; });
  }
  // No callback comes any more.
  void expectQuiet() {
    const int calls = notes.calls;
    rig->pass(0.1);
    EXPECT_EQ(notes.calls, calls);
  }

  Notes notes;
};

TEST_F(UnitContract, EveryHostHasTheThreeComponents) {
  for (const auto& description :
       {platform::kHALOutputUnit, platform::kDefaultOutputUnit, platform::kVarispeedUnit}) {
    const auto component = units().AudioComponentFindNext(nullptr, description);
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(units().AudioComponentFindNext(component, description), nullptr);
    const AudioUnit unit = make(description);
    EXPECT_EQ(units().AudioComponentInstanceDispose(unit), noErr);
    EXPECT_EQ(units().AudioComponentInstanceDispose(unit), platform::kAUGraphErr_InvalidAudioUnit);
    EXPECT_EQ(units().AudioUnitInitialize(unit), platform::kAUGraphErr_InvalidAudioUnit);
    EXPECT_EQ(units().AudioOutputUnitStart(unit), platform::kAUGraphErr_InvalidAudioUnit);
  }
}

TEST_F(UnitContract, AnInputUnitCallsForEachBlockWhileItRuns) {
  const AudioUnit unit = makeInput(deviceWithUID(rig->plugInMicrophone("mic")));
  ASSERT_EQ(listenWith(unit), noErr);
  expectQuiet();
  ASSERT_EQ(units().AudioOutputUnitStart(unit), noErr);
  EXPECT_EQ(units().AudioOutputUnitStart(unit), noErr) << "it runs already";
  ASSERT_TRUE(wereCalled(5));
  EXPECT_EQ(units().AudioOutputUnitStop(unit), noErr);
  expectQuiet();
  EXPECT_EQ(notes.failures, 0);
  EXPECT_EQ(notes.oddities, 0);
  EXPECT_NE(notes.shortRender, noErr) << "the buffers were too small";
  EXPECT_EQ(units().AudioOutputUnitStop(unit), noErr) << "it has stopped already";
  ASSERT_EQ(units().AudioOutputUnitStart(unit), noErr) << "it may run again";
  EXPECT_TRUE(wereCalled(2));
  takeDown(unit);
  expectQuiet();
}

TEST_F(UnitContract, TheClockOfADeviceRunsWhileAUnitDoes) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  const AudioUnit unit = makeInput(device);
  ASSERT_EQ(listenWith(unit), noErr);
  platform::AudioTimeStamp time;
  const auto read = [&] { return host().audioHardware.AudioDeviceGetCurrentTime(device, &time); };
  EXPECT_EQ(read(), platform::kAudioHardwareNotRunningError);
  ASSERT_EQ(units().AudioOutputUnitStart(unit), noErr);
  ASSERT_TRUE(wereCalled(2));
  ASSERT_EQ(read(), noErr);
  const double before_frames = time.mSampleTime;
  EXPECT_NEAR(time.mRateScalar, 1, 0.1);
  ASSERT_TRUE(wereCalled(3));
  ASSERT_EQ(read(), noErr);
  EXPECT_GT(time.mSampleTime, before_frames);
  takeDown(unit);
  EXPECT_TRUE(rig->runUntil([&] { return read() == platform::kAudioHardwareNotRunningError; }));
}

TEST_F(UnitContract, NothingIsRenderedOutsideOfTheCallback) {
  const AudioUnit unit = makeInput(deviceWithUID(rig->plugInMicrophone("mic")));
  std::uint32_t flags = 0;
  const platform::AudioTimeStamp time;
  EXPECT_EQ(units().AudioUnitRender(unit, &flags, &time, 1, 10, notes.planes.forFrames(10)),
            platform::kAudioUnitErr_CannotDoInCurrentContext);
  takeDown(unit);
}

TEST_F(UnitContract, AUnitIsBoundToDevicesThatAreThere) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  const AudioUnit unit = makeInput(0);
  EXPECT_EQ(bind(unit, 0x7ffffff0), platform::kAudioHardwareBadDeviceError);
  ASSERT_EQ(listenWith(unit), noErr);
  EXPECT_EQ(units().AudioOutputUnitStart(unit), platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(bind(unit, device), noErr);
  EXPECT_EQ(bind(unit, 0x7ffffff0), platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(units().AudioOutputUnitStart(unit), noErr) << "it is bound as before";
  EXPECT_TRUE(wereCalled(1));
  takeDown(unit);
}

TEST_F(UnitContract, WithoutACallbackThereIsNothingToStart) {
  const AudioUnit unit = makeInput(deviceWithUID(rig->plugInMicrophone("mic")));
  EXPECT_EQ(units().AudioOutputUnitStart(unit), platform::kAudioUnitErr_NoConnection);
  takeDown(unit);
}

TEST_F(UnitContract, NothingIsSetWhileItRuns) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  const AudioUnit unit = makeInput(device);
  ASSERT_EQ(listenWith(unit), noErr);
  ASSERT_EQ(units().AudioOutputUnitStart(unit), noErr);
  EXPECT_EQ(bind(unit, device), platform::kAudioUnitErr_CannotDoInCurrentContext);
  EXPECT_EQ(listenWith(unit), platform::kAudioUnitErr_CannotDoInCurrentContext);
  EXPECT_TRUE(wereCalled(1));
  takeDown(unit);
}

TEST_F(UnitContract, OnlyPlanarFloatIsAFormatAndValuesHaveTheirSizes) {
  const AudioUnit unit = makeInput(0);
  const auto setFormat = [&](const platform::AudioStreamBasicDescription& format) {
    return set(unit, platform::kAudioUnitProperty_StreamFormat, platform::kAudioUnitScope_Output, 1,
               format);
  };
  EXPECT_EQ(setFormat(planarFloat(44100, 2)), noErr);
  auto integers = planarFloat(48000, 2);
  integers.mFormatFlags = platform::kAudioFormatFlagIsSignedInteger;
  EXPECT_EQ(setFormat(integers), platform::kAudioUnitErr_FormatNotSupported);
  EXPECT_EQ(setFormat(planarFloat(0, 2)), platform::kAudioUnitErr_FormatNotSupported);
  constexpr std::uint32_t kEnableIO = platform::kAudioOutputUnitProperty_EnableIO;
  EXPECT_EQ(set(unit, kEnableIO, platform::kAudioUnitScope_Input, 1, std::uint64_t{1}),
            platform::kAudioUnitErr_InvalidPropertyValue);
  EXPECT_EQ(set(unit, 4711, platform::kAudioUnitScope_Global, 0, std::uint32_t{1}),
            platform::kAudioUnitErr_InvalidProperty);
  takeDown(unit);
}

class GraphContract : public UnitContract {
 protected:
  // A varispeed that feeds the default output and pulls from the notes, as far as "initialised".
  void makeGraph() {
    ASSERT_EQ(units().NewAUGraph(&graph), noErr);
    ASSERT_EQ(units().AUGraphOpen(graph), noErr);
    ASSERT_EQ(units().AUGraphAddNode(graph, platform::kVarispeedUnit, &varispeed), noErr);
    ASSERT_EQ(units().AUGraphAddNode(graph, platform::kDefaultOutputUnit, &output), noErr);
    ASSERT_EQ(units().AUGraphNodeInfo(graph, varispeed, &varispeedUnit), noErr);
    AudioUnit outputUnit = nullptr;
    ASSERT_EQ(units().AUGraphNodeInfo(graph, output, &outputUnit), noErr);
    const platform::AURenderCallbackStruct callback{onRender, &notes};
    ASSERT_EQ(set(varispeedUnit, platform::kAudioUnitProperty_SetRenderCallback,
                  platform::kAudioUnitScope_Input, 0, callback),
              noErr);
    for (const std::uint32_t scope :
         {platform::kAudioUnitScope_Input, platform::kAudioUnitScope_Output}) {
      ASSERT_EQ(set(varispeedUnit, platform::kAudioUnitProperty_StreamFormat, scope, 0,
                    planarFloat(48000, 2)),
                noErr);
    }
    ASSERT_EQ(set(outputUnit, platform::kAudioUnitProperty_StreamFormat,
                  platform::kAudioUnitScope_Input, 0, planarFloat(48000, 2)),
              noErr);
    ASSERT_EQ(units().AUGraphConnectNodeInput(graph, varispeed, 0, output, 0), noErr);
    ASSERT_EQ(units().AUGraphInitialize(graph), noErr);
  }
  void dispose() {
    EXPECT_EQ(units().AUGraphStop(graph), noErr);
    EXPECT_EQ(units().AUGraphClose(graph), noErr);
    EXPECT_EQ(units().DisposeAUGraph(graph), noErr);
    EXPECT_EQ(units().DisposeAUGraph(graph), platform::kAUGraphErr_InvalidAudioUnit);
  }
  void useSpeakers() {
    const AudioDeviceID speakers = deviceWithUID(rig->plugInSpeakers("speakers"));
    EXPECT_EQ(host().audioHardware.AudioHardwareSetProperty(
                  platform::kAudioHardwarePropertyDefaultOutputDevice, sizeof speakers, &speakers),
              noErr);
  }

  AUGraph graph = nullptr;
  AUNode varispeed = 0;
  AUNode output = 0;
  AudioUnit varispeedUnit = nullptr;
};

TEST_F(GraphContract, AGraphPullsWithTimesThatCountWhatItConsumed) {
  useSpeakers();
  makeGraph();
  EXPECT_EQ(units().AudioUnitSetParameter(varispeedUnit, platform::kVarispeedParam_PlaybackRate,
                                          platform::kAudioUnitScope_Global, 0, 1.0F, 0),
            noErr);
  expectQuiet();
  ASSERT_EQ(units().AUGraphStart(graph), noErr);
  ASSERT_TRUE(wereCalled(20));
  EXPECT_EQ(units().AUGraphStop(graph), noErr);
  expectQuiet();
  EXPECT_EQ(notes.oddities, 0);
  EXPECT_LT(notes.gaps, notes.calls / 2) << "a busy machine skips some";
  dispose();
}

TEST_F(GraphContract, AGraphGoesThroughItsStatesInOrder) {
  ASSERT_EQ(units().NewAUGraph(&graph), noErr);
  ASSERT_EQ(units().AUGraphAddNode(graph, platform::kVarispeedUnit, &varispeed), noErr);
  EXPECT_EQ(units().AUGraphInitialize(graph), platform::kAudioUnitErr_Uninitialized);
  EXPECT_EQ(units().AUGraphStart(graph), platform::kAudioUnitErr_Uninitialized);
  AudioUnit unit = nullptr;
  EXPECT_EQ(units().AUGraphNodeInfo(graph, varispeed, &unit), noErr);
  EXPECT_EQ(unit, nullptr) << "there are no units before it is open";
  ASSERT_EQ(units().AUGraphOpen(graph), noErr);
  EXPECT_EQ(units().AUGraphNodeInfo(graph, varispeed, &unit), noErr);
  EXPECT_NE(unit, nullptr);
  EXPECT_EQ(units().AudioComponentInstanceDispose(unit), platform::kAUGraphErr_InvalidAudioUnit)
      << "it is the graph's";
  EXPECT_EQ(units().AUGraphNodeInfo(graph, 9, &unit), platform::kAUGraphErr_NodeNotFound);
  ASSERT_EQ(units().AUGraphAddNode(graph, platform::kDefaultOutputUnit, &output), noErr);
  EXPECT_EQ(units().AUGraphConnectNodeInput(graph, varispeed, 0, 9, 0),
            platform::kAUGraphErr_NodeNotFound);
  EXPECT_EQ(units().AUGraphConnectNodeInput(graph, output, 0, varispeed, 0),
            platform::kAUGraphErr_InvalidConnection);
  EXPECT_EQ(units().AUGraphConnectNodeInput(graph, varispeed, 0, output, 0), noErr);
  EXPECT_EQ(units().AUGraphInitialize(graph), noErr);
  dispose();
}

TEST_F(GraphContract, AGraphWithoutADeviceDoesNotStart) {
  makeGraph();
  EXPECT_EQ(units().AUGraphStart(graph), platform::kAudioHardwareBadDeviceError);
  dispose();
}

}  // namespace
}  // namespace contract
