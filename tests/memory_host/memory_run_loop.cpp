// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_run_loop.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace memory_host {
namespace {

std::uint64_t nanoseconds(double seconds) {
  return static_cast<std::uint64_t>(std::llround(seconds * 1e9));
}

}  // namespace

bool MemoryDispatchQueue::runAll() {
  bool ran = false;
  while (!items.empty()) {
    auto work = std::move(items.front());
    items.pop_front();
    work();
    ran = true;
  }
  return ran;
}

std::shared_ptr<platform::DispatchQueue> MemoryDispatch::createSerialQueue(
    const std::string& label) {
  if (!hasThreads) return nullptr;
  serialQueues.push_back(std::make_shared<MemoryDispatchQueue>(label));
  return serialQueues.back();
}

std::shared_ptr<MemoryDispatchQueue> MemoryDispatch::queue(const std::string& label) const {
  for (auto it = serialQueues.rbegin(); it != serialQueues.rend(); ++it) {
    if ((*it)->label() == label) return *it;
  }
  return nullptr;
}

class MemoryRunLoop::MemoryTimer : public platform::Timer {
 public:
  MemoryTimer(double seconds, std::any userInfo, bool again, platform::TimerAction onFire)
      : interval_s(seconds),
        repeats(again),
        action(std::move(onFire)),
        userInfo_(std::move(userInfo)) {}

  void invalidate() override {
    valid_ = false;
    // Not released while the action may be running. What the action holds may invalidate this very
    // timer when it is released.
    if (!firing) const auto released = std::exchange(action, nullptr);
  }
  [[nodiscard]] bool isValid() const override { return valid_; }
  [[nodiscard]] const std::any& userInfo() const override { return userInfo_; }

  double interval_s;
  bool repeats;
  bool firing = false;
  platform::TimerAction action;

 private:
  std::any userInfo_;
  bool valid_ = true;
};

MemoryRunLoop::~MemoryRunLoop() = default;

platform::TimerPtr MemoryRunLoop::scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                                 platform::TimerAction action) {
  auto timer =
      std::make_shared<MemoryTimer>(interval_s, std::move(userInfo), repeats, std::move(action));
  timers_.emplace(std::pair{clock_.now_ns + nanoseconds(interval_s), nextOrder_++}, timer);
  return timer;
}

void MemoryRunLoop::performAfterDelay(double delay_s, std::function<void()> action) {
  scheduledTimer(delay_s, {}, false,
                 [action = std::move(action)](const platform::TimerPtr&) { action(); });
}

bool MemoryRunLoop::runQueues() {
  bool ran = dispatch_.main->runAll();
  // By index, because an item may create a queue.
  for (std::size_t i = 0; i < dispatch_.serialQueues.size(); ++i) {
    const auto queue = dispatch_.serialQueues[i];
    if (!queue->stalled) ran = queue->runAll() || ran;
  }
  return ran;
}

bool MemoryRunLoop::fireOneDueBefore(std::uint64_t limit_ns) {
  if (holds_ > 0) return false;
  while (!timers_.empty() && !timers_.begin()->second->isValid()) timers_.erase(timers_.begin());
  if (timers_.empty() || timers_.begin()->first.first > limit_ns) return false;

  const auto node = timers_.extract(timers_.begin());
  const std::uint64_t due_ns = node.key().first;
  const auto timer = node.mapped();
  if (due_ns > clock_.now_ns) clock_.now_ns = due_ns;

  timer->firing = true;
  timer->action(timer);
  timer->firing = false;
  if (timer->repeats && timer->isValid()) {
    // What was missed is skipped: the next one comes at its own multiple.
    const std::uint64_t interval_ns = std::max<std::uint64_t>(nanoseconds(timer->interval_s), 1);
    const std::uint64_t multiples = (clock_.now_ns - due_ns) / interval_ns + 1;
    timers_.emplace(std::pair{due_ns + multiples * interval_ns, nextOrder_++}, timer);
  } else {
    timer->invalidate();
  }
  return true;
}

void MemoryRunLoop::settle() {
  while (runQueues() || fireOneDueBefore(clock_.now_ns)) {
  }
}

void MemoryRunLoop::advance(double seconds) {
  const std::uint64_t end_ns = clock_.now_ns + nanoseconds(seconds);
  while (runQueues() || fireOneDueBefore(end_ns)) {
  }
  clock_.now_ns = end_ns;
}

void MemoryRunLoop::clear() {
  const auto timers = std::exchange(timers_, {});
  for (const auto& [due, timer] : timers) timer->invalidate();
  dispatch_.main->items.clear();
  for (const auto& queue : dispatch_.serialQueues) queue->items.clear();
}

std::size_t MemoryRunLoop::timerCount() const {
  return scheduledIntervals_s().size();
}

std::size_t MemoryRunLoop::repeatingTimerCount() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      timers_, [](const auto& entry) { return entry.second->isValid() && entry.second->repeats; }));
}

std::vector<double> MemoryRunLoop::scheduledIntervals_s() const {
  std::vector<double> intervals;
  for (const auto& [due, timer] : timers_) {
    if (timer->isValid()) intervals.push_back(timer->interval_s);
  }
  return intervals;
}

}  // namespace memory_host
