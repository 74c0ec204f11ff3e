// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "hosts/linux/audio_units/device_unit.h"
#include "hosts/linux/audio_units/start_line.h"
#include "hosts/linux/audio_units/unit_graph.h"
#include "platform/audio_unit.h"

namespace linux_host {

// Audio units on PipeWire: the general input/output unit, the default output unit, and a varispeed
// unit. Remaining units and graphs are stopped and deleted with this object.
//
// Calls with an invalid handle return kAUGraphErr_InvalidAudioUnit. Only the two real-time calls,
// which look nothing up, need a live unit.
class PipeWireAudioUnits : public platform::AudioUnits {
 public:
  // All outlive this object. The units' clocks are published into `clocks`.
  PipeWireAudioUnits(PipeWireConnection& connection, PipeWireAudioHardware& hardware,
                     DeviceClockTable& clocks)
      : environment_{connection, hardware, clocks, startLine_} {}

  platform::AudioComponent AudioComponentFindNext(
      platform::AudioComponent after,
      const platform::AudioComponentDescription& description) override;
  platform::OSStatus AudioComponentInstanceNew(platform::AudioComponent component,
                                               platform::AudioUnit* outUnit) override;
  platform::OSStatus AudioComponentInstanceDispose(platform::AudioUnit unit) override;
  platform::OSStatus AudioUnitInitialize(platform::AudioUnit unit) override;
  platform::OSStatus AudioUnitUninitialize(platform::AudioUnit unit) override;
  platform::OSStatus AudioUnitSetProperty(platform::AudioUnit unit, std::uint32_t property,
                                          std::uint32_t scope, std::uint32_t element,
                                          const void* data, std::uint32_t size_bytes) override;
  platform::OSStatus AudioUnitGetProperty(platform::AudioUnit unit, std::uint32_t property,
                                          std::uint32_t scope, std::uint32_t element, void* outData,
                                          std::uint32_t* ioSize_bytes) override;
  platform::OSStatus AudioOutputUnitStart(platform::AudioUnit unit) override;
  platform::OSStatus AudioOutputUnitStop(platform::AudioUnit unit) override;
  platform::OSStatus AudioUnitSetParameter(platform::AudioUnit unit, std::uint32_t parameter,
                                           std::uint32_t scope, std::uint32_t element, float value,
                                           std::uint32_t offset_frames) override;
  platform::OSStatus AudioUnitRender(platform::AudioUnit unit, std::uint32_t* ioActionFlags,
                                     const platform::AudioTimeStamp* timeStamp,
                                     std::uint32_t busNumber, std::uint32_t frameCount,
                                     platform::AudioBufferList* ioData) override;

  platform::OSStatus NewAUGraph(platform::AUGraph* outGraph) override;
  platform::OSStatus DisposeAUGraph(platform::AUGraph graph) override;
  platform::OSStatus AUGraphOpen(platform::AUGraph graph) override;
  platform::OSStatus AUGraphClose(platform::AUGraph graph) override;
  platform::OSStatus AUGraphAddNode(platform::AUGraph graph,
                                    const platform::AudioComponentDescription& description,
                                    platform::AUNode* outNode) override;
  platform::OSStatus AUGraphNodeInfo(platform::AUGraph graph, platform::AUNode node,
                                     platform::AudioUnit* outUnit) override;
  platform::OSStatus AUGraphConnectNodeInput(platform::AUGraph graph, platform::AUNode sourceNode,
                                             std::uint32_t sourceOutput, platform::AUNode destNode,
                                             std::uint32_t destInput) override;
  platform::OSStatus AUGraphInitialize(platform::AUGraph graph) override;
  platform::OSStatus AUGraphStart(platform::AUGraph graph) override;
  platform::OSStatus AUGraphStop(platform::AUGraph graph) override;

 private:
  // Null when the handle is invalid.
  Unit* find(platform::AudioUnit handle);
  UnitGraph* find(platform::AUGraph handle);
  std::unique_ptr<Unit> makeUnit(const platform::AudioComponentDescription& description);

  StartLine startLine_;
  const UnitEnvironment environment_;
  std::map<platform::AudioUnit, std::unique_ptr<Unit>> units_;  // units outside graphs
  std::map<platform::AUGraph, std::unique_ptr<UnitGraph>> graphs_;
};

}  // namespace linux_host
