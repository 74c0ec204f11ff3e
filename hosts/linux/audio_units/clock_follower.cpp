// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/clock_follower.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace linux_host {
namespace {

constexpr double kNsPerSecond = 1e9;

// Wide at first, to find the speed within seconds. Narrow later, to suppress jitter: a cycle that
// begins 50 us late changes the speed by about 0.1 ppm.
constexpr double kFirstBandwidth_Hz = 1.0;
constexpr double kLastBandwidth_Hz = 0.05;
// No clock is that far off; a loop that finds so has had bad input.
constexpr double kLargestDeviation = 0.01;
// A cycle that begins within this distance of its expected time is on time.
constexpr double kOnTime_ns = 1e6;

}  // namespace

double ClockFollower::follow(const GraphCycle& cycle) {
  const double duration_ns =
      static_cast<double>(cycle.duration_frames) * kNsPerSecond / cycle.rate_Hz;
  if (!hasStarted_) {
    hasStarted_ = true;
    origin_ns_ = cycle.host_ns;
    clockId_ = cycle.clockId;
    nominal_ns_ = duration_ns;
    return 0;
  }
  const auto now_ns = static_cast<double>(static_cast<std::int64_t>(cycle.host_ns - origin_ns_));
  const double passed_ns = std::exchange(nominal_ns_, duration_ns);
  const double expected_ns = filtered_ns_ + passed_ns * stretch_;
  const double late_ns = now_ns - expected_ns;
  const bool isOtherClock = std::exchange(clockId_, cycle.clockId) != cycle.clockId;
  // When the length of cycles changes, PipeWire 1.4 cuts the last old cycle short; 0.3 does not.
  // The short cycle says nothing about the device's speed.
  const bool isBrokenOff = passed_ns != duration_ns && std::abs(late_ns) > kOnTime_ns;
  if (isOtherClock || isBrokenOff || std::abs(late_ns) > std::max(passed_ns, duration_ns) / 2) {
    return resynchronise(late_ns, now_ns);
  }

  const double passed_s = passed_ns / kNsPerSecond;
  const double bandwidth_Hz =
      std::max(kLastBandwidth_Hz, kFirstBandwidth_Hz / (1.0 + sinceStart_s_));
  const double omega = std::min(2 * std::numbers::pi * bandwidth_Hz * passed_s, 0.5);
  filtered_ns_ = expected_ns + std::numbers::sqrt2 * omega * late_ns;
  stretch_ = std::clamp(stretch_ + omega * omega * late_ns / passed_ns, 1 - kLargestDeviation,
                        1 + kLargestDeviation);
  sinceStart_s_ += passed_s;
  return 0;
}

// Takes the new time as it is. Time never goes backward, so a cycle that comes early is offset
// against later ones that come late.
double ClockFollower::resynchronise(double late_ns, double now_ns) {
  filtered_ns_ = now_ns;
  ahead_ns_ -= late_ns;
  if (ahead_ns_ >= 0) return 0;
  return -std::exchange(ahead_ns_, 0.0) / kNsPerSecond;
}

}  // namespace linux_host
