// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/audio_types.h"

// Audio units and graphs of them, as status-returning calls on opaque handles. Main thread, except
// the two calls marked REAL-TIME, which audio callbacks make.
//
// The life of a unit
//
//     component --InstanceNew--> made --Initialize--> initialised --OutputUnitStart--> running
//                                 ^  <--Uninitialize--      ^      <--OutputUnitStop--
//                                 |                         |
//                          InstanceDispose          device, sides, formats and callbacks are
//                                                   set here or before, never while it runs
//
// A unit that stands alone is made, bound, started and taken down by its owner. This one records
// from a device and is called for each block:
//
//     AudioUnit unit = nullptr;
//     const AudioComponent component = units.AudioComponentFindNext(nullptr, kHALOutputUnit);
//     units.AudioComponentInstanceNew(component, &unit);
//     units.AudioUnitInitialize(unit);
//     set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, std::uint32_t{1});
//     set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, std::uint32_t{0});
//     set(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, deviceID);
//     set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0, callback);
//     units.AudioOutputUnitStart(unit);  // the callback fetches each block by AudioUnitRender()
//     units.AudioOutputUnitStop(unit);   // from here on no callback runs
//     units.AudioUnitUninitialize(unit);
//     units.AudioComponentInstanceDispose(unit);
//
// Units that feed each other are the nodes of a graph, which makes them, starts them and takes them
// down together: NewAUGraph, AUGraphOpen, AUGraphAddNode for each, AUGraphNodeInfo to reach a unit
// and set its properties, AUGraphConnectNodeInput, AUGraphInitialize, AUGraphStart; then
// AUGraphStop, AUGraphClose, DisposeAUGraph. A step that fails leaves the graph where it was: its
// owner undoes the steps before it, the last one first.

namespace platform {

struct AudioComponentDescription {
  std::uint32_t componentType;
  std::uint32_t componentSubType;
  std::uint32_t componentManufacturer;
  std::uint32_t componentFlags;
  std::uint32_t componentFlagsMask;
};

inline constexpr std::uint32_t kAudioUnitType_Output = fourCharCode("auou");
inline constexpr std::uint32_t kAudioUnitSubType_HALOutput = fourCharCode("ahal");
inline constexpr std::uint32_t kAudioUnitSubType_DefaultOutput = fourCharCode("def ");
inline constexpr std::uint32_t kAudioUnitType_FormatConverter = fourCharCode("aufc");
inline constexpr std::uint32_t kAudioUnitSubType_Varispeed = fourCharCode("vari");
inline constexpr std::uint32_t kAudioUnitManufacturer_Apple = fourCharCode("appl");

// The units that every host has: one bound to any device, for input or output; one bound to an
// output, by default the system's; and a converter of rates.
inline constexpr AudioComponentDescription kHALOutputUnit{
    kAudioUnitType_Output, kAudioUnitSubType_HALOutput, kAudioUnitManufacturer_Apple, 0, 0};
inline constexpr AudioComponentDescription kDefaultOutputUnit{
    kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput, kAudioUnitManufacturer_Apple, 0, 0};
inline constexpr AudioComponentDescription kVarispeedUnit{kAudioUnitType_FormatConverter,
                                                          kAudioUnitSubType_Varispeed,
                                                          kAudioUnitManufacturer_Apple, 0, 0};

// Values' types stand beside the properties.
inline constexpr std::uint32_t kAudioUnitProperty_StreamFormat = 8;  // AudioStreamBasicDescription
inline constexpr std::uint32_t kAudioUnitProperty_SetRenderCallback = 23;  // AURenderCallbackStruct
inline constexpr std::uint32_t kAudioOutputUnitProperty_CurrentDevice = 2000;  // AudioDeviceID
inline constexpr std::uint32_t kAudioOutputUnitProperty_EnableIO = 2003;       // uint32
inline constexpr std::uint32_t kAudioOutputUnitProperty_SetInputCallback =
    2005;  // AURenderCallbackStruct
inline constexpr std::uint32_t kAudioOutputUnitProperty_StartTimestampsAtZero = 2007;  // uint32
// A unit bound to a device also answers the device's kAudioDevicePropertyBufferFrameSize.

inline constexpr std::uint32_t kAudioUnitScope_Global = 0;
inline constexpr std::uint32_t kAudioUnitScope_Input = 1;
inline constexpr std::uint32_t kAudioUnitScope_Output = 2;

inline constexpr OSStatus kAudioUnitErr_InvalidProperty = -10879;
inline constexpr OSStatus kAudioUnitErr_InvalidParameter = -10878;
inline constexpr OSStatus kAudioUnitErr_InvalidElement = -10877;
inline constexpr OSStatus kAudioUnitErr_NoConnection = -10876;
inline constexpr OSStatus kAudioUnitErr_FailedInitialization = -10875;
inline constexpr OSStatus kAudioUnitErr_TooManyFramesToProcess = -10874;
inline constexpr OSStatus kAudioUnitErr_FormatNotSupported = -10868;
inline constexpr OSStatus kAudioUnitErr_Uninitialized = -10867;
inline constexpr OSStatus kAudioUnitErr_InvalidScope = -10866;
inline constexpr OSStatus kAudioUnitErr_PropertyNotWritable = -10865;
// Not while the unit runs, or only within its callback.
inline constexpr OSStatus kAudioUnitErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAudioUnitErr_InvalidPropertyValue = -10851;
inline constexpr OSStatus kAUGraphErr_NodeNotFound = -10860;
inline constexpr OSStatus kAUGraphErr_InvalidConnection = -10861;
// The handle stands for no unit or graph that exists.
inline constexpr OSStatus kAUGraphErr_InvalidAudioUnit = -10864;
inline constexpr OSStatus kAudio_ParamError = -50;

// Ratio of frames consumed to frames produced; 1.0 is unchanged speed. The unit pulls its input
// with time stamps that count the frames it has consumed, so the sample times of two pulls in a row
// differ by the frames of the first. Free for the host: where it continues when the output device
// has skipped frames or the input has none; it may pull again from an earlier or a later sample
// time.
inline constexpr std::uint32_t kVarispeedParam_PlaybackRate = 0;

// Called on an audio thread with a buffer list to fill (or, for input callbacks, null). REAL-TIME:
// it allocates nothing, takes no lock, makes no system call.
using AURenderCallback = OSStatus (*)(void* refCon, std::uint32_t* ioActionFlags,
                                      const AudioTimeStamp* timeStamp, std::uint32_t busNumber,
                                      std::uint32_t frameCount, AudioBufferList* ioData);
struct AURenderCallbackStruct {
  AURenderCallback inputProc;
  void* inputProcRefCon;
};
static_assert(sizeof(AURenderCallbackStruct) == 16);

// Opaque handles; null is "none". Owned by whoever created them until disposed of; units of a
// graph's nodes belong to the graph.
using AudioComponent = struct OpaqueAudioComponent*;
using AudioUnit = struct OpaqueAudioUnit*;
using AUGraph = struct OpaqueAUGraph*;
using AUNode = std::int32_t;

// A call that returns anything but noErr has changed nothing, and its outputs are not to be used.
class AudioUnits {
 public:
  virtual ~AudioUnits() = default;

