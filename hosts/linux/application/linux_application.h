// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/base/run_loop.h"
#include "platform/application.h"

namespace linux_host {

// Shows the program in the desktop: a tray, a dock. Main thread.
class IndicatorObserver {
 public:
  virtual ~IndicatorObserver() = default;
  virtual void activationPolicyDidChange(platform::ActivationPolicy policy) = 0;
  // Null: the application's own icon.
  virtual void applicationIconDidChange(const platform::ImagePtr& icon) = 0;
};

// The application object: calls its delegate on the way from launch to end. Main thread.
class LinuxApplication : public platform::Application {
 public:
  explicit LinuxApplication(MainLoop& loop);

  void setDelegate(std::shared_ptr<platform::ApplicationDelegate> delegate);
  // Tells the observer the current state and then each change. It outlives the application.
  void addIndicatorObserver(IndicatorObserver& observer);
  // Called for activateIgnoringOtherApps(true).
  void setOnActivate(std::function<void()> raiseWindows) { onActivate_ = std::move(raiseWindows); }

  // Alerts, for terminate().
  struct Alerts {
    std::function<bool()> isShowing = [] { return false; };
    std::function<void()> dismiss = [] {};
    // Runs the work when no alert is waiting and the event that showed the last one is over.
    std::function<void(std::function<void()>)> afterwards = [](const auto&) {};
  };
  void setAlerts(Alerts alerts) { alerts_ = std::move(alerts); }

  // Will finish launching, the paths to open, did finish launching.
  void launch(const std::vector<std::string>& pathsToOpen);
  // Runs the main loop until the application has terminated. If it has not been launched yet, it
  // terminates without asking its delegate.
  void run();
  // Ends even if the delegate wants to wait: it is still asked, so that it saves the recording, and
  // told. If an alert is waiting, the application ends once that has been dismissed.
  void terminateRegardless();
  [[nodiscard]] bool hasTerminated() const {
    mainThread_.assertHeld();
    return phase_ == Phase::kTerminated;
  }

  void disableRelaunchOnLogin() override {}
  void setActivationPolicy(platform::ActivationPolicy policy) override;
  void setApplicationIconImage(const platform::ImagePtr& image) override;
  void activateIgnoringOtherApps(bool ignoringOtherApps) override;
  void terminate() override;
  platform::ImagePtr imageNamed(const std::string& name) override;

 private:
  // The allowed changes:
  //   kNotLaunched  the delegate has heard nothing          -> kLaunched, kTerminated
  //   kLaunched     it is launching or has been launched    -> kAsking, kTerminated
  //   kAsking       it is asked whether the program may end -> kLaunched, kTerminated
  //   kTerminated   it has been told the end, if the launch
  enum class Phase { kNotLaunched, kLaunched, kAsking, kTerminated };

  // The only function that changes the phase.
  void enter(Phase next) RA_REQUIRES(mainThread_);
  void end() RA_REQUIRES(mainThread_);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  MainLoop& loop_;
  std::shared_ptr<platform::ApplicationDelegate> delegate_;
  std::vector<IndicatorObserver*> observers_;
  std::function<void()> onActivate_;
  Alerts alerts_;
  platform::ActivationPolicy policy_ = platform::ActivationPolicy::kProhibited;
  platform::ImagePtr icon_;
  Phase phase_ RA_GUARDED_BY(mainThread_) = Phase::kNotLaunched;
};

}  // namespace linux_host
