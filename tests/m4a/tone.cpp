#include "tests/m4a/tone.h"

#include <cmath>
#include <numbers>

namespace linux_host::test {

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
