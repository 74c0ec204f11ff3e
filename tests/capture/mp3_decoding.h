// SPDX-License-Identifier: MIT
#pragma once

#include <lame/lame.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "tests/support/amplitude_at.h"

namespace capture_test {

struct DecodedMp3 {
  int sampleRate_hz = 0;
  int channels = 0;
  int bitrate = 0;  // kbit/s
  std::vector<double> left;
  std::vector<double> right;  // as long as `left`, empty when mono
};

inline DecodedMp3 decodeMp3(std::string stream) {
  DecodedMp3 decoded;
  const std::unique_ptr<hip_global_flags, int (*)(hip_t)> decoder(hip_decode_init(),
                                                                  hip_decode_exit);
  std::array<short, 1152> left{};
  std::array<short, 1152> right{};
  mp3data_struct header{};
  const auto take = [&](int frames) {
    if (header.header_parsed != 0) {
      decoded.sampleRate_hz = header.samplerate;
      decoded.channels = header.stereo;
      decoded.bitrate = header.bitrate;
    }
    for (int i = 0; i < frames; ++i) {
      decoded.left.push_back(left[static_cast<std::size_t>(i)] / 32768.0);
      if (header.stereo == 2) decoded.right.push_back(right[static_cast<std::size_t>(i)] / 32768.0);
    }
    return frames > 0;
  };
  auto* bytes = reinterpret_cast<unsigned char*>(stream.data());
  const auto decode = [&](std::size_t at, std::size_t count) {
    return take(
        hip_decode1_headers(decoder.get(), bytes + at, count, left.data(), right.data(), &header));
  };
  constexpr std::size_t kStep_bytes = 512;
  for (std::size_t at = 0; at < stream.size(); at += kStep_bytes) {
    bool more = decode(at, std::min(kStep_bytes, stream.size() - at));
    while (more) more = decode(0, 0);
  }
  return decoded;
}

// The middle of a channel, which no encoder delay and no fade reaches.
inline std::vector<double> middle(const std::vector<double>& samples) {
  const auto quarter = static_cast<std::ptrdiff_t>(samples.size() / 4);
  return {samples.begin() + quarter, samples.end() - quarter};
}

inline double rms(const std::vector<double>& samples) {
  double sum = 0;
  for (const double sample : samples) sum += sample * sample;
  return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(samples.size(), 1)));
}

// The share of the RMS at one frequency, 0 to 1.
inline double shareAt(const std::vector<double>& samples, double frequency_hz,
                      double sampleRate_hz) {
  return test_support::amplitudeAt(samples, frequency_hz, sampleRate_hz) / std::numbers::sqrt2 /
         rms(samples);
}

}  // namespace capture_test
