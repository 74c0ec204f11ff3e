// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/thread_role.h"
#include "suite/environment.h"

namespace suite {

// Base class of the suite's window controllers. It loads its window from an interface file when the
// window is first needed. By name it connects the window's controls to outlets, which are members
// of the controller, and passes what the user does to actions, which are its functions. Main thread
// only, asserted in debug builds.
class KorvelWindowController : public platform::InterfaceOwner {
 public:
  ~KorvelWindowController() override;
  KorvelWindowController(const KorvelWindowController&) = delete;
  KorvelWindowController& operator=(const KorvelWindowController&) = delete;

  // Loads the window if need be. Null when it cannot be loaded, for instance on a machine without a
  // screen. The next call tries again.
  std::shared_ptr<platform::Window> window();
  [[nodiscard]] bool isWindowLoaded() const { return window_ != nullptr; }
  // Never loads the window.
  [[nodiscard]] bool isWindowVisible() const { return window_ && window_->isVisible(); }
  // Loads the window if need be, shows it and makes it the key window.
  void showWindow();

  // Whether the window has none of the suite's own buttons in its title bar.
  [[nodiscard]] virtual bool hidesPreferencesButton() const { return false; }
  [[nodiscard]] virtual bool hidesCloseButton() const { return false; }

  // What an interface file may connect to, in alphabetical order. For checks of interface files.
  [[nodiscard]] std::vector<std::string> outletNames() const;
  [[nodiscard]] std::vector<std::string> actionNames() const;

  // Ignores an unknown name, and a control that is not of the outlet's type.
  void connectOutlet(const std::string& name, const std::shared_ptr<platform::View>& view) override;
  void performAction(const std::string& name, platform::View* sender) override;

 protected:
  // `nibName` is the name of the interface file, without folder or extension. ("Nib" is the suite's
  // word for such a file.)
  KorvelWindowController(Environment environment, std::string nibName);

  // Called once, when the window is loaded and every outlet is connected.
  virtual void windowDidLoad() {}

  // Subclasses declare their outlets and actions in their constructor. A control belongs to its
  // window, so an outlet holds it weakly.
  template <typename Control>
  void addOutlet(const std::string& name, std::weak_ptr<Control>& outlet) {
    outlets_[name] = [&outlet](const std::shared_ptr<platform::View>& view) {
      if (auto control = std::dynamic_pointer_cast<Control>(view)) outlet = std::move(control);
    };
  }
  void addAction(const std::string& name, std::function<void(platform::View* sender)> action);

  [[nodiscard]] const Environment& environment() const { return environment_; }
  [[nodiscard]] const platform::Host& host() const { return environment_.host; }
  // For subclasses to assert.
  [[nodiscard]] const platform::ThreadRole& mainThread() const { return mainThread_; }

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  Environment environment_;
  std::string nibName_;
  std::map<std::string, std::function<void(const std::shared_ptr<platform::View>&)>> outlets_;
  std::map<std::string, std::function<void(platform::View*)>> actions_;
  std::shared_ptr<platform::Window> window_;
};

}  // namespace suite
