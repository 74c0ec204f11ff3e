// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_audio_units.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/audio_hardware.h"

namespace memory_host {

using platform::AudioComponent;
using platform::AudioComponentDescription;
using platform::AudioStreamBasicDescription;
using platform::AudioUnit;
using platform::AUGraph;
using platform::AUNode;
using platform::noErr;
using platform::OSStatus;

namespace {

constexpr OSStatus kInvalidHandle = platform::kAUGraphErr_InvalidAudioUnit;

const char* kindName(UnitKind kind) {
  switch (kind) {
    case UnitKind::kInput:
      return "input";
    case UnitKind::kOutput:
      return "output";
    case UnitKind::kVarispeed:
      return "varispeed";
  }
  return "?";
}

std::string scopeName(std::uint32_t scope) {
  constexpr std::array<const char*, 3> kNames{"global", "input", "output"};
  return scope < kNames.size() ? kNames[scope] : std::to_string(scope);
}

std::string propertyName(std::uint32_t property) {
  switch (property) {
    case platform::kAudioUnitProperty_StreamFormat:
      return "StreamFormat";
    case platform::kAudioUnitProperty_SetRenderCallback:
      return "SetRenderCallback";
    case platform::kAudioOutputUnitProperty_CurrentDevice:
      return "CurrentDevice";
    case platform::kAudioOutputUnitProperty_EnableIO:
      return "EnableIO";
    case platform::kAudioOutputUnitProperty_SetInputCallback:
      return "SetInputCallback";
    case platform::kAudioOutputUnitProperty_StartTimestampsAtZero:
      return "StartTimestampsAtZero";
    case platform::kAudioDevicePropertyBufferFrameSize:
      return "BufferFrameSize";
    default:
      return std::to_string(property);
  }
}

std::string place(std::uint32_t property, std::uint32_t scope, std::uint32_t element) {
  return propertyName(property) + ", " + scopeName(scope) + " " + std::to_string(element);
}

struct KindEntry {
  UnitKind kind;
  AudioComponentDescription description;
};
constexpr std::array<KindEntry, 3> kKinds{{
    {UnitKind::kInput, platform::kHALOutputUnit},
    {UnitKind::kOutput, platform::kDefaultOutputUnit},
    {UnitKind::kVarispeed, platform::kVarispeedUnit},
}};

bool sameDescription(const AudioComponentDescription& a, const AudioComponentDescription& b) {
  return a.componentType == b.componentType && a.componentSubType == b.componentSubType &&
         a.componentManufacturer == b.componentManufacturer &&
         a.componentFlags == b.componentFlags && a.componentFlagsMask == b.componentFlagsMask;
}

template <typename Handle, typename Object>
Handle handleOf(Object* object) {
  return reinterpret_cast<Handle>(object);
}

}  // namespace

struct MemoryAudioUnits::Component {
  KindEntry entry;
};

MemoryAudioUnits::MemoryAudioUnits() {
  for (const KindEntry& entry : kKinds) {
    components_.push_back(std::make_unique<Component>(Component{entry}));
  }
}

MemoryAudioUnits::~MemoryAudioUnits() = default;

bool MemoryAudioUnits::inputRunning() const {
  return std::any_of(units_.begin(), units_.end(), [](const auto& unit) { return unit->running; });
}

bool MemoryAudioUnits::graphRunning() const {
  return std::any_of(graphs_.begin(), graphs_.end(),
                     [](const auto& graph) { return graph->running; });
}

void MemoryAudioUnits::setFormat(UnitKind kind, std::uint32_t scope, std::uint32_t element,
                                 const AudioStreamBasicDescription& format) {
  formats_[{kind, scope, element}] = format;
}

void MemoryAudioUnits::removeComponent(UnitKind kind) {
  std::erase_if(components_, [&](const auto& component) { return component->entry.kind == kind; });
}

const MemoryAudioUnits::Unit* MemoryAudioUnits::anyOf(UnitKind kind) const {
  for (const auto& unit : units_) {
    if (unit->kind == kind) return unit.get();
  }
  for (const auto& graph : graphs_) {
    for (const auto& unit : graph->nodes) {
      if (unit->kind == kind) return unit.get();
    }
  }
  return nullptr;
}

AudioStreamBasicDescription MemoryAudioUnits::format(UnitKind kind, std::uint32_t scope,
                                                     std::uint32_t element) const {
  if (const Unit* unit = anyOf(kind)) {
    const auto set =
        unit->properties.find({platform::kAudioUnitProperty_StreamFormat, scope, element});
    if (set != unit->properties.end()) {
      AudioStreamBasicDescription result;
      std::memcpy(&result, set->second.data(), std::min(sizeof result, set->second.size()));
      return result;
    }
  }
  const auto found = formats_.find({kind, scope, element});
  return found == formats_.end() ? platform::planarFloat(48000, 2) : found->second;
}

std::optional<std::uint32_t> MemoryAudioUnits::number(UnitKind kind, std::uint32_t property,
                                                      std::uint32_t scope,
                                                      std::uint32_t element) const {
  const Unit* unit = anyOf(kind);
  if (unit == nullptr) return std::nullopt;
  const auto found = unit->properties.find({property, scope, element});
  if (found == unit->properties.end() || found->second.size() != sizeof(std::uint32_t)) {
    return std::nullopt;
  }
  std::uint32_t value = 0;
  std::memcpy(&value, found->second.data(), sizeof value);
  return value;
}

OSStatus MemoryAudioUnits::driveInput(const platform::AudioTimeStamp& time, std::uint32_t frames,
                                      platform::AudioBufferList* list) const {
  std::uint32_t flags = kInputFlags;
  return inputCallback.inputProc(inputCallback.inputProcRefCon, &flags, &time, kInputBus, frames,
                                 list);
}

OSStatus MemoryAudioUnits::driveOutput(const platform::AudioTimeStamp& time, std::uint32_t frames,
                                       platform::AudioBufferList* list) const {
  std::uint32_t flags = 0;
  return renderCallback.inputProc(renderCallback.inputProcRefCon, &flags, &time, 0, frames, list);
}

OSStatus MemoryAudioUnits::begin(std::string call) {
  calls.push_back(std::move(call));
  return static_cast<int>(calls.size()) == failCall ? failStatus : noErr;
}

MemoryAudioUnits::Unit* MemoryAudioUnits::known(AudioUnit unit, const char* caller) {
  for (const auto& candidate : units_) {
    if (handleOf<AudioUnit>(candidate.get()) == unit) return candidate.get();
  }
  for (const auto& graph : graphs_) {
    for (const auto& candidate : graph->nodes) {
      if (handleOf<AudioUnit>(candidate.get()) == unit) return candidate.get();
    }
  }
  misuse(std::string(caller) + " of a unit that does not exist");
  return nullptr;
}

MemoryAudioUnits::Graph* MemoryAudioUnits::known(AUGraph graph, const char* caller) {
  for (const auto& candidate : graphs_) {
    if (handleOf<AUGraph>(candidate.get()) == graph) return candidate.get();
  }
  misuse(std::string(caller) + " of a graph that does not exist");
  return nullptr;
}

std::string MemoryAudioUnits::nameOf(AudioUnit unit) const {
  for (const auto& candidate : units_) {
    if (handleOf<AudioUnit>(candidate.get()) == unit) return kindName(candidate->kind);
  }
  for (const auto& graph : graphs_) {
    for (const auto& candidate : graph->nodes) {
      if (handleOf<AudioUnit>(candidate.get()) == unit) return kindName(candidate->kind);
    }
  }
  return "unknown";
}

AudioComponent MemoryAudioUnits::AudioComponentFindNext(
    AudioComponent after, const AudioComponentDescription& description) {
  if (begin("AudioComponentFindNext") != noErr) return nullptr;
  bool passed = after == nullptr;
  for (const auto& component : components_) {
    if (passed && sameDescription(component->entry.description, description)) {
      return handleOf<AudioComponent>(component.get());
    }
    passed = passed || handleOf<AudioComponent>(component.get()) == after;
  }
  return nullptr;
}

OSStatus MemoryAudioUnits::AudioComponentInstanceNew(AudioComponent component, AudioUnit* outUnit) {
  if (const OSStatus status = begin("AudioComponentInstanceNew"); status != noErr) return status;
  for (const auto& candidate : components_) {
    if (handleOf<AudioComponent>(candidate.get()) != component) continue;
    units_.push_back(std::make_unique<Unit>(candidate->entry.kind));
    *outUnit = handleOf<AudioUnit>(units_.back().get());
    return noErr;
  }
  misuse("AudioComponentInstanceNew of a component that does not exist");
  return kInvalidHandle;
}

OSStatus MemoryAudioUnits::AudioComponentInstanceDispose(AudioUnit unit) {
  if (const OSStatus status = begin("AudioComponentInstanceDispose(" + nameOf(unit) + ")");
      status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioComponentInstanceDispose");
  if (found == nullptr) return kInvalidHandle;
  if (found->running) misuse("AudioComponentInstanceDispose of a running unit");
  if (found->initialized) misuse("AudioComponentInstanceDispose of an initialised unit");
  stopLive(*found);
  const auto removed =
      std::erase_if(units_, [&](const auto& candidate) { return candidate.get() == found; });
  if (removed == 1) return noErr;
  misuse("AudioComponentInstanceDispose of a graph's unit");
  return kInvalidHandle;
}

OSStatus MemoryAudioUnits::AudioUnitInitialize(AudioUnit unit) {
  if (const OSStatus status = begin("AudioUnitInitialize(" + nameOf(unit) + ")"); status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioUnitInitialize");
  if (found == nullptr) return kInvalidHandle;
  found->initialized = true;
  return noErr;
}

OSStatus MemoryAudioUnits::AudioUnitUninitialize(AudioUnit unit) {
  if (const OSStatus status = begin("AudioUnitUninitialize(" + nameOf(unit) + ")");
      status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioUnitUninitialize");
  if (found == nullptr) return kInvalidHandle;
  if (!found->initialized) misuse("AudioUnitUninitialize of a unit that is not initialised");
  found->initialized = false;
  return noErr;
}

OSStatus MemoryAudioUnits::AudioUnitSetProperty(AudioUnit unit, std::uint32_t property,
                                                std::uint32_t scope, std::uint32_t element,
                                                const void* data, std::uint32_t size_bytes) {
  if (const OSStatus status = begin("AudioUnitSetProperty(" + nameOf(unit) + ", " +
                                    place(property, scope, element) + ")");
      status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioUnitSetProperty");
  if (found == nullptr) return kInvalidHandle;
  if (const OSStatus refusal = refusalOf(*found, property, data, size_bytes); refusal != noErr) {
    return refusal;
  }
  std::vector<std::byte> bytes(size_bytes);
  std::memcpy(bytes.data(), data, size_bytes);
  found->properties[{property, scope, element}] = std::move(bytes);
  if (property == platform::kAudioOutputUnitProperty_SetInputCallback) {
    std::memcpy(&inputCallback, data, sizeof inputCallback);
  } else if (property == platform::kAudioUnitProperty_SetRenderCallback) {
    std::memcpy(&renderCallback, data, sizeof renderCallback);
  }
  return noErr;
}

OSStatus MemoryAudioUnits::AudioUnitGetProperty(AudioUnit unit, std::uint32_t property,
                                                std::uint32_t scope, std::uint32_t element,
                                                void* outData, std::uint32_t* ioSize_bytes) {
  if (const OSStatus status = begin("AudioUnitGetProperty(" + nameOf(unit) + ", " +
                                    place(property, scope, element) + ")");
      status != noErr) {
    return status;
  }
  const Unit* found = known(unit, "AudioUnitGetProperty");
  if (found == nullptr) return kInvalidHandle;
  if (property == platform::kAudioUnitProperty_StreamFormat) {
    if (*ioSize_bytes < sizeof(AudioStreamBasicDescription)) {
      return platform::kAudioHardwareBadPropertySizeError;
    }
    const AudioStreamBasicDescription answer = format(found->kind, scope, element);
    std::memcpy(outData, &answer, sizeof answer);
    *ioSize_bytes = sizeof answer;
    return noErr;
  }
  if (property == platform::kAudioDevicePropertyBufferFrameSize) {
    if (*ioSize_bytes < sizeof bufferFrameSize_) {
      return platform::kAudioHardwareBadPropertySizeError;
    }
    std::memcpy(outData, &bufferFrameSize_, sizeof bufferFrameSize_);
    *ioSize_bytes = sizeof bufferFrameSize_;
    return noErr;
  }
  return platform::kAudioHardwareUnknownPropertyError;
}

OSStatus MemoryAudioUnits::AudioOutputUnitStart(AudioUnit unit) {
  if (const OSStatus status = begin("AudioOutputUnitStart(" + nameOf(unit) + ")");
      status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioOutputUnitStart");
  if (found == nullptr) return kInvalidHandle;
  if (hardware_ != nullptr) return startLive(*found);
  found->running = true;
  return noErr;
}

OSStatus MemoryAudioUnits::AudioOutputUnitStop(AudioUnit unit) {
  if (const OSStatus status = begin("AudioOutputUnitStop(" + nameOf(unit) + ")"); status != noErr) {
    return status;
  }
  Unit* found = known(unit, "AudioOutputUnitStop");
  if (found == nullptr) return kInvalidHandle;
  stopLive(*found);
  found->running = false;
  return noErr;
}

OSStatus MemoryAudioUnits::AudioUnitSetParameter(AudioUnit unit, std::uint32_t parameter,
                                                 std::uint32_t scope, std::uint32_t element,
                                                 float value, std::uint32_t offset_frames) {
  setParameterCalls.fetch_add(1, std::memory_order_relaxed);
  if (setParameterStatus != noErr) return setParameterStatus;
  Unit* found = known(unit, "AudioUnitSetParameter");
  if (found == nullptr) return kInvalidHandle;
  if (parameter == platform::kVarispeedParam_PlaybackRate) found->rate = double{value};
  lastParameter = {found->kind, parameter, scope, element, value, offset_frames};
  return noErr;
}

OSStatus MemoryAudioUnits::AudioUnitRender(AudioUnit unit, std::uint32_t* ioActionFlags,
                                           const platform::AudioTimeStamp* timeStamp,
                                           std::uint32_t busNumber, std::uint32_t frameCount,
                                           platform::AudioBufferList* ioData) {
  lastRender = {*ioActionFlags, busNumber, frameCount};
  renderCalls.fetch_add(1, std::memory_order_relaxed);
  if (renderStatus != noErr) return renderStatus;
  const Unit* found = known(unit, "AudioUnitRender");
  if (found == nullptr) return kInvalidHandle;
  if (const OSStatus refusal = refusalOf(*found, busNumber, frameCount, *ioData);
      refusal != noErr) {
    return refusal;
  }
  for (std::uint32_t i = 0; i < ioData->mNumberBuffers; ++i) {
    const platform::AudioBuffer& buffer = ioData->mBuffers[i];
    if (buffer.mDataByteSize < frameCount * sizeof(float)) {
      return platform::kAudioHardwareBadPropertySizeError;
    }
    if (!render) std::memset(buffer.mData, 0, buffer.mDataByteSize);
  }
  if (render) render(*timeStamp, frameCount, *ioData);
  return noErr;
}

OSStatus MemoryAudioUnits::NewAUGraph(AUGraph* outGraph) {
  if (const OSStatus status = begin("NewAUGraph"); status != noErr) return status;
  graphs_.push_back(std::make_unique<Graph>());
  *outGraph = handleOf<AUGraph>(graphs_.back().get());
  return noErr;
}

OSStatus MemoryAudioUnits::DisposeAUGraph(AUGraph graph) {
  if (const OSStatus status = begin("DisposeAUGraph"); status != noErr) return status;
  Graph* found = known(graph, "DisposeAUGraph");
  if (found == nullptr) return kInvalidHandle;
  if (found->running) misuse("DisposeAUGraph of a running graph");
  for (const auto& unit : found->nodes) stopLive(*unit);
  std::erase_if(graphs_, [&](const auto& candidate) { return candidate.get() == found; });
  return noErr;
}

OSStatus MemoryAudioUnits::graphStep(AUGraph graph, const char* caller,
                                     const std::function<void(Graph&)>& step) {
  if (const OSStatus status = begin(caller); status != noErr) return status;
  Graph* found = known(graph, caller);
  if (found == nullptr) return kInvalidHandle;
  step(*found);
  return noErr;
}

OSStatus MemoryAudioUnits::AUGraphOpen(AUGraph graph) {
  return graphStep(graph, "AUGraphOpen", [](Graph& found) { found.open = true; });
}

OSStatus MemoryAudioUnits::AUGraphClose(AUGraph graph) {
  return graphStep(graph, "AUGraphClose", [this](Graph& found) {
    if (!found.open) misuse("AUGraphClose of a graph that is not open");
    for (const auto& unit : found.nodes) stopLive(*unit);
    found.open = false;
    found.initialized = false;
  });
}

OSStatus MemoryAudioUnits::AUGraphAddNode(AUGraph graph,
                                          const AudioComponentDescription& description,
                                          AUNode* outNode) {
  const auto component = std::find_if(components_.begin(), components_.end(), [&](const auto& c) {
    return sameDescription(c->entry.description, description);
  });
  const std::string name =
      component == components_.end() ? "unknown" : kindName((*component)->entry.kind);
  if (const OSStatus status = begin("AUGraphAddNode(" + name + ")"); status != noErr) return status;
  Graph* found = known(graph, "AUGraphAddNode");
  if (found == nullptr || component == components_.end()) return kInvalidHandle;
  found->nodes.push_back(std::make_unique<Unit>((*component)->entry.kind));
  *outNode = static_cast<AUNode>(found->nodes.size());
  return noErr;
}

OSStatus MemoryAudioUnits::AUGraphNodeInfo(AUGraph graph, AUNode node, AudioUnit* outUnit) {
  if (const OSStatus status = begin("AUGraphNodeInfo(" + std::to_string(node) + ")");
      status != noErr) {
    return status;
  }
  const Graph* found = known(graph, "AUGraphNodeInfo");
  if (found == nullptr) return kInvalidHandle;
  if (node < 1 || node > static_cast<AUNode>(found->nodes.size())) {
    return platform::kAUGraphErr_NodeNotFound;
  }
  Unit* unit = found->nodes[static_cast<std::size_t>(node) - 1].get();
  *outUnit = found->open ? handleOf<AudioUnit>(unit) : nullptr;
  return noErr;
}

OSStatus MemoryAudioUnits::AUGraphConnectNodeInput(AUGraph graph, AUNode sourceNode,
                                                   std::uint32_t sourceOutput, AUNode destNode,
                                                   std::uint32_t destInput) {
  const std::string call = "AUGraphConnectNodeInput(" + std::to_string(sourceNode) + ":" +
                           std::to_string(sourceOutput) + " -> " + std::to_string(destNode) + ":" +
                           std::to_string(destInput) + ")";
  OSStatus refusal = noErr;
  const OSStatus status = graphStep(graph, call.c_str(), [&](Graph& found) {
    refusal = refusalOf(found, sourceNode, sourceOutput, destNode, destInput);
    if (refusal != noErr) return;
    found.nodes[static_cast<std::size_t>(destNode) - 1]->source =
        found.nodes[static_cast<std::size_t>(sourceNode) - 1].get();
  });
  return status == noErr ? refusal : status;
}

OSStatus MemoryAudioUnits::AUGraphInitialize(AUGraph graph) {
  OSStatus refusal = noErr;
  const OSStatus status = graphStep(graph, "AUGraphInitialize", [&](Graph& found) {
    if (hardware_ != nullptr && !found.open) refusal = platform::kAudioUnitErr_Uninitialized;
    found.initialized = refusal == noErr;
  });
  return status == noErr ? refusal : status;
}

OSStatus MemoryAudioUnits::AUGraphStart(AUGraph graph) {
  OSStatus refusal = noErr;
  const OSStatus status = graphStep(graph, "AUGraphStart", [&](Graph& found) {
    if (hardware_ != nullptr) refusal = startLive(found);
    found.running = refusal == noErr;
  });
  return status == noErr ? refusal : status;
}

OSStatus MemoryAudioUnits::AUGraphStop(AUGraph graph) {
  return graphStep(graph, "AUGraphStop", [](Graph& found) {
    for (const auto& unit : found.nodes) stopLive(*unit);
    found.running = false;
  });
}

}  // namespace memory_host
