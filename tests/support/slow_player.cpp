// SPDX-License-Identifier: MIT
#include "tests/support/slow_player.h"

#include <cstdint>
#include <fstream>

namespace test_support {
namespace {

constexpr std::uint32_t kNoiseRate_Hz = 22050;
constexpr std::uint32_t kNoise_frames = 600 * kNoiseRate_Hz;

// A 16-bit WAV file with one channel, for a little-endian machine.
std::string writtenNoise(const std::string& path) {
  std::ofstream file(path);
  const auto put = [&](std::uint32_t value, int bytes) {
    file.write(reinterpret_cast<const char*>(&value), bytes);
  };
  file << "RIFF";
  put(36 + 2 * kNoise_frames, 4);
  file << "WAVEfmt ";
  put(16, 4);
  put(1 + (1U << 16), 4);
  put(kNoiseRate_Hz, 4);
  put(2 * kNoiseRate_Hz, 4);
  put(2 + (16U << 16), 4);
  file << "data";
  put(2 * kNoise_frames, 4);
  for (std::uint32_t i = 0, value = 1; i < kNoise_frames; ++i) {
    value = value * 1664525 + 1013904223;
    put(static_cast<std::uint32_t>(static_cast<std::int32_t>(value) / 131072), 2);
  }
  return path;
}

}  // namespace

SlowPlayer::SlowPlayer(const std::string& directory, PipeWireControl& control,
                       const std::string& microphone)
    : process_({{"pw-cat", "--playback", "--target", "0", "-P", "{ node.name = player }",
                 writtenNoise(directory + "/noise.wav")},
                {},
                directory + "/log"}) {
  control.link("player", microphone);
}

}  // namespace test_support
