// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "shared/loopback_device.h"
#include "tests/memory_host/memory_host.h"

namespace routing_test {

// A machine with speakers as its default output and the loopback driver loaded, its device hidden.
class RoutingMachine {
 public:
  static constexpr platform::AudioDeviceID kSpeakersID = 34;
  static constexpr platform::AudioDeviceID kLoopbackID = 71;
  static constexpr platform::AudioObjectID kControlID = 712;
  static constexpr std::uint32_t kShow = 0xFACE;
  static constexpr std::uint32_t kHide = 0xB00B;

  RoutingMachine() {
    host.audioHardware.addDevice(kSpeakersID, "speakers");
    host.audioHardware.setDefaultOutput(kSpeakersID);
    loadDriver("1.0.3");
  }

  void loadDriver(const std::string& manufacturer) {
    memory_host::MemoryAudioHardware& hardware = host.audioHardware;
    hardware.removeObject(kLoopbackID);
    hardware.addDevice(kLoopbackID, record_audio::kLoopbackDeviceUID, true);
    hardware.setString(
        kLoopbackID,
        memory_host::globalAddress(platform::kAudioDevicePropertyDeviceManufacturerCFString),
        manufacturer);
    hardware.setList<platform::AudioObjectID>(
        kLoopbackID, memory_host::globalAddress(platform::kAudioObjectPropertyControlList),
        {kControlID, kControlID + 1});
    hardware.setValue(kControlID, controlValue(), std::uint32_t{0});
  }
  void unloadDriver() {
    host.audioHardware.removeObject(kLoopbackID);
    host.audioHardware.removeObject(kControlID);
  }

  static constexpr platform::AudioObjectPropertyAddress controlValue() {
    return memory_host::globalAddress(platform::kAudioBooleanControlPropertyValue);
  }
  // What was last written to the driver's control.
  std::uint32_t control() const {
    return host.audioHardware.value<std::uint32_t>(kControlID, controlValue());
  }

  memory_host::MemoryHost host;
};

}  // namespace routing_test
