// SPDX-License-Identifier: MIT
#include "tests/support/tone_figures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace test_support {

ToneFigures measureTone(const std::vector<float>& samples, double rate_Hz) {
  ToneFigures figures;
  if (samples.size() < 3) return figures;
  double power = 0;
  double firstCrossing = -1;
  double lastCrossing = -1;
  int crossings = 0;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    const double before = samples[i - 1];
    const double now = samples[i];
    power += now * now;
    if (before < 0 && now >= 0) {
      lastCrossing = static_cast<double>(i) - now / (now - before);
      if (crossings++ == 0) firstCrossing = lastCrossing;
    }
    if (i >= 2) {
      const double second = now - 2 * before + samples[i - 2];
      figures.largestSecondDifference = std::max(figures.largestSecondDifference, std::abs(second));
    }
  }
  figures.amplitude = std::sqrt(2 * power / static_cast<double>(samples.size() - 1));
  if (crossings > 1) {
    figures.frequency_Hz = (crossings - 1) * rate_Hz / (lastCrossing - firstCrossing);
  }
  return figures;
}

std::vector<std::size_t> brokenSeconds(const std::vector<float>& samples, double rate_Hz,
                                       double largestSecondDifference) {
  std::vector<std::size_t> seconds;
  for (std::size_t i = 2; i < samples.size(); ++i) {
    const double second = double{samples[i]} - 2 * double{samples[i - 1]} + samples[i - 2];
    if (std::abs(second) <= largestSecondDifference) continue;
    const auto when = static_cast<std::size_t>(static_cast<double>(i) / rate_Hz);
    if (seconds.empty() || seconds.back() != when) seconds.push_back(when);
  }
  return seconds;
}

double secondDifferenceOfSine(double frequency_Hz, double amplitude, double rate_Hz) {
  const double halfStep = std::numbers::pi * frequency_Hz / rate_Hz;
  return 4 * amplitude * std::sin(halfStep) * std::sin(halfStep);
}

std::vector<float> withoutLeadingSilence(const std::vector<float>& samples) {
  std::size_t first = 0;
  while (first < samples.size() && samples[first] == 0.0F) ++first;
  return {samples.begin() + static_cast<std::ptrdiff_t>(first), samples.end()};
}

}  // namespace test_support
