#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio_units/clock_follower.h"
#include "hosts/linux/audio_units/device_stream.h"
#include "hosts/linux/audio_units/start_line.h"
#include "hosts/linux/audio_units/stream_format.h"
#include "hosts/linux/audio_units/unit.h"

namespace linux_host {

// What units need of the machine. All outlive the units.
struct UnitEnvironment {
  PipeWireConnection& connection;
  PipeWireAudioHardware& hardware;
  DeviceClockTable& clocks;
  StartLine& startLine;
};

// A unit that records from one device or plays on one; which of the two, its enabled side says:
// element 1 is what comes in, element 0 what goes out. Each cycle it publishes the device's clock.
//
// Recording: the input callback is called with the block of the cycle ready to be rendered, in
// parts if the cycle is longer than the buffer size that the unit tells. Sample times count frames;
// frames that were lost leave a gap, so that the time keeps to the device's clock, and it never
// goes back.
//
// Playing: pulls the connected unit, or the render callback, for each cycle. Sample times count the
// device's frames from the moment at which the first block of the running inputs was played; before
// it, and where nothing is connected, the unit plays silence. A device that goes away ends the
// callbacks and nothing else.
class DeviceUnit : public Unit, public DeviceStream::Client {
 public:
  // `isDefaultOutput`: plays on the default output device unless told otherwise; else (the general
  // unit) a device has to be set. Both play, until the sides are switched.
  DeviceUnit(UnitEnvironment environment, bool isDefaultOutput);
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
  // on its thread: the block it is called for, or the beginning of it.
  platform::OSStatus render(std::uint32_t* ioActionFlags, const platform::AudioTimeStamp& timeStamp,
                            std::uint32_t busNumber, std::uint32_t frameCount,
                            platform::AudioBufferList& list) override;
  // REAL-TIME, as above. For the stream, on its thread.
  void process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) override;

 private:
  struct Device;

  [[nodiscard]] std::optional<Device> device();
  [[nodiscard]] platform::OSStatus setFlag(bool& flag, const void* data, std::uint32_t size_bytes);
  platform::OSStatus setDevice(const void* data, std::uint32_t size_bytes);
  platform::OSStatus setClientFormat(const void* data, std::uint32_t size_bytes);
  Value formatProperty(const UnitPropertyAddress& address);
  [[nodiscard]] platform::AudioStreamBasicDescription clientFormat(const Device& device) const;
  [[nodiscard]] bool isRecording() const { return inputEnabled_; }

  // REAL-TIME (all below).
  void followClock(const GraphCycle& cycle);
  void record(const GraphCycle& cycle, float* const* planes, std::uint32_t frames);
  [[nodiscard]] std::uint64_t playedAt_ns(const GraphCycle& cycle) const;
  void play(const GraphCycle& cycle, float* const* planes, std::uint32_t frames);
  bool hasBegun(const GraphCycle& cycle);
  void pullSource(const GraphCycle& cycle, float* const* planes, std::uint32_t frames);
  [[nodiscard]] platform::AudioTimeStamp timeStamp(const GraphCycle& cycle) const;

  const UnitEnvironment environment_;
  const bool isDefaultOutput_;
  bool inputEnabled_ = false;
  bool outputEnabled_ = true;
  bool startsAtZero_ = true;
  std::optional<platform::AudioDeviceID> deviceId_;
  std::optional<platform::AudioStreamBasicDescription> clientFormat_;
  platform::AURenderCallbackStruct inputCallback_{};
  platform::AURenderCallbackStruct renderCallback_{};
  Unit* source_ = nullptr;

  // The stream's thread's while it runs.
  bool isMonitor_ = false;
  double rate_Hz_ = 0;
  std::uint32_t cycle_frames_ = 0;
  ClockFollower follower_;
  DeviceClockTable::Publisher publisher_;
  std::uint64_t lastCycle_ns_ = 0;
  double sampleTime_frames_ = 0;
  double lead_frames_ = 0;
  bool begun_ = false;
  PlaneList list_;
  PlaneList rendered_;  // what render() hands out
  std::uint32_t renderable_frames_ = 0;

  std::unique_ptr<DeviceStream> stream_;  // last: its end is the end of all callbacks
};

}  // namespace linux_host
