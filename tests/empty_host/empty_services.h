// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "platform/host.h"

// The ports whose calls answer with a status, refusing, as empty_ports.h does.

namespace empty_host {

class EmptyAudioHardware : public platform::AudioHardware {
 public:
  bool AudioObjectHasProperty(platform::AudioObjectID,
                              const platform::AudioObjectPropertyAddress&) override {
    return false;
  }
  platform::OSStatus AudioObjectGetPropertyDataSize(platform::AudioObjectID,
                                                    const platform::AudioObjectPropertyAddress&,
                                                    std::uint32_t, const void*,
                                                    std::uint32_t*) override {
    return kNothing;
  }
  platform::OSStatus AudioObjectGetPropertyData(platform::AudioObjectID,
                                                const platform::AudioObjectPropertyAddress&,
                                                std::uint32_t, const void*, std::uint32_t*,
                                                void*) override {
    return kNothing;
  }
  platform::OSStatus AudioObjectSetPropertyData(platform::AudioObjectID,
                                                const platform::AudioObjectPropertyAddress&,
                                                std::uint32_t, const void*, std::uint32_t,
                                                const void*) override {
    return kNothing;
  }
  platform::OSStatus AudioDeviceGetProperty(platform::AudioDeviceID, std::uint32_t, bool,
                                            std::uint32_t, std::uint32_t*, void*) override {
    return kNothing;
  }
  platform::OSStatus AudioHardwareSetProperty(std::uint32_t, std::uint32_t, const void*) override {
    return kNothing;
  }
  platform::OSStatus AudioDeviceGetCurrentTime(platform::AudioDeviceID,
                                               platform::AudioTimeStamp*) override {
    return platform::kAudioHardwareNotRunningError;
  }

 private:
  static constexpr platform::OSStatus kNothing = platform::kAudioHardwareBadObjectError;
};

class EmptyAudioUnits : public platform::AudioUnits {
  using Unit = platform::AudioUnit;
  using Graph = platform::AUGraph;
  using Node = platform::AUNode;
  using Status = platform::OSStatus;
  using Description = platform::AudioComponentDescription;

 public:
  platform::AudioComponent AudioComponentFindNext(platform::AudioComponent,
                                                  const Description&) override {
    return nullptr;
  }
  Status AudioComponentInstanceNew(platform::AudioComponent, Unit* outUnit) override {
    *outUnit = nullptr;
    return platform::kAudio_ParamError;
  }
  Status AudioComponentInstanceDispose(Unit) override { return kNone; }
  Status AudioUnitInitialize(Unit) override { return kNone; }
  Status AudioUnitUninitialize(Unit) override { return kNone; }
  Status AudioUnitSetProperty(Unit, std::uint32_t, std::uint32_t, std::uint32_t, const void*,
                              std::uint32_t) override {
    return kNone;
  }
  Status AudioUnitGetProperty(Unit, std::uint32_t, std::uint32_t, std::uint32_t, void*,
                              std::uint32_t*) override {
    return kNone;
  }
  Status AudioOutputUnitStart(Unit) override { return kNone; }
  Status AudioOutputUnitStop(Unit) override { return kNone; }
  Status AudioUnitSetParameter(Unit, std::uint32_t, std::uint32_t, std::uint32_t, float,
                               std::uint32_t) override {
    return kNone;
  }
  Status AudioUnitRender(Unit, std::uint32_t*, const platform::AudioTimeStamp*, std::uint32_t,
                         std::uint32_t, platform::AudioBufferList*) override {
    return kNone;
  }
  Status NewAUGraph(Graph* outGraph) override {
    *outGraph = nullptr;
    return platform::kAudio_ParamError;
  }
  Status DisposeAUGraph(Graph) override { return kNone; }
  Status AUGraphOpen(Graph) override { return kNone; }
  Status AUGraphClose(Graph) override { return kNone; }
  Status AUGraphAddNode(Graph, const Description&, Node*) override { return kNone; }
  Status AUGraphNodeInfo(Graph, Node, Unit*) override { return kNone; }
  Status AUGraphConnectNodeInput(Graph, Node, std::uint32_t, Node, std::uint32_t) override {
    return kNone;
  }
  Status AUGraphInitialize(Graph) override { return kNone; }
  Status AUGraphStart(Graph) override { return kNone; }
  Status AUGraphStop(Graph) override { return kNone; }

 private:
  static constexpr Status kNone = platform::kAUGraphErr_InvalidAudioUnit;
};

class EmptyAuthorization : public platform::Authorization {
 public:
  platform::OSStatus AuthorizationCreate(platform::AuthorizationFlags,
                                         platform::AuthorizationRef* outAuthorization) override {
    *outAuthorization = nullptr;
    return kRefused;
  }
  platform::OSStatus AuthorizationCopyRights(platform::AuthorizationRef, const std::string&,
                                             platform::AuthorizationFlags) override {
    return kRefused;
  }
  platform::OSStatus AuthorizationExecuteWithPrivileges(platform::AuthorizationRef,
                                                        const std::string&,
                                                        platform::AuthorizationFlags,
                                                        const std::vector<std::string>&) override {
    return kRefused;
  }
  platform::OSStatus AuthorizationFree(platform::AuthorizationRef) override { return kRefused; }

 private:
  static constexpr platform::OSStatus kRefused = platform::kAudio_ParamError;
};

class EmptyAppleEvents : public platform::AppleEvents {
 public:
  platform::OSStatus AECreateDesc(std::uint32_t, const void*, std::size_t,
                                  platform::AEDesc* result) override {
    *result = {};
    return kRefused;
  }
  platform::OSStatus AECreateAppleEvent(std::uint32_t, std::uint32_t, const platform::AEDesc*,
                                        std::int16_t, std::int32_t,
                                        platform::AEDesc* result) override {
    *result = {};
    return kRefused;
  }
  platform::OSStatus AESend(const platform::AEDesc*, platform::AEDesc* reply, std::int32_t,
                            std::int16_t, std::int64_t) override {
    *reply = {};
    return kRefused;
  }
  platform::OSStatus AEDisposeDesc(platform::AEDesc* descriptor) override {
    *descriptor = {};
    return platform::noErr;
  }

 private:
  static constexpr platform::OSStatus kRefused = platform::kAudio_ParamError;
};

}  // namespace empty_host
