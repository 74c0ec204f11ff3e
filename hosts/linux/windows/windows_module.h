// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/application.h"
#include "platform/controls.h"
#include "suite/suite.h"

// What the program and the module with its windows say to each other. The module
// (record-audio-windows.so, Qt Widgets) is loaded when the first window or alert is needed, so a
// recording never carries it. Main thread only.

namespace linux_host {

// The desktop's wishes for all windows.
struct Appearance {
  bool dark = false;
  bool highContrast = false;
};

// What came of asking the desktop to let the user choose a folder.
struct FolderChoice {
  bool offered = false;             // false: the desktop has no dialog for it, or it failed
  std::optional<std::string> path;  // null: the user chose none
};

// The key that starts and stops a recording wherever the user is, as the desktop keeps it for us.
struct Shortcut {
  bool offered = false;  // false: the desktop has no keys for programs to ask for
  bool asking = false;   // the desktop is asked just now, and may be asking the user
  bool set = false;
  std::string trigger;  // the desktop's words for the key; it need not have any
};

// What came of the user's wish for a key.
struct ShortcutChoice {
  enum class Outcome {
    kDone,
    kDeclined,  // the user thought better of it
    kFailed,    // the desktop gave none
  };
  Outcome outcome = Outcome::kDone;
  std::string reason;  // of a failure, in the desktop's words; it need not say any
};

// What the module needs of the program. Outlives the module.
class WindowsServices {
 public:
  virtual ~WindowsServices() = default;
  // The user's text for a key of the string tables.
  [[nodiscard]] virtual std::string localizedString(const std::string& key) const = 0;
  // The folder for finished recordings; null when there is none that can be written.
  [[nodiscard]] virtual std::optional<std::string> outputLocation() = 0;
  // Stores another folder. Returns an error text, and keeps the old folder, when it cannot be
  // written; empty on success.
  virtual std::string setOutputLocation(const std::string& path) = 0;
  // NOLINTBEGIN(performance-unnecessary-value-param): overrides keep what they are given.

  // Shows the desktop's own folder chooser, opened at `folder`, above the window that portals know
  // as `parentWindow` (empty: none). `done` is called once: now, or later from the main loop.
  virtual void chooseFolder(const std::string& parentWindow, const std::string& title,
                            const std::string& folder, std::function<void(FolderChoice)> done) {
    (void)parentWindow, (void)title, (void)folder;
    done({});
  }
  // From now on the main loop waits and works by `step`: a toolkit that sends its requests only
  // then is not seen on the screen otherwise. `endDialogs` is called when the program ends, so that
  // no dialog keeps it. Both empty: as before.
  virtual void runLoopBy(std::function<void()> step, std::function<void()> endDialogs) {
    (void)step, (void)endDialogs;
  }

  // The screen has gone, and the toolkit is about to end the process. Called in the middle of its
  // work, which is left there for good; the windows and alerts are not used any more.
  [[noreturn]] virtual void goOnWithoutScreen() { std::_Exit(EXIT_FAILURE); }

  // Calls `onChange` with the shortcut now and whenever it changes, in place of the one before;
  // empty: nobody any more, nor of a choice that is under way.
  virtual void followShortcut(std::function<void(const Shortcut&)> onChange) { (void)onChange; }
  // Has the desktop give us a key, or another one, above the window that portals know as
  // `parentWindow`. `done` is called once: now, or later from the main loop; never when the program
  // ends before.
  virtual void chooseShortcut(const std::string& parentWindow,
                              std::function<void(const ShortcutChoice&)> done) {
    (void)parentWindow;
    done({ShortcutChoice::Outcome::kFailed, {}});
  }

  // The desktop's leave to bring a window forward, once (ActivationTokens::take).
  virtual std::string takeActivationToken() { return {}; }

  // NOLINTEND(performance-unnecessary-value-param)

  // What the user asked of the desktop; asked once, when the first window is made.
  [[nodiscard]] virtual Appearance appearance() const { return {}; }
};

class WindowsModule {
 public:
  virtual ~WindowsModule() = default;
  // As platform::Alerts::runModal; the main loop goes on meanwhile.
  virtual int runModal(const platform::Alert& alert) = 0;
  // Brings the newest alert that waits before all other windows.
  virtual void raiseAlert() = 0;
  // Answers every alert that waits with its last button.
  virtual void dismissAlerts() = 0;
  // As platform::InterfaceLoader::loadWindow.
  virtual std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                                       platform::InterfaceOwner& owner) = 0;
  virtual platform::Cursor& cursor() = 0;
  virtual platform::SystemColors& systemColors() = 0;
};

// The module's one exported symbol. Null when there is no screen; *error then says why.
using CreateWindowsModule = WindowsModule* (*)(WindowsServices& services, std::string* error);
inline constexpr const char* kCreateWindowsModuleSymbol = "record_audio_create_windows_module";
inline constexpr const char* kWindowsModuleFileName = "record-audio-windows.so";

}  // namespace linux_host
