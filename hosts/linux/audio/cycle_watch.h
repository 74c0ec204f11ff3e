// SPDX-License-Identifier: MIT
#pragma once

#include <spa/node/io.h>

#include <cstdint>

namespace linux_host {

// Tells from the graph's clock how much sound a stream was not given: cycles that ran without it,
// because its process did not get to run in time, and cycles that its device left out.
//
// All REAL-TIME, on the stream's data thread: allocates nothing, takes no lock, makes no system
// call.
class CycleWatch {
 public:
  // A device whose clock stands still for less than this may only have been late: it holds the
  // sound back and hands it over afterwards.
  static constexpr std::uint64_t kStandstill_ns = 1'000'000'000;

  // `rate_Hz` is the stream's.
  explicit CycleWatch(std::uint32_t rate_Hz) : rate_Hz_(rate_Hz) {}

  // The frames, at the stream's rate, that were passed over since the cycle before. A clock of
  // another device, one that was set back and one that makes no sense begin anew.
  [[nodiscard]] std::uint64_t see(const spa_io_clock& clock);
  // The frames, at the stream's rate, of the cycle seen last.
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
