// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio_units/device_stream.h"
#include "hosts/linux/audio_units/pipewire_audio_units.h"
#include "routing/audio_play_through.h"
#include "tests/memory_host/memory_host.h"

namespace linux_host {

// What is heard on a sink: records its first channel from the sink's monitor, with the time of each
// block.
class MonitorRecorder : private DeviceStream::Client {
 public:
  // Room for that many seconds; what comes after is not kept.
  MonitorRecorder(const std::string& sinkName, double rate_Hz, std::uint32_t channels,
                  double room_s = 60);
  ~MonitorRecorder() override;

  struct Block {
    std::uint64_t host_ns;
    std::size_t firstFrame;
  };
  [[nodiscard]] std::size_t frames() const { return frames_.load(std::memory_order_acquire); }
  [[nodiscard]] std::vector<float> samples(std::uint32_t channel, std::size_t from,
                                           std::size_t to) const;
  [[nodiscard]] std::vector<Block> blocks() const;
  // CLOCK_MONOTONIC at which the first frame from `from` on passed that is louder; 0: none.
  [[nodiscard]] double timeOfFirstLouder_s(float level, std::size_t from) const;
  [[nodiscard]] double rate_Hz() const { return rate_Hz_; }
  // Why the stream ended, if it has.
  [[nodiscard]] bool hasEnded() const { return hasEnded_.load(); }

 private:
  void process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) override;

  const double rate_Hz_;
  const std::uint32_t channels_;
  const std::size_t room_frames_;
  std::vector<std::vector<float>> planes_;
  std::vector<Block> blocks_;
  std::atomic<std::size_t> blockCount_{0};
  std::atomic<std::size_t> frames_{0};
  std::atomic<bool> hasEnded_{false};
  std::unique_ptr<DeviceStream> stream_;
};

// The play-through of the core on this machine's sound server: nothing of it is replaced.
class PlayThroughRig {
 public:
  PlayThroughRig();
  // From the loopback device to that sink; waits until both are known.
  platform::OSStatus start(const std::string& sinkName);
  void stop() { playThrough.reset(); }

  PipeWireConnection connection;
  DeviceClockTable clocks;
  PipeWireAudioHardware hardware{connection, clocks};
  PipeWireAudioUnits units{connection, hardware, clocks};
  memory_host::MemoryHost rest;  // the ports that a play-through does not use
  platform::Host host;
  std::unique_ptr<record_audio::AudioPlayThrough> playThrough;
};

}  // namespace linux_host
