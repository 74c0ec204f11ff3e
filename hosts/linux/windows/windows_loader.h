// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "platform/thread_role.h"

namespace linux_host {

// Provides alerts, windows, the pointer and the colours from a windows module. The module that
// suits the desktop (module_choice.h) is loaded when one of them is first needed, if the
// environment names a screen. Without a screen or the module, alerts go to the log and there are no
// windows. Main thread.
class WindowsLoader : public platform::Alerts,
                      public platform::InterfaceLoader,
                      public platform::Cursor,
                      public platform::SystemColors {
 public:
  // Searches `folders` for a module in order. `services` outlives the loader; all windows must be
  // gone before the loader.
  WindowsLoader(WindowsServices& services, std::vector<std::string> folders);
  ~WindowsLoader() override;
  WindowsLoader(const WindowsLoader&) = delete;
  WindowsLoader& operator=(const WindowsLoader&) = delete;

  // Called when an alert begins to wait for the user, and when it is gone.
  void setOnAlert(std::function<void(bool waits)> onAlert) { onAlert_ = std::move(onAlert); }

  int runModal(const platform::Alert& alert) override;
  std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner) override;
  void setPointingHand() override;
  [[nodiscard]] std::optional<platform::Color> linkColor() const override;

  // Whether an alert waits for its answer. Other events should not start a second one then.
  [[nodiscard]] bool isAlertShowing() const { return alerts_ > 0; }
  // Acts as if the user had answered each alert with its last button.
  void dismissAlerts();
  [[nodiscard]] bool hasVisibleWindows() const;
  // Brings the waiting alert, or else the visible windows, in front of other programs' windows.
  void raiseWindows();
  // Whether an alert or a window could not be shown since the last forgetUnseen().
  [[nodiscard]] bool wentUnseen() const { return wentUnseen_; }
  void forgetUnseen() { wentUnseen_ = false; }
  // Stops using the module for good: no window is visible, no alert waits, and none is shown again.
  void loseScreen();
  [[nodiscard]] bool isModuleLoaded() const { return module_ != nullptr; }

 private:
  // Null without a screen or a usable module; the next call then tries again.
  WindowsModule* module();
  // The module for this desktop, or else the other one.
  std::unique_ptr<WindowsModule> load(std::string* error);
  std::unique_ptr<WindowsModule> loadFrom(const std::string& path, std::string* error);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  WindowsServices& services_;
  const std::vector<std::string> folders_;
  std::unique_ptr<WindowsModule> module_;
  std::vector<std::weak_ptr<platform::Window>> windows_;
  int alerts_ = 0;
  bool isScreenLost_ = false;
  bool wentUnseen_ = false;
  std::function<void(bool waits)> onAlert_ = [](bool) {};
};

// Whether the environment names a screen to show windows on.
bool isScreenNamed();

// The text of an alert for the log.
std::string alertText(const platform::Alert& alert);

}  // namespace linux_host
