// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <functional>
#include <memory>

#include "platform/foundation.h"
#include "platform/thread_role.h"

namespace linux_host {

// The main loop: GLib's default main context, which Qt joins when the windows module is loaded.
// Main thread only.
class MainLoop : public platform::RunLoop {
 public:
  MainLoop();
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  platform::TimerPtr scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                    platform::TimerAction action) override;
  void performAfterDelay(double delay_s, std::function<void()> action) override;

  // For a toolkit: `step` waits for the next events of the default main context and handles them;
  // empty: GLib does. quit() calls `endInnerLoops` so that run() can return.
  void runBy(std::function<void()> step, std::function<void()> endInnerLoops);
  // Runs until quit(); returns at once if quit() was called before.
  void run();
  // Takes effect after the current step. Also works from within a loop that an alert runs; that
  // loop ends.
  void quit();

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::function<void()> step_;
  std::function<void()> endInnerLoops_;
  bool quit_ = false;
};

// The main loop as the core sees it: while an alert waits for the user, none of its timers fires. A
// timer that becomes due meanwhile fires when the last alert is gone; a repeating one keeps its
// rhythm. The host itself, including a recording, uses the main loop directly and goes on. Main
// thread only.
class CoreRunLoop : public platform::RunLoop {
 public:
  CoreRunLoop();
  ~CoreRunLoop() override;
  CoreRunLoop(const CoreRunLoop&) = delete;
  CoreRunLoop& operator=(const CoreRunLoop&) = delete;

  platform::TimerPtr scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                    platform::TimerAction action) override;
  void performAfterDelay(double delay_s, std::function<void()> action) override;

  // An alert begins to wait, or is gone. Each hold() has its release().
  void hold();
  void release();

  // The timers that are due but held, and the number of holds.
  struct Gate;

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::shared_ptr<Gate> gate_;
};

}  // namespace linux_host
