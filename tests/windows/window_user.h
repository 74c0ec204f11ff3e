// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/windows/fake_services.h"

// What a user sees in the windows of either module, and does there. The tests on top of it are
// compiled into one program for each module.

namespace linux_host {

class WindowUser {
 public:
  virtual ~WindowUser() = default;

  // The alert or message in front.
  virtual bool seesAlert() = 0;
  virtual std::string alertText() = 0;
  virtual std::string alertDetails() = 0;
  virtual std::vector<std::string> alertButtons() = 0;
  virtual void pressInAlert(const std::string& title) = 0;
  virtual void pressReturnInAlert() = 0;
  virtual void pressEscapeInAlert() = 0;
  virtual void closeAlert() = 0;

  // The preferences window. Controls have the names of their outlets.
  virtual bool seesWindow() = 0;
  virtual std::string windowTitle() = 0;
  virtual void pressEscape() = 0;
  virtual void pressReturn() = 0;
  virtual void closeWindow() = 0;
  // By the desktop's means, or back again.
  virtual void minimize(bool minimized) = 0;
  virtual void click(const std::string& control) = 0;
  virtual bool seesControl(const std::string& control) = 0;
  virtual bool isEnabled(const std::string& control) = 0;
  // Whether the window's keys go to that control.
  virtual bool hasKeyboard(const std::string& control) = 0;
  // The titles in a control's menu, without separators.
  virtual std::vector<std::string> menu(const std::string& control) = 0;
  // The title that a closed box shows; empty when it shows none.
  virtual std::string chosen(const std::string& control) = 0;
  // Whether nothing of the control's texts is cut off or replaced by an ellipsis.
  virtual bool showsWholeTexts(const std::string& control) = 0;
  // Opens the menu and picks that row of menu().
  virtual void pick(const std::string& control, int row) = 0;
  // The path beside the button for the output folder, and what its tool tip says.
  virtual std::string shownFolder() = 0;
  virtual std::string folderTip() = 0;
  // The level, from 0 to 1 of the bar's length; null while it is hidden.
  virtual std::optional<double> shownLevel() = 0;
  virtual bool isRightToLeft() = 0;

  // The row with the keyboard shortcut.
  // Wholly, without scrolling.
  virtual bool seesShortcut() = 0;
  virtual std::string shortcutKey() = 0;
  virtual std::string shortcutButton() = 0;
  virtual void clickShortcutButton() = 0;

  // The toolkit's own dialog for a folder. Null cancels. False: not there yet.
  virtual bool seesFolderDialog() = 0;
  virtual bool answerFolderDialog(const std::optional<std::string>& path) = 0;

  // Lets the module handle what has happened until `done`; false when it never is.
  static bool until(const std::function<bool()>& done);
  // Does `act` again and again from the main loop until it returns true.
  class Later {
   public:
    explicit Later(std::function<bool()> act);
    ~Later();
    Later(const Later&) = delete;
    Later& operator=(const Later&) = delete;
    [[nodiscard]] bool isDone() const { return source_ == 0; }

   private:
    std::function<bool()> act_;
    unsigned source_ = 0;
  };
};

// Made once in a process, before the module is loaded: provides the screen. Each toolkit has its
// own.
std::unique_ptr<WindowUser> makeWindowUser();

WindowUser& user();
WindowsModule& windowsModule();
FakeServices& services();

}  // namespace linux_host
