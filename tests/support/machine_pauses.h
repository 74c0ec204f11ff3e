// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace test_support {

// Watches for moments in which a processor stood still: a virtual machine whose host was busy, or a
// kernel that was. They cost even the most urgent thread a cycle, so a test in real time tells them
// from faults of the program. A machine that keeps up has none.
//
// One thread for each processor, with a higher priority than threads that carry sound have. Where
// priorities are not allowed, sound has none either, and every long wait for a processor counts.
class MachinePauses {
 public:
  using Clock = std::chrono::system_clock;

  MachinePauses();

  // Whether a processor stood still between the two times. Any thread.
  [[nodiscard]] bool anyBetween(Clock::time_point from, Clock::time_point to) const;

 private:
  struct Pause {
    Clock::time_point from;
    Clock::time_point to;
  };

  void watch(const std::stop_token& end, unsigned processor);

  mutable std::mutex mutex_;
  std::vector<Pause> pauses_;  // guarded by mutex_
  std::vector<std::jthread> threads_;
};

}  // namespace test_support
