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

namespace linux_host {

// Brings what others ask of the program to its delegate. Requests that come before the launch is
// complete wait for it, except paths to open, which are part of it. Main thread.
class RequestRouter : public Requests {
 public:
  // What ends a start by the bus that nobody follows up.
  static constexpr double kFirstRequestWait_s = 10.0;

  RequestRouter(LinuxApplication& application, MainLoop& loop, DispatchThreads& dispatch);
  ~RequestRouter() override;
  RequestRouter(const RequestRouter&) = delete;
  RequestRouter& operator=(const RequestRouter&) = delete;

  // Before any request is handled. `preferencesPath` is what opens the preferences.
  void attach(std::shared_ptr<platform::ApplicationDelegate> delegate,
              std::shared_ptr<platform::RemoteControl> remote, std::string preferencesPath);
  // Answers whether windows are visible, and whether an alert waits for its answer.
  void setWindows(std::function<bool()> areVisible, std::function<bool()> isAlertShowing,
                  std::function<void()> raise);

  // Tells the user that a click on "Stop" or "Cancel" in a launcher found nothing to end.
  void setOnNothingRecorded(std::function<void()> tell) { onNothingRecorded_ = std::move(tell); }
  // Gets the desktop's leave to bring a window forward, ahead of the request it came with.
  void setOnActivationToken(std::function<void(const std::string& token)> use) {
    onActivationToken_ = std::move(use);
  }

  // Launches the application at once.
  void launch(const std::vector<std::string>& pathsToOpen);
  // Launches it with the first request, which a start by the bus brings along: Activate is the
  // launch itself, Open comes before its end. Quit, or no request at all, ends the program without
  // one; so do stop and cancel, when the user has been told that nothing is recorded.
  void launchOnFirstRequest();
  // Lets go of the delegate and answers those who still wait; after the writers have ended.
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
  enum class Phase { kBefore, kAwaitingFirst, kLaunching, kRunning, kOver };
  struct Ending;

  // Runs `request` now or, before the launch is complete, after it.
  void whenRunning(std::function<void()> request);
  void endUnlaunched();
  void end(bool saving, const std::function<void(RequestResult)>& done);
  void awaitEnd(const std::shared_ptr<Ending>& ending);
  void complete(const std::shared_ptr<Ending>& ending);
  void showPreferences();
  [[nodiscard]] bool isBusy() const;

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
  // Whether the request that follows comes from a click in the desktop, not from a script.
  bool isClick_ = false;
  Phase phase_ = Phase::kBefore;
  platform::TimerPtr firstRequestTimer_;
  std::vector<std::function<void()>> waiting_;
  std::vector<std::shared_ptr<Ending>> endings_;
};

}  // namespace linux_host
