// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio_units/clock_follower.h"
#include "hosts/linux/audio_units/device_stream.h"
#include "hosts/linux/audio_units/start_line.h"
#include "hosts/linux/audio_units/stream_format.h"
#include "hosts/linux/audio_units/unit.h"
#include "platform/thread_role.h"

namespace linux_host {

inline constexpr std::uint32_t kDeviceOutputElement = 0;
inline constexpr std::uint32_t kDeviceInputElement = 1;

// A device unit between its start and its stop: the client of its stream. Each cycle it publishes
// the device's clock. Created before the stream and destroyed after it; everything else happens on
// the stream's thread, which debug builds assert. If the device goes away, the callbacks end and
// nothing else happens.
class DeviceRun : public DeviceStream::Client {
 public:
  struct Setup {
    // Both outlive the run.
    DeviceClockTable& clocks;
    StartLine& startLine;
    platform::AudioDeviceID device;
    // The client's.
    double rate_Hz;
    std::uint32_t channels;
    std::uint32_t buffer_frames;  // the longest block for a callback
  };

  DeviceRun(const DeviceRun&) = delete;
  DeviceRun& operator=(const DeviceRun&) = delete;

  // REAL-TIME (all calls below): allocates nothing, takes no lock, makes no system call.
  void process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) final;
  // Within the input callback: renders the callback's block, or the beginning of it.
  virtual platform::OSStatus render(std::uint32_t frames, platform::AudioBufferList& list);

 protected:
  explicit DeviceRun(const Setup& setup);

  virtual void handle(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) = 0;

  [[nodiscard]] StartLine& startLine() const { return startLine_; }
  [[nodiscard]] double rate_Hz() const { return rate_Hz_; }
  [[nodiscard]] std::uint32_t buffer_frames() const { return buffer_frames_; }
  // Of the block that begins in `ahead_frames`.
  [[nodiscard]] platform::AudioTimeStamp timeStamp(const GraphCycle& cycle,
                                                   std::uint32_t ahead_frames) const;
  void advance(double frames) { sampleTime_frames_ += frames; }

 private:
  void followClock(const GraphCycle& cycle) RA_REQUIRES(streamThread_);

  platform::ThreadRole streamThread_;
  StartLine& startLine_;
  const double rate_Hz_;
  const std::uint32_t buffer_frames_;
  ClockFollower follower_;
  DeviceClockTable::Publisher publisher_;
  std::uint64_t lastCycle_ns_ RA_GUARDED_BY(streamThread_) = 0;
  double sampleTime_frames_ = 0;
};

// Records. The input callback is called when the cycle's block is ready to be rendered, in parts if
// the cycle is longer than the buffer. Sample times count frames. Lost frames leave a gap, so that
// the time keeps to the device's clock; it never goes back.
class InputRun : public DeviceRun {
 public:
  // `isMonitor`: records what is played on a sink.
  InputRun(const Setup& setup, bool isMonitor, platform::AURenderCallbackStruct callback);
  ~InputRun() override;
  InputRun(const InputRun&) = delete;
  InputRun& operator=(const InputRun&) = delete;

  platform::OSStatus render(std::uint32_t frames, platform::AudioBufferList& list) override;

 private:
  void handle(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) override;
  [[nodiscard]] std::uint64_t playedAt_ns(const GraphCycle& cycle) const;

  const bool isMonitor_;
  const platform::AURenderCallbackStruct callback_;
  PlaneList rendered_;  // what render() hands out
  std::uint32_t renderable_frames_ = 0;
};

// Plays. Pulls the connected unit, or the render callback, for each cycle. Sample times count the
// device's frames from the moment at which the first block of the running inputs was played; before
// that it plays silence.
class OutputRun : public DeviceRun {
 public:
  // Pulls `source`, which outlives the run, or `callback` if `source` is null.
  OutputRun(const Setup& setup, Unit* source, platform::AURenderCallbackStruct callback);

 private:
  void handle(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) override;
  bool hasBegun(const GraphCycle& cycle);
  void pull(const GraphCycle& cycle, float* const* planes, std::uint32_t frames);

  Unit* const source_;
  const platform::AURenderCallbackStruct callback_;
  PlaneList list_;
  double lead_frames_ = 0;
  bool begun_ = false;
};

}  // namespace linux_host
