// SPDX-License-Identifier: MIT
// A day of system audio on clocks that drift apart.

#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "tests/routing/drift_simulation.h"
#include "tests/routing/sanitizer_budget.h"

namespace routing_test {
namespace {

constexpr double kDay_s = 24 * 3600;
constexpr double kHour_s = 3600;

// With a sanitizer a hundredth of the time is simulated.
double simulated(double duration_s) {
  return kSanitized ? duration_s / kSanitizedTimeShare : duration_s;
}

class Drift : public testing::TestWithParam<Scenario> {};

TEST_P(Drift, KeepsFillAndLatencyAndNeverBreaksTheSignal) {
  Scenario scenario = GetParam();
  scenario.duration_s = simulated(scenario.duration_s);
  DriftSimulation simulation(scenario);
  const Findings findings = simulation.run();

  const double throughOffset_frames = 16 + kBuffer_frames + 24 + scenario.output_frames;
  const double pulled_frames = scenario.output_frames * 48000 / scenario.outputRate_hz;
  EXPECT_EQ(findings.wrongBlocks, 0U);
  EXPECT_EQ(findings.discontinuities, 0U);
  EXPECT_GE(findings.leastFill, 0);
  EXPECT_LE(findings.greatestFill, throughOffset_frames + 2 * pulled_frames + kBuffer_frames);
  EXPECT_LT(findings.greatestLatency - findings.leastLatency, kBuffer_frames);
  EXPECT_GE(static_cast<double>(findings.outputBlocks),
            scenario.duration_s * scenario.outputRate_hz / scenario.output_frames * 0.99);
  EXPECT_GT(findings.inputXruns + findings.outputXruns, 0U);

  std::cout << scenario.name << ": " << scenario.duration_s / kHour_s << " h, "
            << findings.outputBlocks << " output blocks, xruns " << findings.inputXruns << " + "
            << findings.outputXruns << ", fill " << findings.leastFill << " to "
            << findings.greatestFill << ", latency " << findings.leastLatency << " to "
            << findings.greatestLatency << " frames, second difference up to "
            << findings.greatestSecondDifference << "\n";
}

INSTANTIATE_TEST_SUITE_P(ADayApart, Drift,
                         testing::Values(Scenario{"Together", 0, 0, 48000, 512, kDay_s},
                                         Scenario{"Plus50ppm", 50, 0, 48000, 512, kDay_s},
                                         Scenario{"Minus50ppm", 0, 50, 48000, 512, kDay_s},
                                         Scenario{"Plus300ppm", 150, -150, 48000, 512, kDay_s},
                                         Scenario{"Minus300ppm", -300, 0, 48000, 512, kDay_s}),
                         [](const auto& drift) { return std::string(drift.param.name); });

INSTANTIATE_TEST_SUITE_P(Asleep, Drift,
                         testing::Values(Scenario{"ForASecond", 300, 0, 48000, 512, kHour_s, 1},
                                         Scenario{"ForANight", -50, 50, 44100, 512, 9 * kHour_s,
                                                  8 * kHour_s}),
                         [](const auto& drift) { return std::string(drift.param.name); });

INSTANTIATE_TEST_SUITE_P(
    UnlikeDevices, Drift,
    testing::Values(Scenario{"OutputAt44100", 300, 0, 44100, 512, kHour_s},
                    Scenario{"OutputAt96000", -300, 0, 96000, 1024, kHour_s},
                    Scenario{"LongOutputPeriod", 50, -20, 48000, 1024, kHour_s},
                    Scenario{"ShortOutputPeriod", -50, 20, 48000, 256, kHour_s}),
    [](const auto& drift) { return std::string(drift.param.name); });

}  // namespace
}  // namespace routing_test
