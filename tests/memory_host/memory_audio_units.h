// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/audio_unit.h"
#include "tests/memory_host/memory_audio_hardware.h"

// Audio units and graphs in memory. Every call is recorded in order, and any one can be made to
// fail. The test calls the callbacks that the core has installed, or lets the units run by
// themselves. Single-threaded, except the two calls that audio callbacks make.

namespace memory_host {

enum class UnitKind { kInput, kOutput, kVarispeed };

class MemoryAudioUnits : public platform::AudioUnits {
 public:
  MemoryAudioUnits();
  ~MemoryAudioUnits() override;

  // One line per call, with its arguments in words: "AudioUnitSetProperty(input, EnableIO, input
  // 1)". Without the calls of audio callbacks.
  std::vector<std::string> calls;
  // Uses of handles that are not valid, or not any more, and double disposals. Empty if there were
  // none.
  std::vector<std::string> misuses;
  // The call with this number fails once, with `failStatus`. The first is 1; 0 lets none fail. A
  // search for a component that fails finds none.
  int failCall = 0;
  platform::OSStatus failStatus = -1;

  // Standalone units and graphs that have not been disposed of.
  [[nodiscard]] std::size_t livingUnits() const { return units_.size(); }
  [[nodiscard]] std::size_t livingGraphs() const { return graphs_.size(); }
  [[nodiscard]] bool inputRunning() const;
  [[nodiscard]] bool graphRunning() const;

  // What new units return, by kind, scope and element.
  void setFormat(UnitKind kind, std::uint32_t scope, std::uint32_t element,
                 const platform::AudioStreamBasicDescription& format);
  void setBufferFrameSize(std::uint32_t frames) { bufferFrameSize_ = frames; }
  // The kind can no longer be found.
  void removeComponent(UnitKind kind);
  // The current value: what the core set, or else what new units return.
  [[nodiscard]] platform::AudioStreamBasicDescription format(UnitKind kind, std::uint32_t scope,
                                                             std::uint32_t element) const;
  // The value of a 4-byte property that the core has set; null if it has not.
  [[nodiscard]] std::optional<std::uint32_t> number(UnitKind kind, std::uint32_t property,
                                                    std::uint32_t scope,
                                                    std::uint32_t element) const;

  // Calls `cycle` every kPeriod_s until the function that it returned is called.
  using Pulse = std::function<std::function<void()>(std::function<void()> cycle)>;
  static constexpr double kPeriod_s = 0.01;
  static constexpr std::uint32_t kCycle_frames = 480;
  // From now on units run by themselves while they are started, in stereo at 48 kHz, on the devices
  // of `hardware`, whose clocks run meanwhile. They refuse what they cannot do.
  void goLive(MemoryAudioHardware& hardware, Pulse pulse);

  // The callbacks that the core has installed. They stay known after the units are gone.
  platform::AURenderCallbackStruct inputCallback{};
  platform::AURenderCallbackStruct renderCallback{};
  // Call them as the unit would, the first with these flags and this bus. Nothing is recorded.
  static constexpr std::uint32_t kInputFlags = 4;
  static constexpr std::uint32_t kInputBus = 1;
  platform::OSStatus driveInput(const platform::AudioTimeStamp& time, std::uint32_t frames,
                                platform::AudioBufferList* list = nullptr) const;
  platform::OSStatus driveOutput(const platform::AudioTimeStamp& time, std::uint32_t frames,
                                 platform::AudioBufferList* list) const;

