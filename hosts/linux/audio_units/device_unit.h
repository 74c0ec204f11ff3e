// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio_units/device_run.h"
#include "hosts/linux/audio_units/device_stream.h"
#include "hosts/linux/audio_units/start_line.h"
#include "hosts/linux/audio_units/unit.h"

namespace linux_host {

// What units need from the host. All outlive the units.
struct UnitEnvironment {
  PipeWireConnection& connection;
  PipeWireAudioHardware& hardware;
  DeviceClockTable& clocks;
  StartLine& startLine;
};

// A unit that records from a device or plays on one, depending on the enabled side: element 1 is
// the input, element 0 the output. InputRun and OutputRun do the work while it runs.
class DeviceUnit : public Unit {
 public:
  enum class Kind {
    kGeneral,        // needs a device to be set; plays unless the sides are switched
    kDefaultOutput,  // plays, on the default output device unless told otherwise
  };

  DeviceUnit(UnitEnvironment environment, Kind kind);
  ~DeviceUnit() override;

  platform::OSStatus initialize() override;
  platform::OSStatus uninitialize() override;
  platform::OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                                 std::uint32_t size_bytes) override;
  Value property(const UnitPropertyAddress& address) override;
  // Returns at once; callbacks come when the device runs.
  platform::OSStatus start() override;
  // Returns when no callback runs and none will. Idempotent.
  platform::OSStatus stop() override;
  platform::OSStatus connect(Unit* source) override;

  // REAL-TIME: allocates nothing, takes no lock, makes no system call. Within the input callback,
  // on its thread: renders the callback's block, or the beginning of it.
  platform::OSStatus render(std::uint32_t* ioActionFlags, const platform::AudioTimeStamp& timeStamp,
                            std::uint32_t busNumber, std::uint32_t frameCount,
                            platform::AudioBufferList& list) override;

  // The stream's client; null while the unit does not run.
  [[nodiscard]] DeviceRun* run() const { return run_.get(); }

 private:
  struct Device;

  [[nodiscard]] std::optional<Device> device();
  [[nodiscard]] static platform::OSStatus setFlag(bool& flag, const void* data,
                                                  std::uint32_t size_bytes);
  platform::OSStatus setDevice(const void* data, std::uint32_t size_bytes);
  platform::OSStatus setClientFormat(const void* data, std::uint32_t size_bytes);
  [[nodiscard]] platform::AudioStreamBasicDescription clientFormat(const Device& device) const;
  // Null when both sides are on, or neither: a stream has one direction.
  [[nodiscard]] std::optional<DeviceStream::Direction> direction() const;
  [[nodiscard]] DeviceStreamTarget target(
      const Device& device, DeviceStream::Direction direction,
      const platform::AudioStreamBasicDescription& format) const;

  const UnitEnvironment environment_;
  const Kind kind_;
  // The two sides, which are set one at a time.
  bool inputEnabled_ = false;
  bool outputEnabled_ = true;
  bool startsAtZero_ = true;
  std::optional<platform::AudioDeviceID> deviceId_;
  std::optional<platform::AudioStreamBasicDescription> clientFormat_;
  platform::AURenderCallbackStruct inputCallback_{};
  platform::AURenderCallbackStruct renderCallback_{};
  Unit* source_ = nullptr;

  std::unique_ptr<DeviceRun> run_;
  std::unique_ptr<DeviceStream> stream_;  // last, so destroyed first, which ends all callbacks
};

}  // namespace linux_host
