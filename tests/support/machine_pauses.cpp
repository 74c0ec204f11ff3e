// SPDX-License-Identifier: MIT
#include "tests/support/machine_pauses.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>

namespace test_support {
namespace {

constexpr std::chrono::milliseconds kPeriod{1};
// Half a cycle of 1024 frames at 48 kHz. A processor that is only busy lets the thread in
// within a fraction of a millisecond.
constexpr std::chrono::milliseconds kPause{10};

void becomeMostUrgent(unsigned processor) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(processor, &only);
  pthread_setaffinity_np(pthread_self(), sizeof only, &only);
  sched_param parameters{};
  parameters.sched_priority = sched_get_priority_max(SCHED_FIFO);
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
}

}  // namespace

MachinePauses::MachinePauses() {
  for (unsigned processor = 0; processor < std::thread::hardware_concurrency(); ++processor) {
    threads_.emplace_back([this, processor](const std::stop_token& end) { watch(end, processor); });
  }
}

bool MachinePauses::anyBetween(Clock::time_point from, Clock::time_point to) const {
  const std::lock_guard lock(mutex_);
  return std::any_of(pauses_.begin(), pauses_.end(),
                     [&](const Pause& pause) { return pause.to >= from && pause.from <= to; });
}

void MachinePauses::watch(const std::stop_token& end, unsigned processor) {
  becomeMostUrgent(processor);
  using Steady = std::chrono::steady_clock;
  auto last = Steady::now();
  while (!end.stop_requested()) {
    std::this_thread::sleep_for(kPeriod);
    const auto now = Steady::now();
    const auto away = now - last;
    last = now;
    if (away < kPeriod + kPause) continue;
    const auto wallClock = Clock::now();
    const std::lock_guard lock(mutex_);
    pauses_.push_back({wallClock - std::chrono::duration_cast<Clock::duration>(away), wallClock});
  }
}

}  // namespace test_support