  // Audio threads. `render` fills the list for the given moment; without it the list is silence.
  std::function<void(const platform::AudioTimeStamp&, std::uint32_t, platform::AudioBufferList&)>
      render;
  platform::OSStatus renderStatus = platform::noErr;
  platform::OSStatus setParameterStatus = platform::noErr;
  std::atomic<std::uint64_t> renderCalls{0};
  // What the last call of AudioUnitRender was given; written by the callback's thread.
  struct RenderCall {
    std::uint32_t flags = 0;
    std::uint32_t busNumber = 0;
    std::uint32_t frames = 0;
    friend bool operator==(const RenderCall&, const RenderCall&) = default;
  };
  RenderCall lastRender;
  std::atomic<std::uint64_t> setParameterCalls{0};
  struct ParameterSetting {
    UnitKind kind;
    std::uint32_t parameter, scope, element;
    float value;
    std::uint32_t offset_frames;
    friend bool operator==(const ParameterSetting&, const ParameterSetting&) = default;
  };
  // The last rate, written by the callback's thread.
  ParameterSetting lastParameter{};

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
  struct Unit {
    using Address = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;
    explicit Unit(UnitKind itsKind) : kind(itsKind) {}
    UnitKind kind;
    bool initialized = false;
    bool running = false;
    std::map<Address, std::vector<std::byte>> properties;

    // While it runs by itself.
    std::function<void()> stopPulse;
    platform::AudioTimeStamp time;
    std::uint32_t renderable_frames = 0;  // within its input callback
    Unit* source = nullptr;               // that it pulls
    double rate = 1;

    // A property that was set; all zero when it was not.
    template <typename T>
    [[nodiscard]] T value(std::uint32_t property, std::uint32_t scope,
                          std::uint32_t element) const {
      T result{};
      const auto found = properties.find({property, scope, element});
      if (found != properties.end() && found->second.size() == sizeof result) {
        std::memcpy(&result, found->second.data(), sizeof result);
      }
      return result;
    }
  };
  struct Graph {
    bool open = false;
    bool initialized = false;
    bool running = false;
    std::vector<std::unique_ptr<Unit>> nodes;
  };
  struct Component;
  using Place = std::tuple<UnitKind, std::uint32_t, std::uint32_t>;  // kind, scope, element

  // Records the call. Returns the status to fail with if it is the call that fails.
  platform::OSStatus begin(std::string call);
  void misuse(std::string what) { misuses.push_back(std::move(what)); }
  Unit* known(platform::AudioUnit unit, const char* caller);
  Graph* known(platform::AUGraph graph, const char* caller);
  [[nodiscard]] std::string nameOf(platform::AudioUnit unit) const;
  [[nodiscard]] const Unit* anyOf(UnitKind kind) const;
  platform::OSStatus graphStep(platform::AUGraph graph, const char* caller,
                               const std::function<void(Graph&)>& step);

  // For units that run by themselves: noErr, or why not.
  [[nodiscard]] platform::OSStatus refusalOf(const Unit& unit, std::uint32_t property,
                                             const void* data, std::uint32_t size_bytes) const;
  [[nodiscard]] platform::OSStatus refusalOf(const Unit& unit, std::uint32_t busNumber,
                                             std::uint32_t frames,
                                             const platform::AudioBufferList& list) const;
  [[nodiscard]] platform::OSStatus refusalOf(const Graph& graph, platform::AUNode source,
                                             std::uint32_t output, platform::AUNode destination,
                                             std::uint32_t input) const;
  [[nodiscard]] platform::AudioDeviceID deviceOf(const Unit& unit) const;
  [[nodiscard]] bool isDevice(platform::AudioDeviceID device) const;
  platform::OSStatus startLive(Unit& unit);
  static void stopLive(Unit& unit);
  platform::OSStatus startLive(Graph& graph);
  void cycleOf(Unit& unit, platform::AudioDeviceID device);
  static void pull(Unit& unit);

  MemoryAudioHardware* hardware_ = nullptr;  // when live
  Pulse pulse_;
  std::vector<std::unique_ptr<Component>> components_;
  std::vector<std::unique_ptr<Unit>> units_;    // created as instances
  std::vector<std::unique_ptr<Graph>> graphs_;  // own their nodes' units
  std::map<Place, platform::AudioStreamBasicDescription> formats_;
  std::uint32_t bufferFrameSize_ = 512;
};

}  // namespace memory_host
