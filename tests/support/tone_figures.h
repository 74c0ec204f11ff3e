// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

namespace test_support {

// The properties of a recording of one tone.
struct ToneFigures {
  double frequency_Hz = 0;
  double amplitude = 0;  // of the sine with the same power
  // The largest bend between three samples: a lost or repeated sample shows as a spike.
  double largestSecondDifference = 0;
};
ToneFigures measureTone(const std::vector<float>& samples, double rate_Hz);

// The seconds of a recording with a bend larger than this.
std::vector<std::size_t> brokenSeconds(const std::vector<float>& samples, double rate_Hz,
                                       double largestSecondDifference);

// The largest bend in a sine with that frequency and amplitude.
double secondDifferenceOfSine(double frequency_Hz, double amplitude, double rate_Hz);

// The samples from the first non-zero one on.
std::vector<float> withoutLeadingSilence(const std::vector<float>& samples);

}  // namespace test_support
