// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/application/linux_application.h"
#include "hosts/linux/base/dispatch.h"
#include "hosts/linux/base/run_loop.h"
#include "hosts/linux/bus/requests.h"
#include "platform/remote_control.h"
#include "platform/thread_role.h"

namespace linux_host {

// Passes requests from other processes to the delegate. Requests that come before the launch is
// complete wait for it, except paths to open, which are part of the launch. Main thread.
class RequestRouter : public Requests {
 public:
  // After this time a program that the bus has started ends if no request comes.
  static constexpr double kFirstRequestWait_s = 10.0;

  RequestRouter(LinuxApplication& application, MainLoop& loop, DispatchThreads& dispatch);
  ~RequestRouter() override;
  RequestRouter(const RequestRouter&) = delete;
  RequestRouter& operator=(const RequestRouter&) = delete;

  // Call before any request is handled. `preferencesPath` is the path that opens the preferences.
  void attach(std::shared_ptr<platform::ApplicationDelegate> delegate,
              std::shared_ptr<platform::RemoteControl> remote, std::string preferencesPath);
  // Functions that say whether windows are visible, and whether an alert waits for its answer.
  void setWindows(std::function<bool()> areVisible, std::function<bool()> isAlertShowing,
                  std::function<void()> raise);

  // `tell` tells the user that "Stop" or "Cancel" in a launcher found nothing to end.
  void setOnNothingRecorded(std::function<void()> tell) { onNothingRecorded_ = std::move(tell); }
  // Gets the desktop's permission to bring a window forward, before the request that it came with.
  void setOnActivationToken(std::function<void(const std::string& token)> use) {
    onActivationToken_ = std::move(use);
  }

  // Launches the application at once.
  void launch(const std::vector<std::string>& pathsToOpen);
  // Launches the application with the first request, which follows a start by the bus: Activate is
  // the launch itself, Open comes before its end. Quit, or no request at all, ends the program
  // without a launch. So do stop and cancel, after the user has been told that nothing is being
  // recorded.
  void launchOnFirstRequest();
  // Releases the delegate and answers callers that still wait. Call after the writers have ended.
  void finish();

  void useActivationToken(const std::string& token) override {
    isClick_ = true;
    onActivationToken_(token);
  }
  void activate() override;
  void open(const std::vector<std::string>& paths) override;
  void action(const std::string& name, std::function<void(RequestResult)> done) override;
  void status(std::function<void(const std::string& line)> done) override;

 private:
  // The allowed changes:
  //   kBefore         the program has not been launched           -> kAwaitingFirst, kLaunching,
  //                                                                  kOver
  //   kAwaitingFirst  the request that started it is to follow    -> kLaunching, kOver
  //   kLaunching      requests wait, except while an alert shows  -> kRunning, kOver
  //   kRunning        they are carried out                        -> kOver
  //   kOver           they are dropped
  enum class Phase { kBefore, kAwaitingFirst, kLaunching, kRunning, kOver };
  struct Ending;

  // The only function that changes the phase.
  void enter(Phase next) RA_REQUIRES(mainThread_);

  // Runs `request` now or, before the launch is complete, after it.
  void whenRunning(std::function<void()> request);
  void endUnlaunched();
  void end(bool saving, const std::function<void(RequestResult)>& done);
  void awaitEnd(const std::shared_ptr<Ending>& ending);
  void complete(const std::shared_ptr<Ending>& ending);
  void showPreferences();
  [[nodiscard]] bool isBusy() const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  LinuxApplication& application_;
  MainLoop& loop_;
  DispatchThreads& dispatch_;
  std::shared_ptr<platform::ApplicationDelegate> delegate_;
  std::shared_ptr<platform::RemoteControl> remote_;
  std::string preferencesPath_;
  std::function<bool()> areWindowsVisible_ = [] { return false; };
  std::function<bool()> isAlertShowing_ = [] { return false; };
  std::function<void()> raiseWindows_ = [] {};
  std::function<void(const std::string& token)> onActivationToken_ = [](const std::string&) {};
  std::function<void()> onNothingRecorded_ = [] {};
  // Whether the next request comes from a click in the desktop, not from a script.
  bool isClick_ = false;
  Phase phase_ RA_GUARDED_BY(mainThread_) = Phase::kBefore;
  platform::TimerPtr firstRequestTimer_;
  std::vector<std::function<void()>> waiting_;
  std::vector<std::shared_ptr<Ending>> endings_;
};

}  // namespace linux_host
