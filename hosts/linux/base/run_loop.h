#pragma once

#include <glib.h>

#include <functional>

#include "hosts/linux/base/main_thread.h"
#include "platform/foundation.h"

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

  // For a toolkit: `step` waits for the next events of the default main context and handles them,
  // empty means GLib alone; `endInnerLoops` is called by quit(), so that run() gets its turn.
  void runBy(std::function<void()> step, std::function<void()> endInnerLoops);
  // Runs until quit(); returns at once if quit() came before.
  void run();
  // Takes effect after the step under way; also from inside a loop that an alert runs, which ends.
  void quit();
  [[nodiscard]] bool hasQuit() const { return quit_; }

 private:
  MainThreadOnly mainThread_;
  std::function<void()> step_;
  std::function<void()> endInnerLoops_;
  bool quit_ = false;
};

}  // namespace linux_host
