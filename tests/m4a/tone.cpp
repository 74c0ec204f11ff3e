// SPDX-License-Identifier: MIT
#include "tests/m4a/tone.h"

#include <cmath>
#include <numbers>

namespace linux_host::test {

M4aFormat m4aFormat(const Format& format) {
  using enum Speaker;
  M4aFormat result{format.sampleRate_hz, {}, format.bitrate_bps};
  switch (format.channels) {
    case 3:
      result.speakers = {kFrontLeft, kFrontRight, kFrontCenter};
      break;
    case 4:
      result.speakers = {kFrontLeft, kFrontRight, kFrontCenter, kBackCenter};
      break;
    case 5:
      result.speakers = {kFrontLeft, kFrontRight, kFrontCenter, kBackLeft, kBackRight};
      break;
    case 6:
    case 8:
      result.speakers = {kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency,
                         kBackLeft,  kBackRight,  kSideLeft,    kSideRight};
      result.speakers.resize(format.channels);
      break;
    default:
      result.speakers.assign(format.channels, kNowhere);
      break;
  }
  return result;
}

const float* const* Tone::next(std::uint32_t frames) {
  constexpr double kAmplitude = 0.25;
  pointers_.clear();
  for (std::uint32_t channel = 0; channel < format_.channels; ++channel) {
    planes_[channel].resize(frames);
    const double step = 2 * std::numbers::pi * frequency_hz(channel) / format_.sampleRate_hz;
    for (std::uint32_t i = 0; i < frames; ++i) {
      planes_[channel][i] = static_cast<float>(
          kAmplitude * std::sin(step * static_cast<double>(position_frames_ + i)));
    }
    pointers_.push_back(planes_[channel].data());
  }
  position_frames_ += frames;
  return pointers_.data();
}

}  // namespace linux_host::test
