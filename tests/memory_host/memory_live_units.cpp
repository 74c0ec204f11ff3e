// SPDX-License-Identifier: MIT
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include "tests/memory_host/memory_audio_units.h"

// How units behave that run by themselves.

namespace memory_host {

using platform::AudioDeviceID;
using platform::AudioStreamBasicDescription;
using platform::AUNode;
using platform::noErr;
using platform::OSStatus;

namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kInputElement = 1;

// What one buffer a channel takes: a header and its buffers.
struct StereoList {
  platform::AudioBufferList list;
  platform::AudioBuffer second;
};
static_assert(sizeof(StereoList) == platform::audioBufferListSize_bytes(kChannels));

}  // namespace

void MemoryAudioUnits::goLive(MemoryAudioHardware& hardware, Pulse pulse) {
  hardware_ = &hardware;
  pulse_ = std::move(pulse);
}

bool MemoryAudioUnits::isDevice(AudioDeviceID device) const {
  return hardware_->AudioObjectHasProperty(device,
                                           globalAddress(platform::kAudioDevicePropertyDeviceUID));
}

AudioDeviceID MemoryAudioUnits::deviceOf(const Unit& unit) const {
  const auto bound = unit.value<AudioDeviceID>(platform::kAudioOutputUnitProperty_CurrentDevice,
                                               platform::kAudioUnitScope_Global, 0);
  return bound == 0 && unit.kind == UnitKind::kOutput ? hardware_->defaultOutput() : bound;
}

OSStatus MemoryAudioUnits::refusalOf(const Unit& unit, std::uint32_t property, const void* data,
                                     std::uint32_t size_bytes) const {
  if (hardware_ == nullptr) return noErr;
  if (unit.running) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  switch (property) {
    case platform::kAudioOutputUnitProperty_CurrentDevice: {
      AudioDeviceID device = 0;
      if (size_bytes != sizeof device) return platform::kAudioUnitErr_InvalidPropertyValue;
      std::memcpy(&device, data, sizeof device);
      return isDevice(device) ? noErr : platform::kAudioHardwareBadDeviceError;
    }
    case platform::kAudioUnitProperty_StreamFormat: {
      AudioStreamBasicDescription format;
      if (size_bytes != sizeof format) return platform::kAudioUnitErr_InvalidPropertyValue;
      std::memcpy(&format, data, sizeof format);
      const auto usable = platform::planarFloat(format.mSampleRate, format.mChannelsPerFrame);
      const bool isUsable =
          format.mSampleRate > 0 && std::memcmp(&format, &usable, size_bytes) == 0;
      return isUsable ? noErr : platform::kAudioUnitErr_FormatNotSupported;
    }
    case platform::kAudioOutputUnitProperty_EnableIO:
    case platform::kAudioOutputUnitProperty_StartTimestampsAtZero:
      return size_bytes == sizeof(std::uint32_t) ? noErr
                                                 : platform::kAudioUnitErr_InvalidPropertyValue;
    case platform::kAudioOutputUnitProperty_SetInputCallback:
    case platform::kAudioUnitProperty_SetRenderCallback:
      return size_bytes == sizeof(platform::AURenderCallbackStruct)
                 ? noErr
                 : platform::kAudioUnitErr_InvalidPropertyValue;
    default:
      return platform::kAudioUnitErr_InvalidProperty;
  }
}

OSStatus MemoryAudioUnits::refusalOf(const Unit& unit, std::uint32_t busNumber,
                                     std::uint32_t frames,
                                     const platform::AudioBufferList& list) const {
  if (hardware_ == nullptr) return noErr;
  if (busNumber != kInputElement) return platform::kAudioUnitErr_InvalidElement;
  if (unit.renderable_frames == 0) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  if (frames > unit.renderable_frames) return platform::kAudioUnitErr_TooManyFramesToProcess;
  return list.mNumberBuffers == kChannels ? noErr : platform::kAudio_ParamError;
}

OSStatus MemoryAudioUnits::refusalOf(const Graph& graph, AUNode source, std::uint32_t output,
                                     AUNode destination, std::uint32_t input) const {
  const auto isNode = [&](AUNode node) {
    return node >= 1 && node <= static_cast<AUNode>(graph.nodes.size());
  };
  if (!isNode(source) || !isNode(destination)) return platform::kAUGraphErr_NodeNotFound;
  if (hardware_ == nullptr) return noErr;
  if (!graph.open) return platform::kAudioUnitErr_Uninitialized;
  const bool feeds =
      graph.nodes[static_cast<std::size_t>(source) - 1]->kind == UnitKind::kVarispeed;
  const bool isPossible = source != destination && output == 0 && input == 0 && feeds;
  return isPossible ? noErr : platform::kAUGraphErr_InvalidConnection;
}

