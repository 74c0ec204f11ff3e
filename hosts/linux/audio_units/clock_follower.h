// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace linux_host {

// What the graph says of one of its cycles.
struct GraphCycle {
  std::uint64_t host_ns = 0;  // CLOCK_MONOTONIC, when the cycle began
  std::uint32_t clockId = 0;  // which device gives the time
  std::uint64_t duration_frames = 0;
  double rate_Hz = 0;  // of those frames, nominal
};

// Follows the clock of a running device from cycle to cycle and says how fast it really runs.
//
// A second-order delay-locked loop on the times at which cycles begin. What it publishes as the
// speed is the integral part alone. That part changes by the sum of all phase errors, so as long as
// it stays within bounds, so does that sum: whoever consumes at the published speed stays within a
// few frames of the device for ever, however long it runs. (The part that answers to each single
// error would make the speed jump with every late cycle.) Times are used, never the graph's frame
// positions: those stand still, repeat or jump when a graph is overloaded or its driver changes.
//
// REAL-TIME, on the stream's thread: allocates nothing, takes no lock, makes no system call.
class ClockFollower {
 public:
  // To be called once a cycle. Returns the seconds that have passed without any cycle before this
  // one (an overload, or a change of the driver); 0 as a rule, never negative.
  double follow(const GraphCycle& cycle);
  // The device's speed against its nominal one, by the host's clock.
  [[nodiscard]] double rateScalar() const { return 1.0 / stretch_; }

 private:
  double resynchronise(double late_ns, double now_ns);

  bool hasStarted_ = false;
  std::uint64_t origin_ns_ = 0;
  std::uint32_t clockId_ = 0;
  double filtered_ns_ = 0;  // when the latest cycle began, smoothed, since the origin
  double nominal_ns_ = 0;   // how long the latest cycle lasts by the nominal rate
  double stretch_ = 1;      // actual over nominal duration
  double sinceStart_s_ = 0;
  double ahead_ns_ = 0;  // how much earlier than expected new drivers have begun
};

}  // namespace linux_host
