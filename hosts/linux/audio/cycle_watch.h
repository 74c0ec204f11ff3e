// SPDX-License-Identifier: MIT
#pragma once

#include <spa/node/io.h>

#include <cstdint>

namespace linux_host {

// Measures by the graph's clock how much sound a stream has missed: cycles that ran without it
// because its process was not scheduled in time, and cycles that its device skipped.
//
// All REAL-TIME, on the stream's data thread: allocates nothing, takes no lock, makes no system
// call.
class CycleWatch {
 public:
  // A device whose clock stands still for less than this may just be late: it buffers the sound and
  // delivers it afterwards.
  static constexpr std::uint64_t kStandstill_ns = 1'000'000'000;

  // `rate_Hz` is the stream's.
  explicit CycleWatch(std::uint32_t rate_Hz) : rate_Hz_(rate_Hz) {}

  // Returns the frames, at the stream's rate, that were skipped since the previous cycle. Starts
  // over if the clock belongs to another device, was set back or makes no sense.
  [[nodiscard]] std::uint64_t see(const spa_io_clock& clock);
  // The length of the last cycle in frames, at the stream's rate.
  [[nodiscard]] std::uint64_t cycle_frames() const { return atStreamRate(last_.duration); }

 private:
  struct Cycle {
    std::uint32_t id = 0;
    std::uint32_t rate_Hz = 0;
    std::uint64_t position = 0;
    std::uint64_t duration = 0;
    std::uint64_t nsec = 0;
  };
  [[nodiscard]] std::uint64_t passedOver(const Cycle& now) const;
  [[nodiscard]] std::uint64_t atStreamRate(std::uint64_t frames) const;

  const std::uint32_t rate_Hz_;
  Cycle last_;
};

}  // namespace linux_host
