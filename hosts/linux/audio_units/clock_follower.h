// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace linux_host {

// What the graph reports about one of its cycles.
struct GraphCycle {
  std::uint64_t host_ns = 0;  // CLOCK_MONOTONIC, when the cycle began
  std::uint32_t clockId = 0;  // the device that drives the clock
  std::uint64_t duration_frames = 0;
  double rate_Hz = 0;  // nominal rate of those frames
};

// Follows the clock of a running device from cycle to cycle and measures its actual speed.
//
// A second-order delay-locked loop on the times at which cycles begin. It publishes only the
// integral part as the speed. That part changes with the sum of all phase errors. As long as it
// stays within bounds, so does the sum, and a consumer at the published speed stays within a few
// frames of the device forever. (The proportional part would make the speed jump with every late
// cycle.) It uses times, never the graph's frame positions: those stand still, repeat or jump when
// a graph is overloaded or its driver changes.
//
// REAL-TIME, on the stream's thread: allocates nothing, takes no lock, makes no system call.
class ClockFollower {
 public:
  // Call once per cycle. Returns the seconds without any cycle before this one (after an overload
  // or a change of the driver); usually 0, never negative.
  double follow(const GraphCycle& cycle);
  // The device's speed relative to its nominal one, by the host's clock.
  [[nodiscard]] double rateScalar() const { return 1.0 / stretch_; }

 private:
  double resynchronise(double late_ns, double now_ns);

  bool hasStarted_ = false;
  std::uint64_t origin_ns_ = 0;
  std::uint32_t clockId_ = 0;
  double filtered_ns_ = 0;  // when the latest cycle began, smoothed, since the origin
  double nominal_ns_ = 0;   // nominal duration of the latest cycle
  double stretch_ = 1;      // actual duration divided by nominal
  double sinceStart_s_ = 0;
  double ahead_ns_ = 0;  // how much earlier than expected new drivers have begun
};

}  // namespace linux_host
