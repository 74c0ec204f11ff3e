// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch.h"
#include "platform/foundation.h"
#include "platform/host_clock.h"

// The in-memory host's time: a clock that moves only when told to, a run loop on that clock, and
// dispatch queues that run only when told to. Single-threaded.

namespace memory_host {

class MemoryClock : public platform::HostClock, public platform::WallClock {
 public:
  [[nodiscard]] std::uint64_t absoluteTime() const override { return now_ns; }
  [[nodiscard]] platform::TimebaseInfo timebaseInfo() const override {
    ++timebaseRequests;
    return timebase;
  }
  [[nodiscard]] platform::Date now() const override {
    return platform::Date(
        std::chrono::nanoseconds(wallStart_ns + static_cast<std::int64_t>(now_ns)));
  }

  std::uint64_t now_ns = 0;
  // The clock itself always counts nanoseconds.
  platform::TimebaseInfo timebase{1, 1};
  mutable int timebaseRequests = 0;
  std::int64_t wallStart_ns = 1'715'954'607'000'000'000;  // 2024-05-17 14:03:27 UTC
};

class MemoryDispatchQueue : public platform::DispatchQueue {
 public:
  explicit MemoryDispatchQueue(std::string label) : label_(std::move(label)) {}
  void async(std::function<void()> work) override {
    if (work) items.push_back(std::move(work));
  }
  [[nodiscard]] const std::string& label() const override { return label_; }

  // Runs what is queued, and what is queued meanwhile. Returns whether anything ran.
  bool runAll();

  std::deque<std::function<void()>> items;
  bool stalled = false;  // settle() skips a stalled queue

 private:
  std::string label_;
};

class MemoryDispatch : public platform::Dispatch {
 public:
  std::shared_ptr<platform::DispatchQueue> mainQueue() override { return main; }
  std::shared_ptr<platform::DispatchQueue> createSerialQueue(const std::string& label) override;

  // The newest queue with that label, or null.
  [[nodiscard]] std::shared_ptr<MemoryDispatchQueue> queue(const std::string& label) const;

  std::shared_ptr<MemoryDispatchQueue> main = std::make_shared<MemoryDispatchQueue>("main");
  std::vector<std::shared_ptr<MemoryDispatchQueue>> serialQueues;
  bool hasThreads = true;  // false: there is none for another queue
};

class MemoryRunLoop : public platform::RunLoop {
 public:
  MemoryRunLoop(MemoryClock& clock, MemoryDispatch& dispatch)
      : clock_(clock), dispatch_(dispatch) {}
  ~MemoryRunLoop() override;

  platform::TimerPtr scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                    platform::TimerAction action) override;
  void performAfterDelay(double delay_s, std::function<void()> action) override;

  // Between the two calls no timer fires, as while an alert is open. Calls nest.
  void hold() { ++holds_; }
  void release() { --holds_; }

  // Runs everything that is due now: dispatch queues (unless stalled) and timers.
  void settle();
  // Moves the clock forward and fires every timer at its own time on the way.
  void advance(double seconds);
  [[nodiscard]] std::size_t timerCount() const;
  [[nodiscard]] std::size_t repeatingTimerCount() const;
  // The interval of every scheduled timer, the earliest due first.
  [[nodiscard]] std::vector<double> scheduledIntervals_s() const;
  // Releases every timer and queued item, as the end of the process does.
  void clear();

 private:
  class MemoryTimer;

  bool runQueues();
  bool fireOneDueBefore(std::uint64_t limit_ns);

  MemoryClock& clock_;
  MemoryDispatch& dispatch_;
  std::uint64_t nextOrder_ = 0;
  int holds_ = 0;
  // By due time, then by order of scheduling.
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::shared_ptr<MemoryTimer>> timers_;
};

}  // namespace memory_host
