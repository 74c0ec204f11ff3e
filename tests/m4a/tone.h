// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host::test {

struct Format {
  std::uint32_t sampleRate_hz = 48000;
  std::uint32_t channels = 2;
  std::uint32_t bitrate_bps = 160000;
};

// With the usual positions for that number of channels; none for seven or more than eight.
[[nodiscard]] M4aFormat m4aFormat(const Format& format);

// Channel c has a sine of frequency_hz(c), amplitude 0.25, from frame 0 on.
class Tone {
 public:
  explicit Tone(const Format& format) : format_(format), planes_(format.channels) {}

  // The fourth of six and of eight channels is for low frequencies only.
  static double frequency_hz(std::uint32_t channel) {
    return channel == 3 ? 100.0 : 400.0 + 150.0 * channel;
  }

  // The next `frames` of every channel; valid until the next call.
  const float* const* next(std::uint32_t frames);

 private:
  const Format format_;
  std::uint64_t position_frames_ = 0;
  std::vector<std::vector<float>> planes_;
  std::vector<const float*> pointers_;
};

}  // namespace linux_host::test
