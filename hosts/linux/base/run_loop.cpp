// SPDX-License-Identifier: MIT
#include "hosts/linux/base/run_loop.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "hosts/linux/base/glib_owners.h"

namespace linux_host {
namespace {

class LoopTimer;

}  // namespace

struct CoreRunLoop::Gate {
  int holds = 0;
  std::vector<std::weak_ptr<LoopTimer>> due;
};

namespace {

constexpr double kMicrosecondsPerSecond = 1e6;
// Nothing waits longer than this; keeps the sums below from overflowing.
constexpr double kLongestDelay_s = 1e9;
// For g_source_set_ready_time().
constexpr gint64 kNever_us = -1;

gint64 microseconds(double seconds) {
  if (!(seconds > 0)) return 0;
  return static_cast<gint64>(
      std::ceil(std::min(seconds, kLongestDelay_s) * kMicrosecondsPerSecond));
}

class LoopTimer : public platform::Timer, public std::enable_shared_from_this<LoopTimer> {
 public:
  // With a gate, does not fire while the gate is held.
  LoopTimer(double interval_s, std::any userInfo, bool repeats, platform::TimerAction action,
            std::shared_ptr<CoreRunLoop::Gate> gate = nullptr)
      // A repeating timer with a zero interval would starve the loop.
      : interval_us_(std::max<gint64>(microseconds(interval_s), repeats ? 1 : 0)),
        next_us_(g_get_monotonic_time() + interval_us_),
        repeats_(repeats),
        userInfo_(std::move(userInfo)),
        action_(std::move(action)),
        gate_(std::move(gate)) {}

  ~LoopTimer() override { LoopTimer::invalidate(); }
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  void schedule() {
    static GSourceFuncs functions = {nullptr, nullptr, &LoopTimer::dispatch,
                                     nullptr, nullptr, nullptr};
    source_.reset(g_source_new(&functions, sizeof(Source)));
    reinterpret_cast<Source*>(source_.get())->timer = this;
    // The loop owns the timer until it is invalidated.
    self_ = shared_from_this();
    g_source_set_ready_time(source_.get(), next_us_);
    g_source_attach(source_.get(), nullptr);
  }

  // Fires in the loop's next iteration.
  void fireNow() {
    if (source_ != nullptr) g_source_set_ready_time(source_.get(), 0);
  }

  void invalidate() override {
    mainThread_.assertHeld();
    if (source_ == nullptr) return;
    source_.reset();
    // The action may own the last reference to this timer, and its destruction may call
    // invalidate().
    const auto self = std::move(self_);
    const auto action = std::move(action_);
    action_ = nullptr;
  }

  [[nodiscard]] bool isValid() const override { return source_ != nullptr; }
  [[nodiscard]] const std::any& userInfo() const override { return userInfo_; }

 private:
  struct Source {
    GSource base;
    LoopTimer* timer;
  };

  static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
    const auto timer = reinterpret_cast<Source*>(source)->timer->shared_from_this();
    timer->fire();
    return timer->isValid() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  }

  // GLib does not dispatch a source recursively, so a loop that the action runs does not fire this
  // timer again.
  void fire() {
    if (gate_ != nullptr && gate_->holds > 0) {
      gate_->due.push_back(weak_from_this());
      g_source_set_ready_time(source_.get(), kNever_us);
      return;
    }
    const platform::TimerAction action = action_;
    action(shared_from_this());
    if (!isValid()) return;
    if (!repeats_) {
      invalidate();
      return;
    }
    const gint64 late_us = g_get_monotonic_time() - next_us_;
    next_us_ += (std::max<gint64>(late_us, 0) / interval_us_ + 1) * interval_us_;
    g_source_set_ready_time(source_.get(), next_us_);
  }

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const gint64 interval_us_;
  gint64 next_us_;
  const bool repeats_;
  const std::any userInfo_;
  platform::TimerAction action_;
  const std::shared_ptr<CoreRunLoop::Gate> gate_;
  SourcePtr source_;
  std::shared_ptr<LoopTimer> self_;
};

}  // namespace

namespace {

void iterateDefaultContext() {
  g_main_context_iteration(nullptr, TRUE);
}

}  // namespace

MainLoop::MainLoop() : step_(iterateDefaultContext) {}

platform::TimerPtr MainLoop::scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                            platform::TimerAction action) {
  mainThread_.assertHeld();
  auto timer =
      std::make_shared<LoopTimer>(interval_s, std::move(userInfo), repeats, std::move(action));
  timer->schedule();
  return timer;
}

void MainLoop::performAfterDelay(double delay_s, std::function<void()> action) {
  scheduledTimer(delay_s, {}, false,
                 [action = std::move(action)](const platform::TimerPtr&) { action(); });
}

CoreRunLoop::CoreRunLoop() : gate_(std::make_shared<Gate>()) {}

CoreRunLoop::~CoreRunLoop() = default;

platform::TimerPtr CoreRunLoop::scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                               platform::TimerAction action) {
  mainThread_.assertHeld();
  auto timer = std::make_shared<LoopTimer>(interval_s, std::move(userInfo), repeats,
                                           std::move(action), gate_);
  timer->schedule();
  return timer;
}

void CoreRunLoop::performAfterDelay(double delay_s, std::function<void()> action) {
  scheduledTimer(delay_s, {}, false,
                 [action = std::move(action)](const platform::TimerPtr&) { action(); });
}

void CoreRunLoop::hold() {
  mainThread_.assertHeld();
  ++gate_->holds;
}

void CoreRunLoop::release() {
  mainThread_.assertHeld();
  if (--gate_->holds > 0) return;
  for (const auto& due : std::exchange(gate_->due, {})) {
    if (const auto timer = due.lock()) timer->fireNow();
  }
}

void MainLoop::run() {
  mainThread_.assertHeld();
  while (!quit_) {
    // A copy, because it may be replaced while it runs.
    const std::function<void()> step = step_;
    step();
  }
}

void MainLoop::runBy(std::function<void()> step, std::function<void()> endInnerLoops) {
  mainThread_.assertHeld();
  step_ = step ? std::move(step) : iterateDefaultContext;
  endInnerLoops_ = std::move(endInnerLoops);
}

void MainLoop::quit() {
  mainThread_.assertHeld();
  quit_ = true;
  if (endInnerLoops_) endInnerLoops_();
}

}  // namespace linux_host
