// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/base/main_thread.h"
#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Alerts, windows, the pointer and the colours, from the module that holds them. The module is
// loaded when the first of them is needed and the environment names a screen; without a screen or
// the module, alerts go to the log and there are no windows. Main thread.
class WindowsLoader : public platform::Alerts,
                      public platform::InterfaceLoader,
                      public platform::Cursor,
                      public platform::SystemColors {
 public:
  // `folders` are searched for the module in their order. `services` outlives the loader, and all
  // windows must be gone before it.
  WindowsLoader(WindowsServices& services, std::vector<std::string> folders);
  ~WindowsLoader() override;
  WindowsLoader(const WindowsLoader&) = delete;
  WindowsLoader& operator=(const WindowsLoader&) = delete;

  // `onWaiting` is called when an alert begins to wait, and when it is gone.
  void setOnAlert(std::function<void(bool waits)> onAlert) { onAlert_ = std::move(onAlert); }

  int runModal(const platform::Alert& alert) override;
  std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner) override;
  void setPointingHand() override;
  [[nodiscard]] std::optional<platform::Color> linkColor() const override;

  // An alert waits for its answer: what else comes should not start a second one.
  [[nodiscard]] bool isAlertShowing() const { return alerts_ > 0; }
  // As if the user had answered each with its last button.
  void dismissAlerts();
  [[nodiscard]] bool hasVisibleWindows() const;
  // Brings the alert that waits, or else the windows that are visible, before those of other
  // programs.
  void raiseWindows();
  // Whether an alert or a window was to be shown and could not, since the last forgetUnseen().
  [[nodiscard]] bool wentUnseen() const { return wentUnseen_; }
  void forgetUnseen() { wentUnseen_ = false; }
  // From now on nothing of the module is used: no window is visible, no alert waits, and none is
  // shown any more.
  void loseScreen();
  [[nodiscard]] bool isModuleLoaded() const { return module_ != nullptr; }

 private:
  // Null without a screen or a usable module; tries again then at the next call.
  WindowsModule* module();
  std::unique_ptr<WindowsModule> load(std::string* error);

  MainThreadOnly mainThread_;
  WindowsServices& services_;
  const std::vector<std::string> folders_;
  std::unique_ptr<WindowsModule> module_;
  std::vector<std::weak_ptr<platform::Window>> windows_;
  int alerts_ = 0;
  bool isScreenLost_ = false;
  bool wentUnseen_ = false;
  std::function<void(bool waits)> onAlert_ = [](bool) {};
};

// Whether the environment names a screen that windows could be shown on.
bool isScreenNamed();

// What an alert says in the log.
std::string alertText(const platform::Alert& alert);

}  // namespace linux_host
