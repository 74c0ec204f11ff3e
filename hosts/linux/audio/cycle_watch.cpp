// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/cycle_watch.h"

#include <algorithm>

namespace linux_host {
namespace {

constexpr std::uint64_t kSecond_ns = 1'000'000'000;
// A longer gap is implausible: the clock was reset.
constexpr std::uint64_t kMost_s = 24 * 3600;

}  // namespace

std::uint64_t CycleWatch::atStreamRate(std::uint64_t frames) const {
  return last_.rate_Hz == 0 ? 0 : frames * rate_Hz_ / last_.rate_Hz;
}

std::uint64_t CycleWatch::see(const spa_io_clock& clock) {
  if (clock.rate.num == 0 || clock.rate.denom < clock.rate.num || clock.duration == 0) return 0;
  const Cycle now{clock.id, clock.rate.denom / clock.rate.num, clock.position, clock.duration,
                  clock.nsec};
  const bool goesOn = last_.duration != 0 && now.id == last_.id && now.rate_Hz == last_.rate_Hz &&
                      now.position > last_.position && now.nsec >= last_.nsec;
  const std::uint64_t frames = goesOn ? passedOver(now) : 0;
  last_ = now;
  return atStreamRate(frames);
}

std::uint64_t CycleWatch::passedOver(const Cycle& now) const {
  const std::uint64_t advance = now.position - last_.position;
  std::uint64_t frames = advance - std::min(advance, last_.duration);
  // Some drivers advance the position by a cycle's length before the cycle, some after it. When the
  // length changes, accept both.
  const auto [shorter, longer] = std::minmax(last_.duration, now.duration);
  if (frames <= longer - shorter) frames = 0;
  // A driver that skipped cycles may not have counted them.
  const std::uint64_t passed_ns = now.nsec - last_.nsec;
  const std::uint64_t cycle_ns = last_.duration * kSecond_ns / last_.rate_Hz;
  if (frames == 0 && passed_ns > cycle_ns + kStandstill_ns) {
    frames = (passed_ns - cycle_ns) / 1000 * last_.rate_Hz / 1'000'000;
  }
  return frames <= kMost_s * last_.rate_Hz ? frames : 0;
}

}  // namespace linux_host
