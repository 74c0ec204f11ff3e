#pragma once

#include "platform/audio_hardware.h"
#include "platform/audio_unit.h"

namespace linux_host {

// A machine without audio units: no component is ever found, every other call fails.
class NoAudioUnits : public platform::AudioUnits {
 public:
  platform::AudioComponent AudioComponentFindNext(
      platform::AudioComponent, const platform::AudioComponentDescription&) override {
    return nullptr;
  }
  platform::OSStatus AudioComponentInstanceNew(platform::AudioComponent,
                                               platform::AudioUnit*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioComponentInstanceDispose(platform::AudioUnit) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitInitialize(platform::AudioUnit) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitUninitialize(platform::AudioUnit) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitSetProperty(platform::AudioUnit, std::uint32_t, std::uint32_t,
                                          std::uint32_t, const void*, std::uint32_t) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitGetProperty(platform::AudioUnit, std::uint32_t, std::uint32_t,
                                          std::uint32_t, void*, std::uint32_t*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioOutputUnitStart(platform::AudioUnit) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioOutputUnitStop(platform::AudioUnit) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitSetParameter(platform::AudioUnit, std::uint32_t, std::uint32_t,
                                           std::uint32_t, float, std::uint32_t) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AudioUnitRender(platform::AudioUnit, std::uint32_t*,
                                     const platform::AudioTimeStamp*, std::uint32_t, std::uint32_t,
                                     platform::AudioBufferList*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus NewAUGraph(platform::AUGraph*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus DisposeAUGraph(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphOpen(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphClose(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphAddNode(platform::AUGraph, const platform::AudioComponentDescription&,
                                    platform::AUNode*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphNodeInfo(platform::AUGraph, platform::AUNode,
                                     platform::AudioUnit*) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphConnectNodeInput(platform::AUGraph, platform::AUNode, std::uint32_t,
                                             platform::AUNode, std::uint32_t) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphInitialize(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphStart(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
  platform::OSStatus AUGraphStop(platform::AUGraph) override {
    return platform::kAudioHardwareUnspecifiedError;
  }
};

}  // namespace linux_host
