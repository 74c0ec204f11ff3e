// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/base/string_table.h"
#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// The program's side: texts in one language, and an output folder that can refuse a change.
class FakeServices : public WindowsServices {
 public:
  // In English, or in the language that the test run asks for.
  FakeServices();
  // Reports a failure for a text that is in no string table.
  [[nodiscard]] std::string localizedString(const std::string& key) const override;
  [[nodiscard]] std::string textLanguage() const override { return table_->language(); }
  [[nodiscard]] std::optional<std::string> outputLocation() override { return folder; }
  std::string setOutputLocation(const std::string& path) override;
  void chooseFolder(const std::string& parentWindow, const std::string& title,
                    const std::string& opened, std::function<void(FolderChoice)> done) override;

  void followShortcut(std::function<void(const Shortcut&)> onChange) override {
    shortcutFollower_ = std::move(onChange);
    if (shortcutFollower_) shortcutFollower_(shortcut_);
  }
  void chooseShortcut(const std::string&,
                      std::function<void(const ShortcutChoice&)> done) override {
    shortcutChoices.push_back(std::move(done));
  }
  // Changes the shortcut and tells the window.
  void changeShortcut(const Shortcut& shortcut) {
    shortcut_ = shortcut;
    if (shortcutFollower_) shortcutFollower_(shortcut_);
  }
  // The user's requests that have not been answered.
  std::vector<std::function<void(const ShortcutChoice&)>> shortcutChoices;

  [[nodiscard]] Appearance appearance() const override { return appearance_; }
  void followAppearance(std::function<void()> onChange) override {
    appearanceFollower_ = std::move(onChange);
  }
  // As the user does in the desktop's settings.
  void changeAppearance(const Appearance& appearance) {
    appearance_ = appearance;
    if (appearanceFollower_) appearanceFollower_();
  }

  std::string takeActivationToken() override { return std::exchange(activationToken, {}); }
  std::string activationToken;

  void runLoopBy(std::function<void()>, std::function<void()> ends) override {
    endDialogs = std::move(ends);
  }
  // Called by the program when it ends.
  std::function<void()> endDialogs;

  // The name of a string table, e.g. "de".
  void speak(const std::string& language);
  // Resets to English and a folder that accepts every change.
  void reset();

  std::optional<std::string> folder = "/home/somebody/Music";
  // The result of the next changes of the folder; empty: they succeed.
  std::string refusal;
  std::vector<std::string> asked;
  // The parent of the last folder dialog of the desktop.
  std::string dialogParent;
  // The action of the desktop's folder chooser; null: there is none.
  std::function<void(const std::string& opened, const std::function<void(FolderChoice)>& done)>
      desktopChooser;

 private:
  std::unique_ptr<StringTables> table_;
  // A table with every text, to find those that are in none.
  const StringTables complete_;
  Appearance appearance_;
  std::function<void()> appearanceFollower_;
  Shortcut shortcut_;
  std::function<void(const Shortcut&)> shortcutFollower_;
};

// Every language that has a string table.
std::vector<std::string> languages();

bool isWrittenFromRightToLeft(const std::string& language);
// The language of the texts when the module is loaded; every test then speaks English until it says
// otherwise. The process has only one module.
std::string languageAtStart();

// Records what an interface file connects and what its controls send.
class FakeOwner : public platform::InterfaceOwner {
 public:
  void connectOutlet(const std::string& name,
                     const std::shared_ptr<platform::View>& view) override {
    outlets[name] = view;
  }
  void performAction(const std::string& name, platform::View* sender) override {
    actions.push_back(name);
    if (onAction) onAction(name, sender);
  }
  template <typename Port>
  [[nodiscard]] std::shared_ptr<Port> outlet(const std::string& name) const {
    const auto found = outlets.find(name);
    return found == outlets.end() ? nullptr : std::dynamic_pointer_cast<Port>(found->second.lock());
  }

  std::map<std::string, std::weak_ptr<platform::View>> outlets;
  std::vector<std::string> actions;
  std::function<void(const std::string&, platform::View*)> onAction;
};

}  // namespace linux_host
