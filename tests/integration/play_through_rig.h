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

// Records the first channel of a sink's monitor, with the time of each block.
class MonitorRecorder : private DeviceStream::Client {
 public:
  // Has room for this many seconds; the rest is dropped.
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
  // The CLOCK_MONOTONIC time of the first louder frame from `from` on; 0: none.
  [[nodiscard]] double timeOfFirstLouder_s(float level, std::size_t from) const;
  [[nodiscard]] double rate_Hz() const { return rate_Hz_; }
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

// The core's play-through, unmodified, on the environment's sound server.
class PlayThroughRig {
 public:
  PlayThroughRig();
  // Plays from the loopback device to that sink; waits until both are known.
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