OSStatus MemoryAudioUnits::startLive(Unit& unit) {
  if (unit.running) return noErr;
  const bool isInput = unit.kind == UnitKind::kInput;
  // Its output is on until it is switched off; both at once is more than one stream.
  const auto isOn = [&](std::uint32_t scope, std::uint32_t element, bool usually) {
    constexpr std::uint32_t kProperty = platform::kAudioOutputUnitProperty_EnableIO;
    return unit.properties.contains({kProperty, scope, element})
               ? unit.value<std::uint32_t>(kProperty, scope, element) != 0
               : usually;
  };
  if (isInput && (!isOn(platform::kAudioUnitScope_Input, kInputElement, false) ||
                  isOn(platform::kAudioUnitScope_Output, 0, true))) {
    return platform::kAudioUnitErr_CannotDoInCurrentContext;
  }
  const AudioDeviceID device = deviceOf(unit);
  if (!isDevice(device)) return platform::kAudioHardwareBadDeviceError;
  const auto callback = unit.value<platform::AURenderCallbackStruct>(
      isInput ? platform::kAudioOutputUnitProperty_SetInputCallback
              : platform::kAudioUnitProperty_SetRenderCallback,
      isInput ? platform::kAudioUnitScope_Global : platform::kAudioUnitScope_Input, 0);
  if (callback.inputProc == nullptr && unit.source == nullptr) {
    return platform::kAudioUnitErr_NoConnection;
  }
  unit.running = true;
  unit.time = {};
  if (unit.source != nullptr) unit.source->time = {};
  unit.stopPulse = [this, device, stop = pulse_([this, &unit, device] { cycleOf(unit, device); })] {
    stop();
    hardware_->stopClock(device);
  };
  return noErr;
}

void MemoryAudioUnits::stopLive(Unit& unit) {
  if (const auto stop = std::exchange(unit.stopPulse, nullptr)) stop();
  unit.running = false;
}

OSStatus MemoryAudioUnits::startLive(Graph& graph) {
  if (!graph.initialized) return platform::kAudioUnitErr_Uninitialized;
  for (const auto& unit : graph.nodes) {
    if (unit->kind == UnitKind::kVarispeed) continue;
    if (const OSStatus status = startLive(*unit); status != noErr) return status;
  }
  return noErr;
}

void MemoryAudioUnits::cycleOf(Unit& unit, AudioDeviceID device) {
  unit.time.mRateScalar = 1;
  hardware_->setCurrentTime(device, unit.time);
  if (unit.kind == UnitKind::kInput) {
    const auto callback = unit.value<platform::AURenderCallbackStruct>(
        platform::kAudioOutputUnitProperty_SetInputCallback, platform::kAudioUnitScope_Global, 0);
    std::uint32_t flags = 0;
    unit.renderable_frames = kCycle_frames;
    callback.inputProc(callback.inputProcRefCon, &flags, &unit.time, kInputElement, kCycle_frames,
                       nullptr);
    unit.renderable_frames = 0;
  } else {
    pull(unit.source != nullptr ? *unit.source : unit);
  }
  unit.time.mSampleTime += kCycle_frames;
}

// A varispeed asks for as much as it consumes, and counts that.
void MemoryAudioUnits::pull(Unit& unit) {
  const auto callback = unit.value<platform::AURenderCallbackStruct>(
      platform::kAudioUnitProperty_SetRenderCallback, platform::kAudioUnitScope_Input, 0);
  if (callback.inputProc == nullptr) return;
  const auto frames = static_cast<std::uint32_t>(std::lround(kCycle_frames * unit.rate));
  std::array<std::vector<float>, kChannels> planes;
  StereoList stereo{};
  stereo.list.mNumberBuffers = kChannels;
  auto* const buffers = reinterpret_cast<platform::AudioBuffer*>(
      reinterpret_cast<std::byte*>(&stereo) + offsetof(platform::AudioBufferList, mBuffers));
  for (std::uint32_t channel = 0; channel < kChannels; ++channel) {
    planes.at(channel).resize(frames);
    buffers[channel] = {1, frames * static_cast<std::uint32_t>(sizeof(float)),
                        planes.at(channel).data()};
  }
  std::uint32_t flags = 0;
  callback.inputProc(callback.inputProcRefCon, &flags, &unit.time, 0, frames, &stereo.list);
  if (unit.kind == UnitKind::kVarispeed) unit.time.mSampleTime += frames;
}

}  // namespace memory_host
