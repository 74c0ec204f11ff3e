// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "hosts/linux/audio/audio_object_ids.h"
#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio/property_value.h"
#include "platform/audio_hardware.h"

namespace linux_host {

// The audio devices of the computer as PipeWire knows them.
//
// A device is a node; its UID is the node's name, and the same name is the same object id for the
// life of the process. The input scope of a sink has no channels and no volume, with one exception:
// the loopback device records what is played to it, so its channels are its input's too (but not
// its volume, which does not touch what is recorded). That device resolves by its UID also while
// its driver keeps it hidden, and then has its UID, its manufacturer and its control only.
//
// A device runs at the rate, and reads as the layout, that capture streams on it deliver.
class PipeWireAudioHardware : public platform::AudioHardware {
 public:
  // The connection and the clocks outlive this object.
  PipeWireAudioHardware(PipeWireConnection& connection, const DeviceClockTable& clocks)
      : connection_(connection), clocks_(clocks) {}

  bool AudioObjectHasProperty(platform::AudioObjectID object,
                              const platform::AudioObjectPropertyAddress& address) override;
  platform::OSStatus AudioObjectGetPropertyDataSize(
      platform::AudioObjectID object, const platform::AudioObjectPropertyAddress& address,
      std::uint32_t qualifierSize_bytes, const void* qualifier,
      std::uint32_t* outSize_bytes) override;
  platform::OSStatus AudioObjectGetPropertyData(platform::AudioObjectID object,
                                                const platform::AudioObjectPropertyAddress& address,
                                                std::uint32_t qualifierSize_bytes,
                                                const void* qualifier, std::uint32_t* ioSize_bytes,
                                                void* outData) override;
  // Can be set: the loopback device's control, and what AudioHardwareSetProperty() sets.
  platform::OSStatus AudioObjectSetPropertyData(platform::AudioObjectID object,
                                                const platform::AudioObjectPropertyAddress& address,
                                                std::uint32_t qualifierSize_bytes,
                                                const void* qualifier, std::uint32_t size_bytes,
                                                const void* data) override;
  platform::OSStatus AudioDeviceGetProperty(platform::AudioDeviceID device, std::uint32_t channel,
                                            bool isInput, std::uint32_t selector,
                                            std::uint32_t* ioSize_bytes, void* outData) override;
  // Can be set: the default output device. Returns before the session manager has followed.
  platform::OSStatus AudioHardwareSetProperty(std::uint32_t selector, std::uint32_t size_bytes,
                                              const void* data) override;
  // Host ticks are nanoseconds of CLOCK_MONOTONIC.
  platform::OSStatus AudioDeviceGetCurrentTime(platform::AudioDeviceID device,
                                               platform::AudioTimeStamp* outTime) override;

  // Who knows the rate, Hz, at which a device with that UID is being recorded, or 0 when it is not.
  // While it is, that is its actual rate, whatever rate the graph has gone over to since: a stream
  // keeps its own. Called on the thread that asks for the property, which must be the main one.
  using RunningRate = std::function<std::uint32_t(const std::string& uid)>;
  void setRunningRate(RunningRate runningRate_Hz) { runningRate_Hz_ = std::move(runningRate_Hz); }

  // The object id of a node, for the streams that publish its clock.
  platform::AudioDeviceID deviceId(const std::string& nodeName) { return ids_.idOf(nodeName); }
  // The node's name; null when the id is no device's.
  [[nodiscard]] std::optional<std::string> nodeName(platform::AudioDeviceID device) const;

 private:
  using Result = std::variant<platform::OSStatus, PropertyValue>;

  Result valueOf(platform::AudioObjectID object,
                 const platform::AudioObjectPropertyAddress& address,
                 std::uint32_t qualifierSize_bytes, const void* qualifier);
  Result systemValue(const AudioGraph& graph, std::uint32_t selector,
                     std::uint32_t qualifierSize_bytes, const void* qualifier);
  Result deviceWithUID(const AudioGraph& graph, std::uint32_t qualifierSize_bytes,
                       const void* qualifier);
  Result hiddenLoopbackValue(const AudioGraph& graph, std::uint32_t selector);
  Result deviceValue(const AudioGraph& graph, const AudioNode& node,
                     const platform::AudioObjectPropertyAddress& address);
  [[nodiscard]] double actualRate_Hz(const AudioGraph& graph, const AudioNode& node) const;
  Result volumeOrMute(const AudioGraph& graph, const AudioNode& node,
                      const platform::AudioObjectPropertyAddress& address);
  Result controlList(const AudioGraph& graph);
  platform::OSStatus requestLoopback(std::uint32_t value);

  PipeWireConnection& connection_;
  const DeviceClockTable& clocks_;
  AudioObjectIds ids_;
  RunningRate runningRate_Hz_;
};

}  // namespace linux_host