  // The first match behind `after` (null: from the start); null when there is none. Free for the
  // host: what a description matches that is none of the three above.
  virtual AudioComponent AudioComponentFindNext(AudioComponent after,
                                                const AudioComponentDescription& description) = 0;
  virtual OSStatus AudioComponentInstanceNew(AudioComponent component, AudioUnit* outUnit) = 0;
  virtual OSStatus AudioComponentInstanceDispose(AudioUnit unit) = 0;
  virtual OSStatus AudioUnitInitialize(AudioUnit unit) = 0;
  virtual OSStatus AudioUnitUninitialize(AudioUnit unit) = 0;
  virtual OSStatus AudioUnitSetProperty(AudioUnit unit, std::uint32_t property, std::uint32_t scope,
                                        std::uint32_t element, const void* data,
                                        std::uint32_t size_bytes) = 0;
  // *ioSize_bytes is the room in `outData`, and then the size of what was copied there.
  virtual OSStatus AudioUnitGetProperty(AudioUnit unit, std::uint32_t property, std::uint32_t scope,
                                        std::uint32_t element, void* outData,
                                        std::uint32_t* ioSize_bytes) = 0;
  // Returns at once; callbacks come when the device runs.
  virtual OSStatus AudioOutputUnitStart(AudioUnit unit) = 0;
  // Returns when the last callback of the unit has returned and none will come.
  virtual OSStatus AudioOutputUnitStop(AudioUnit unit) = 0;

  // REAL-TIME: allocates nothing, takes no lock, makes no system call.
  virtual OSStatus AudioUnitSetParameter(AudioUnit unit, std::uint32_t parameter,
                                         std::uint32_t scope, std::uint32_t element, float value,
                                         std::uint32_t offset_frames) = 0;
  // REAL-TIME: as above. Fills `ioData` (planar float, one buffer per channel) with the input of
  // this cycle; buffers smaller than frameCount are an error.
  virtual OSStatus AudioUnitRender(AudioUnit unit, std::uint32_t* ioActionFlags,
                                   const AudioTimeStamp* timeStamp, std::uint32_t busNumber,
                                   std::uint32_t frameCount, AudioBufferList* ioData) = 0;

  virtual OSStatus NewAUGraph(AUGraph* outGraph) = 0;
  virtual OSStatus DisposeAUGraph(AUGraph graph) = 0;
  virtual OSStatus AUGraphOpen(AUGraph graph) = 0;
  virtual OSStatus AUGraphClose(AUGraph graph) = 0;
  virtual OSStatus AUGraphAddNode(AUGraph graph, const AudioComponentDescription& description,
                                  AUNode* outNode) = 0;
  // The unit belongs to the graph. It exists once the graph is open; null before.
  virtual OSStatus AUGraphNodeInfo(AUGraph graph, AUNode node, AudioUnit* outUnit) = 0;
  virtual OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode sourceNode,
                                           std::uint32_t sourceOutput, AUNode destNode,
                                           std::uint32_t destInput) = 0;
  virtual OSStatus AUGraphInitialize(AUGraph graph) = 0;
  virtual OSStatus AUGraphStart(AUGraph graph) = 0;
  // Returns when the last callback of the graph's units has returned and none will come.
  virtual OSStatus AUGraphStop(AUGraph graph) = 0;
};

}  // namespace platform
