// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "suite/environment.h"

namespace suite {

// Base of the suite's window controllers: loads a window from an interface file when it is first
// needed, hands its controls to the outlets and the user's acts to the actions, both by name. Main
// thread only.
class KorvelWindowController : public platform::InterfaceOwner {
 public:
  ~KorvelWindowController() override;
  KorvelWindowController(const KorvelWindowController&) = delete;
  KorvelWindowController& operator=(const KorvelWindowController&) = delete;

  // Loads the window on first use. Null when it cannot be loaded, as on a machine without a
  // screen; the next call tries again.
  std::shared_ptr<platform::Window> window();
  [[nodiscard]] bool isWindowLoaded() const { return window_ != nullptr; }
  // Never loads the window.
  [[nodiscard]] bool isWindowVisible() const { return window_ && window_->isVisible(); }
  // Loads the window if need be, shows it and makes it the key window.
  void showWindow();

  // Whether the window goes without the suite's own buttons in its title bar.
  [[nodiscard]] virtual bool hidesPreferencesButton() const { return false; }
  [[nodiscard]] virtual bool hidesCloseButton() const { return false; }

  // What an interface file may connect to, in alphabetical order.
  [[nodiscard]] std::vector<std::string> outletNames() const;
  [[nodiscard]] std::vector<std::string> actionNames() const;

  // A control of another kind than the outlet's is ignored, as is an unknown name.
  void connectOutlet(const std::string& name, const std::shared_ptr<platform::View>& view) override;
  void performAction(const std::string& name, platform::View* sender) override;

 protected:
  // `nibName`: the interface file, without folder or extension.
  KorvelWindowController(Environment environment, std::string nibName);

  // Called once, when the window is there and every outlet connected.
  virtual void windowDidLoad() {}

  // Declared by subclasses, in their constructor. The control is kept weakly: it is the window's.
  template <typename Control>
  void addOutlet(const std::string& name, std::weak_ptr<Control>& outlet) {
    outlets_[name] = [&outlet](const std::shared_ptr<platform::View>& view) {
      if (auto control = std::dynamic_pointer_cast<Control>(view)) outlet = std::move(control);
    };
  }
  void addAction(const std::string& name, std::function<void(platform::View* sender)> action);

  [[nodiscard]] const Environment& environment() const { return environment_; }
  [[nodiscard]] const platform::Host& host() const { return environment_.host; }

 private:
  Environment environment_;
  std::string nibName_;
  std::map<std::string, std::function<void(const std::shared_ptr<platform::View>&)>> outlets_;
  std::map<std::string, std::function<void(platform::View*)>> actions_;
  std::shared_ptr<platform::Window> window_;
};

}  // namespace suite
