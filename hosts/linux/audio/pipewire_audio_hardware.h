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
// A device is a node. Its UID is the node's name, and the same name has the same object id for the
// life of the process. The input scope of a sink has no channels and no volume, with one exception:
// the loopback device records what is played to it, so its input has its channels (but not its
// volume, which does not affect the recording). That device can be found by its UID even while its
// driver hides it; it then has only its UID, its manufacturer and its control.
//
// A device's rate and layout are those that capture streams on it deliver.
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
  // Settable: the loopback device's control, and the properties of AudioHardwareSetProperty().
  platform::OSStatus AudioObjectSetPropertyData(platform::AudioObjectID object,
                                                const platform::AudioObjectPropertyAddress& address,
                                                std::uint32_t qualifierSize_bytes,
                                                const void* qualifier, std::uint32_t size_bytes,
                                                const void* data) override;
  platform::OSStatus AudioDeviceGetProperty(platform::AudioDeviceID device, std::uint32_t channel,
                                            bool isInput, std::uint32_t selector,
                                            std::uint32_t* ioSize_bytes, void* outData) override;
  // Settable: the default output device. Returns before the session manager has applied it.
  platform::OSStatus AudioHardwareSetProperty(std::uint32_t selector, std::uint32_t size_bytes,
                                              const void* data) override;
  // Host ticks are nanoseconds of CLOCK_MONOTONIC.
  platform::OSStatus AudioDeviceGetCurrentTime(platform::AudioDeviceID device,
                                               platform::AudioTimeStamp* outTime) override;

  // Returns the rate, Hz, at which the device with that UID is being recorded, or 0 when it is not.
  // While it is recorded, this is its actual rate, even if the graph has changed its rate since: a
  // stream keeps its own. Called on the thread that reads the property, which must be the main
  // thread.
  using RunningRate = std::function<std::uint32_t(const std::string& uid)>;
  void setRunningRate(RunningRate runningRate_Hz) { runningRate_Hz_ = std::move(runningRate_Hz); }

  // The object id of a node, for the streams that publish its clock.
  platform::AudioDeviceID deviceId(const std::string& nodeName) { return ids_.idOf(nodeName); }
  // The node's name; null when the id does not belong to a device.
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
