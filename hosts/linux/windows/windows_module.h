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

// The interface between the program and its windows module: record-audio-windows-gtk.so (GTK 4 and
// libadwaita) or record-audio-windows.so (Qt Widgets). One of them is loaded when the first window
// or alert is needed, so a mere recording never loads either. Main thread only.

namespace linux_host {

// How the desktop wants all windows to look.
struct Appearance {
  bool dark = false;
  bool highContrast = false;
};

// The result of asking the desktop for a folder chooser.
struct FolderChoice {
  bool offered = false;             // false: the desktop has no such dialog, or it failed
  std::optional<std::string> path;  // null: the user cancelled
};

// The desktop-wide key that starts and stops a recording.
struct Shortcut {
  bool offered = false;  // false: the desktop does not give programs keys
  bool asking = false;   // a request to the desktop is pending; it may be asking the user
  bool set = false;
  std::string trigger;  // the desktop's name for the key; may be empty
};

// The result of the user's request for a key.
struct ShortcutChoice {
  enum class Outcome {
    kDone,
    kDeclined,  // the user cancelled
    kFailed,    // the desktop gave no key
  };
  Outcome outcome = Outcome::kDone;
  std::string reason;  // why it failed, in the desktop's words; may be empty
};

// What the module needs from the program. Outlives the module.
class WindowsServices {
 public:
  virtual ~WindowsServices() = default;
  // The text for a key of the string tables, in the user's language.
  [[nodiscard]] virtual std::string localizedString(const std::string& key) const = 0;
  // The language of those texts, as its string table is named ("pt_BR"); it never changes. The
  // toolkit's own texts and the direction of its windows follow it, not the environment.
  [[nodiscard]] virtual std::string textLanguage() const { return "en"; }
  // The folder for finished recordings; null when there is no writable one.
  [[nodiscard]] virtual std::optional<std::string> outputLocation() = 0;
  // Stores another folder. Returns an empty string on success. If the folder cannot be written to,
  // keeps the old one and returns an error text.
  virtual std::string setOutputLocation(const std::string& path) = 0;
  // NOLINTBEGIN(performance-unnecessary-value-param): overrides keep what they are given.

  // Shows the desktop's own folder chooser, opened at `folder`, above the window that portals call
  // `parentWindow` (empty: none). `done` is called once: now, or later from the main loop.
  virtual void chooseFolder(const std::string& parentWindow, const std::string& title,
                            const std::string& folder, std::function<void(FolderChoice)> done) {
    (void)parentWindow, (void)title, (void)folder;
    done({});
  }
  // From now on the main loop runs its iterations through `step`, because some toolkits send their
  // requests only there and would otherwise show nothing. `endDialogs` is called when the program
  // ends, so that no open dialog holds it up. Both empty: back to the loop's own iterations.
  virtual void runLoopBy(std::function<void()> step, std::function<void()> endDialogs) {
    (void)step, (void)endDialogs;
  }

  // The screen has gone, and the toolkit is about to end the process. Called from within the
  // toolkit, which is abandoned there; its windows and alerts are not used any more.
  [[noreturn]] virtual void goOnWithoutScreen() { std::_Exit(EXIT_FAILURE); }

  // Calls `onChange` with the shortcut now and whenever it changes. Replaces the previous follower.
  // Empty: nobody is called any more, not even about the end of a pending choice.
  virtual void followShortcut(std::function<void(const Shortcut&)> onChange) { (void)onChange; }
  // Asks the desktop for a key, or for another one, with its dialog above the window that portals
  // call `parentWindow`. `done` is called once: now, or later from the main loop; never if the
  // program ends first.
  virtual void chooseShortcut(const std::string& parentWindow,
                              std::function<void(const ShortcutChoice&)> done) {
    (void)parentWindow;
    done({ShortcutChoice::Outcome::kFailed, {}});
  }

  // The desktop's permission to bring a window forward, once (ActivationTokens::take).
  virtual std::string takeActivationToken() { return {}; }

  // The user's appearance settings now.
  [[nodiscard]] virtual Appearance appearance() const { return {}; }
  // Calls `onChange` from the main loop whenever they may have changed. Replaces the previous
  // follower; empty: nobody is called any more.
  virtual void followAppearance(std::function<void()> onChange) { (void)onChange; }
  // NOLINTEND(performance-unnecessary-value-param)
};

class WindowsModule {
 public:
  virtual ~WindowsModule() = default;
  // As platform::Alerts::runModal; the main loop keeps running meanwhile.
  virtual int runModal(const platform::Alert& alert) = 0;
  // Brings the newest waiting alert in front of all other windows.
  virtual void raiseAlert() = 0;
  // Answers every waiting alert with its last button.
  virtual void dismissAlerts() = 0;
  // As platform::InterfaceLoader::loadWindow.
  virtual std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                                       platform::InterfaceOwner& owner) = 0;
  virtual platform::Cursor& cursor() = 0;
  virtual platform::SystemColors& systemColors() = 0;
};

// A module's only exported symbol. Null when there is no screen; *error then says why.
using CreateWindowsModule = WindowsModule* (*)(WindowsServices& services, std::string* error);
inline constexpr const char* kCreateWindowsModuleSymbol = "record_audio_create_windows_module";

}  // namespace linux_host
