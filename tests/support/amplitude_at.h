// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace test_support {

// The amplitude of the sine of `frequency_hz` in the samples: their Fourier transform at that
// frequency.
template <typename Samples>
double amplitudeAt(const Samples& samples, double frequency_hz, double sampleRate_hz) {
  double cosine = 0;
  double sine = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double phase =
        2 * std::numbers::pi * frequency_hz * static_cast<double>(i) / sampleRate_hz;
    cosine += samples[i] * std::cos(phase);
    sine += samples[i] * std::sin(phase);
  }
  return 2 * std::hypot(cosine, sine) /
         static_cast<double>(std::max<std::size_t>(samples.size(), 1));
}

}  // namespace test_support
