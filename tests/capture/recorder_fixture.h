// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "capture/audio_recorder.h"
#include "tests/memory_host/memory_host.h"

namespace capture_test {

inline constexpr platform::AudioDeviceID kMicId = 40;
inline constexpr const char* kMicUID = "mic";
inline constexpr const char* kEncodeQueue = "com.vantrel.korvel.RecordAudio.EncodeQueue";
inline constexpr const char* kDataQueue = "com.vantrel.korvel.RecordAudio.DataOutput";
inline constexpr std::uint64_t kM4a = 0;
inline constexpr std::uint64_t kMp3 = 1;

inline platform::AudioObjectPropertyAddress inputAddress(std::uint32_t selector) {
  return memory_host::sideAddress(selector, true);
}

// `hardware` gets a device that can be recorded from. Its layout has one description per channel.
inline void addInputDevice(memory_host::MemoryAudioHardware& hardware, platform::AudioDeviceID id,
                           const std::string& uid, std::uint32_t channels = 2,
                           double sampleRate_hz = 48000) {
  hardware.addDevice(id, uid);
  hardware.setStreamConfiguration(id, true, {channels});
  hardware.setValue(id, inputAddress(platform::kAudioDevicePropertyActualSampleRate),
                    sampleRate_hz);
  std::vector<std::uint32_t> layout(3 + std::size_t{channels} * 5);  // header and descriptions
  layout[2] = channels;
  hardware.setList(id, inputAddress(platform::kAudioDevicePropertyPreferredChannelLayout), layout);
}

inline std::vector<float> sine(double frequency_hz, double level, std::size_t frames,
                               double sampleRate_hz = 48000) {
  std::vector<float> samples(frames);
  for (std::size_t i = 0; i < frames; ++i) {
    const double phase = 2 * std::numbers::pi * frequency_hz * static_cast<double>(i);
    samples[i] = static_cast<float>(level * std::sin(phase / sampleRate_hz));
  }
  return samples;
}

// A recorder on a machine with one microphone.
class RecorderFixture : public testing::Test {
 protected:
  RecorderFixture() {
    addInputDevice(memory.audioHardware, kMicId, kMicUID);
    mic = memory.capture.connect(kMicUID, "Microphone");
    recorder = record_audio::AudioRecorder::initWithDesktopPath(memory.environment, "/out");
    recorder->setOnRecordSuccessStarted([this] { ++startedCount; });
    recorder->setOnRecordError([this] { ++errorCount; });
  }
  ~RecorderFixture() override {
    recorder.reset();
    memory.runLoop.clear();
  }

  // Starts and lets the session report that it runs.
  void record(std::uint64_t soundFormat, std::uint64_t quality = 0) {
    ASSERT_TRUE(recorder->startRecord(mic, quality, soundFormat));
    session().reportStarted();
  }
  memory_host::MemoryCaptureSession& session() { return *memory.capture.sessions.at(0); }
  memory_host::MemoryAudioFileOutput& fileOutput() { return *memory.capture.fileOutputs.at(0); }
  memory_host::MemoryAudioDataOutput& dataOutput() { return *memory.capture.dataOutputs.at(0); }
  memory_host::MemoryDispatchQueue& encodeQueue() { return *memory.dispatch.queue(kEncodeQueue); }

  // Delivers `samples` on both channels in blocks of at most 1024 frames, and lets the queues run.
  void deliver(const std::vector<float>& samples) {
    for (std::size_t at = 0; at < samples.size(); at += 1024) {
      const auto end = std::min(at + 1024, samples.size());
      const std::vector<float> block(samples.begin() + static_cast<std::ptrdiff_t>(at),
                                     samples.begin() + static_cast<std::ptrdiff_t>(end));
      dataOutput().deliver(memory_host::floatSampleBuffer({block, block}));
      memory.runLoop.settle();
    }
  }

  // How many bytes the journal says were written.
  [[nodiscard]] std::size_t writtenBytes() const {
    std::size_t sum = 0;
    for (const auto& line : memory.fileManager.journal) {
      if (line.starts_with("write ")) sum += std::stoul(line.substr(line.rfind(' ')));
    }
    return sum;
  }

  memory_host::MemoryHost memory;
  std::shared_ptr<memory_host::MemoryCaptureDevice> mic;
  std::shared_ptr<record_audio::AudioRecorder> recorder;
  int startedCount = 0;
  int errorCount = 0;
};

}  // namespace capture_test
