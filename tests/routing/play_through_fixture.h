// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "routing/audio_play_through.h"
#include "shared/loopback_device.h"
#include "tests/memory_host/memory_host.h"

namespace routing_test {

inline constexpr platform::AudioDeviceID kLoopback = 71;
inline constexpr platform::AudioDeviceID kSpeakers = 34;
inline constexpr std::uint32_t kBuffer_frames = 512;

inline platform::AudioTimeStamp at(double sampleTime_frames) {
  platform::AudioTimeStamp time;
  time.mSampleTime = sampleTime_frames;
  return time;
}

// A machine with a loopback device and speakers, and a play-through between the two.
class PlayThroughMachine {
 public:
  PlayThroughMachine() {
    memory_host::MemoryAudioHardware& hardware = host.audioHardware;
    hardware.addDevice(kSpeakers, "speakers");
    hardware.addDevice(kLoopback, record_audio::kLoopbackDeviceUID);
    hardware.setDeviceTiming(kLoopback, true, 16, kBuffer_frames);
    hardware.setDeviceTiming(kSpeakers, false, 24, 256);
    setNominalRate(kLoopback, 48000);
    setNominalRate(kSpeakers, 44100);
    setClock(kLoopback, 1.0);
    setClock(kSpeakers, 1.0);
    setChannels(2, 2);
    host.audioUnits.setBufferFrameSize(kBuffer_frames);
  }

  void setNominalRate(platform::AudioDeviceID device, double rate_hz) {
    host.audioHardware.setValue(
        device, memory_host::globalAddress(platform::kAudioDevicePropertyNominalSampleRate),
        rate_hz);
  }
  void setClock(platform::AudioDeviceID device, double rateScalar) {
    platform::AudioTimeStamp now;
    now.mRateScalar = rateScalar;
    host.audioHardware.setCurrentTime(device, now);
  }
  void setChannels(std::uint32_t loopback, std::uint32_t real) {
    host.audioUnits.setFormat(memory_host::UnitKind::kInput, platform::kAudioUnitScope_Input, 1,
                              platform::planarFloat(48000, loopback));
    host.audioUnits.setFormat(memory_host::UnitKind::kOutput, platform::kAudioUnitScope_Output, 0,
                              platform::planarFloat(44100, real));
  }

  // Ready for its callbacks.
  void startPlaying() {
    ASSERT_TRUE(playThrough->initDevices(kSpeakers));
    ASSERT_EQ(playThrough->start(), platform::noErr);
  }

  memory_host::MemoryHost host;
  std::unique_ptr<record_audio::AudioPlayThrough> playThrough =
      std::make_unique<record_audio::AudioPlayThrough>(host.host);
};

}  // namespace routing_test
