// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace test_support {

// Plays a known signal without end. Each sample depends only on its number, so that a recording
// shows every lost, repeated or changed sample. Link it to a microphone with
// PipeWireControl::link(feed.nodeName(), "microphone"); with the same rate on both sides the
// samples arrive bit for bit.
class SignalFeed {
 public:
  // Called on an audio thread, once for each channel and sample, in order.
  using Signal = float (*)(std::uint64_t frame, std::uint32_t channel);

  SignalFeed(std::string nodeName, std::uint32_t channels, Signal signal);
  ~SignalFeed();
  SignalFeed(const SignalFeed&) = delete;
  SignalFeed& operator=(const SignalFeed&) = delete;

  [[nodiscard]] const std::string& nodeName() const;
  // Frames played since the start.
  [[nodiscard]] std::uint64_t framesPlayed() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Half of full scale, at a rate of 48 kHz.
float tone1000Hz(std::uint64_t frame, std::uint32_t channel);
// 1 kHz on even, 500 Hz on odd channels.
float toneEachChannel(std::uint64_t frame, std::uint32_t channel);
// The frame's number, which repeats from 1 to 2^23, as a fraction of 2^23: exact in a float and
// never zero, so that every frame identifies itself.
float frameNumber(std::uint64_t frame, std::uint32_t channel);
// The frame number in such a sample.
std::uint64_t frameNumberOf(float sample);

}  // namespace test_support
