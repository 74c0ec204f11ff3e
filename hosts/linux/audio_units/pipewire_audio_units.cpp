// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/pipewire_audio_units.h"

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/linux/audio_units/varispeed_unit.h"

namespace linux_host {
namespace {

using platform::AudioComponent;
using platform::AudioComponentDescription;
using platform::AudioUnit;
using platform::AUGraph;
using platform::noErr;
using platform::OSStatus;

constexpr std::array kComponents{platform::kHALOutputUnit, platform::kDefaultOutputUnit,
                                 platform::kVarispeedUnit};

// 0 matches anything; of the flags, only those in the mask count.
bool matches(const AudioComponentDescription& component, const AudioComponentDescription& wanted) {
  const auto fits = [](std::uint32_t has, std::uint32_t want) { return want == 0 || has == want; };
  return fits(component.componentType, wanted.componentType) &&
         fits(component.componentSubType, wanted.componentSubType) &&
         fits(component.componentManufacturer, wanted.componentManufacturer) &&
         (component.componentFlags & wanted.componentFlagsMask) ==
             (wanted.componentFlags & wanted.componentFlagsMask);
}

// A handle is the object's address; components are numbers from 1.
AudioUnit handleOf(Unit* unit) {
  return reinterpret_cast<AudioUnit>(unit);
}
AUGraph handleOf(UnitGraph* graph) {
  return reinterpret_cast<AUGraph>(graph);
}
AudioComponent componentHandle(std::size_t index) {
  return reinterpret_cast<AudioComponent>(index + 1);
}
std::size_t indexOf(AudioComponent component) {
  return reinterpret_cast<std::size_t>(component) - 1;
}

// Calls a method of the object that find() returns for a handle.
template <typename Object, typename... Parameters, typename... Arguments>
OSStatus call(Object* object, OSStatus (Object::*method)(Parameters...), Arguments&&... arguments) {
  if (object == nullptr) return platform::kAUGraphErr_InvalidAudioUnit;
  return (object->*method)(std::forward<Arguments>(arguments)...);
}

}  // namespace

Unit* PipeWireAudioUnits::find(AudioUnit handle) {
  const auto found = units_.find(handle);
  if (found != units_.end()) return found->second.get();
  auto* unit = reinterpret_cast<Unit*>(handle);
  const bool isInGraph =
      unit != nullptr && std::any_of(graphs_.begin(), graphs_.end(),
                                     [&](const auto& entry) { return entry.second->owns(unit); });
  return isInGraph ? unit : nullptr;
}

UnitGraph* PipeWireAudioUnits::find(AUGraph handle) {
  const auto found = graphs_.find(handle);
  return found == graphs_.end() ? nullptr : found->second.get();
}

std::unique_ptr<Unit> PipeWireAudioUnits::makeUnit(const AudioComponentDescription& description) {
  const AudioComponent component = AudioComponentFindNext(nullptr, description);
  if (component == nullptr) return nullptr;
  switch (kComponents.at(indexOf(component)).componentSubType) {
    case platform::kAudioUnitSubType_Varispeed:
      return std::make_unique<VarispeedUnit>();
    case platform::kAudioUnitSubType_DefaultOutput:
      return std::make_unique<DeviceUnit>(environment_, DeviceUnit::Kind::kDefaultOutput);
    default:
      return std::make_unique<DeviceUnit>(environment_, DeviceUnit::Kind::kGeneral);
  }
}

AudioComponent PipeWireAudioUnits::AudioComponentFindNext(
    AudioComponent after, const AudioComponentDescription& description) {
  for (std::size_t i = after == nullptr ? 0 : indexOf(after) + 1; i < kComponents.size(); ++i) {
    if (matches(kComponents.at(i), description)) return componentHandle(i);
  }
  return nullptr;
}

OSStatus PipeWireAudioUnits::AudioComponentInstanceNew(AudioComponent component,
                                                       AudioUnit* outUnit) {
  if (component == nullptr || indexOf(component) >= kComponents.size()) {
    return platform::kAudio_ParamError;
  }
  std::unique_ptr<Unit> unit = makeUnit(kComponents.at(indexOf(component)));
  *outUnit = handleOf(unit.get());
  units_[*outUnit] = std::move(unit);
  return noErr;
}

OSStatus PipeWireAudioUnits::AudioComponentInstanceDispose(AudioUnit unit) {
  return units_.erase(unit) == 1 ? noErr : platform::kAUGraphErr_InvalidAudioUnit;
}

OSStatus PipeWireAudioUnits::AudioUnitInitialize(AudioUnit handle) {
  return call(find(handle), &Unit::initialize);
}

OSStatus PipeWireAudioUnits::AudioUnitUninitialize(AudioUnit handle) {
  return call(find(handle), &Unit::uninitialize);
}

OSStatus PipeWireAudioUnits::AudioUnitSetProperty(AudioUnit handle, std::uint32_t property,
                                                  std::uint32_t scope, std::uint32_t element,
                                                  const void* data, std::uint32_t size_bytes) {
  return call(find(handle), &Unit::setProperty, UnitPropertyAddress{property, scope, element}, data,
              size_bytes);
}

OSStatus PipeWireAudioUnits::AudioUnitGetProperty(AudioUnit handle, std::uint32_t property,
                                                  std::uint32_t scope, std::uint32_t element,
                                                  void* outData, std::uint32_t* ioSize_bytes) {
  Unit* unit = find(handle);
  if (unit == nullptr) return platform::kAUGraphErr_InvalidAudioUnit;
  const Unit::Value value = unit->property({property, scope, element});
  if (const auto* status = std::get_if<OSStatus>(&value)) return *status;
  return std::get<PropertyValue>(value).copyTo(ioSize_bytes, outData);
}

OSStatus PipeWireAudioUnits::AudioOutputUnitStart(AudioUnit handle) {
  return call(find(handle), &Unit::start);
}

OSStatus PipeWireAudioUnits::AudioOutputUnitStop(AudioUnit handle) {
  return call(find(handle), &Unit::stop);
}

OSStatus PipeWireAudioUnits::AudioUnitSetParameter(AudioUnit handle, std::uint32_t parameter,
                                                   std::uint32_t scope, std::uint32_t element,
                                                   float value, std::uint32_t) {
  if (handle == nullptr) return platform::kAUGraphErr_InvalidAudioUnit;
  return reinterpret_cast<Unit*>(handle)->setParameter(parameter, scope, element, value);
}

OSStatus PipeWireAudioUnits::AudioUnitRender(AudioUnit handle, std::uint32_t* ioActionFlags,
                                             const platform::AudioTimeStamp* timeStamp,
                                             std::uint32_t busNumber, std::uint32_t frameCount,
                                             platform::AudioBufferList* ioData) {
  if (handle == nullptr) return platform::kAUGraphErr_InvalidAudioUnit;
  if (timeStamp == nullptr || ioData == nullptr) return platform::kAudio_ParamError;
  return reinterpret_cast<Unit*>(handle)->render(ioActionFlags, *timeStamp, busNumber, frameCount,
                                                 *ioData);
}

OSStatus PipeWireAudioUnits::NewAUGraph(AUGraph* outGraph) {
  auto graph = std::make_unique<UnitGraph>(
      [this](const AudioComponentDescription& description) { return makeUnit(description); });
  *outGraph = handleOf(graph.get());
  graphs_[*outGraph] = std::move(graph);
  return noErr;
}

OSStatus PipeWireAudioUnits::DisposeAUGraph(AUGraph graph) {
  return graphs_.erase(graph) == 1 ? noErr : platform::kAUGraphErr_InvalidAudioUnit;
}

OSStatus PipeWireAudioUnits::AUGraphOpen(AUGraph handle) {
  return call(find(handle), &UnitGraph::open);
}

OSStatus PipeWireAudioUnits::AUGraphClose(AUGraph handle) {
  return call(find(handle), &UnitGraph::close);
}

OSStatus PipeWireAudioUnits::AUGraphAddNode(AUGraph handle,
                                            const AudioComponentDescription& description,
                                            platform::AUNode* outNode) {
  return call(find(handle), &UnitGraph::addNode, description, outNode);
}

OSStatus PipeWireAudioUnits::AUGraphNodeInfo(AUGraph handle, platform::AUNode node,
                                             AudioUnit* outUnit) {
  UnitGraph* graph = find(handle);
  if (graph == nullptr) return platform::kAUGraphErr_InvalidAudioUnit;
  Unit* unit = nullptr;
  const OSStatus status = graph->nodeUnit(node, &unit);
  if (status == noErr) *outUnit = handleOf(unit);
  return status;
}

OSStatus PipeWireAudioUnits::AUGraphConnectNodeInput(AUGraph handle, platform::AUNode sourceNode,
                                                     std::uint32_t sourceOutput,
                                                     platform::AUNode destNode,
                                                     std::uint32_t destInput) {
  return call(find(handle), &UnitGraph::connect, sourceNode, sourceOutput, destNode, destInput);
}

OSStatus PipeWireAudioUnits::AUGraphInitialize(AUGraph handle) {
  return call(find(handle), &UnitGraph::initialize);
}

OSStatus PipeWireAudioUnits::AUGraphStart(AUGraph handle) {
  return call(find(handle), &UnitGraph::start);
}

OSStatus PipeWireAudioUnits::AUGraphStop(AUGraph handle) {
  return call(find(handle), &UnitGraph::stop);
}

}  // namespace linux_host
