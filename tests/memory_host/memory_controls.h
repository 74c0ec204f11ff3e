// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/controls.h"
#include "suite/suite.h"
#include "tests/memory_host/memory_application.h"

// Controls in memory. They hold what the core puts into them and act only as a user could. A recipe
// builds the preferences window from them. Single-threaded.

namespace memory_host {

template <class Port>
class MemoryControl : public Port {
 public:
  void setHidden(bool hide) override { hidden = hide; }
  [[nodiscard]] bool isHidden() const override { return hidden || removed; }
  void removeFromSuperview() override { removed = true; }

  bool hidden = false;
  bool removed = false;
};

class MemoryPopUpButton : public MemoryControl<platform::PopUpButton> {
 public:
  struct Item {
    std::string title;
    bool separator = false;
  };

  void removeAllItems() override;
  void addItem(const std::string& title) override;
  void addSeparator() override;
  [[nodiscard]] int numberOfItems() const override { return static_cast<int>(items.size()); }
  void selectItem(std::int64_t index) override;
  [[nodiscard]] int indexOfSelectedItem() const override { return selected; }

  // A separator is "-".
  [[nodiscard]] std::vector<std::string> titles() const;
  // The title of the selected item; empty when none is selected.
  [[nodiscard]] std::string selectedTitle() const;

  std::vector<Item> items;
  int selected = -1;
  int rebuilds = 0;
  std::vector<std::int64_t> selections;  // every index that selectItem was given
};

class MemoryCheckBox : public MemoryControl<platform::CheckBox> {
 public:
  void setState(bool on) override { checked = on; }
  [[nodiscard]] bool state() const override { return checked; }
  bool checked = false;
};

class MemoryTextField : public MemoryControl<platform::TextField> {
 public:
  void setStringValue(const std::string& text) override { value = text; }
  std::string value;
};

class MemoryLevelIndicator : public MemoryControl<platform::LevelIndicator> {
 public:
  void setLevel(float peak) override { levels.push_back(peak); }
  [[nodiscard]] float level() const { return levels.empty() ? 0 : levels.back(); }
  std::vector<float> levels;
};

class MemoryButton : public MemoryControl<platform::Button> {
 public:
  void setResponder(std::weak_ptr<platform::ButtonResponder> target) override {
    responder = std::move(target);
  }
  [[nodiscard]] std::string title() const override { return text; }
  [[nodiscard]] platform::Font font() const override { return textFont; }
  [[nodiscard]] platform::Rect bounds() const override { return rect; }
  void setAttributedTitle(const platform::AttributedString& newTitle) override {
    attributedTitles.push_back(newTitle);
    text = newTitle.text;
  }
  void addTrackingArea(const platform::TrackingAreaPtr& area) override { areas.push_back(area); }
  void removeTrackingArea(const platform::TrackingAreaPtr& area) override;

  // The pointer moves over the middle of the button.
  void hover(bool windowIsKey);
  // Whether a click presses the button. In an inactive window the first click only activates it.
  [[nodiscard]] bool clickPresses(bool windowIsActive) const;

  std::string text = "Link";
  platform::Font textFont{"Sans", 10};
  platform::Rect rect{0, 0, 80, 20};
  std::weak_ptr<platform::ButtonResponder> responder;
  std::vector<platform::AttributedString> attributedTitles;
  std::vector<platform::TrackingAreaPtr> areas;  // installed
};

class MemoryOutputLocationButton : public MemoryControl<suite::OutputLocationButton> {
 public:
  void updateState() override {
    ++updates;
    onUpdate();
  }
  void handleOutputLocationChanged(Completion completion) override {
    pending.push_back(std::move(completion));
  }
  // The user has finished with the folder chooser.
  void answer(bool success, int code, const std::optional<std::string>& message,
              const platform::Dictionary& details);

  int updates = 0;
  std::function<void()> onUpdate = [] {};
  std::vector<Completion> pending;
};

// The window of the interface file "AudioPreferencesWindow" and what a user does in it.
class MemoryPreferencesWindow {
 public:
  explicit MemoryPreferencesWindow(platform::InterfaceOwner& owner) : owner_(owner) {}

  // Picks an entry; a separator cannot be picked.
  void pickAudioSource(int index);
  void pickSoundFormat(int index);
  void pickQuality(int index);
  void clickHighlightMouseClicks();
  void clickOutputLocation() { owner_.performAction("onOutputLocationChanged", nullptr); }
  void clickDone() { owner_.performAction("onDoneClicked", nullptr); }
  void clickPrivacySettings();
  void clickOutputFolder();

  std::shared_ptr<MemoryWindow> window = std::make_shared<MemoryWindow>();
  std::shared_ptr<MemoryPopUpButton> audioSource = std::make_shared<MemoryPopUpButton>();
  std::shared_ptr<MemoryPopUpButton> soundFormatPopUp = std::make_shared<MemoryPopUpButton>();
  std::shared_ptr<MemoryPopUpButton> qualityPopUp = std::make_shared<MemoryPopUpButton>();
  std::shared_ptr<MemoryOutputLocationButton> outputLocation =
      std::make_shared<MemoryOutputLocationButton>();
  std::shared_ptr<MemoryCheckBox> highlightMouseClicksButton = std::make_shared<MemoryCheckBox>();
  std::shared_ptr<MemoryTextField> audioWarning = std::make_shared<MemoryTextField>();
  std::shared_ptr<MemoryLevelIndicator> audioLevel = std::make_shared<MemoryLevelIndicator>();
  std::shared_ptr<MemoryButton> privacySettingsLink = std::make_shared<MemoryButton>();
  std::shared_ptr<MemoryButton> outputFolderLink = std::make_shared<MemoryButton>();

 private:
  platform::InterfaceOwner& owner_;
};

// Makes a loader build preferences windows.
class MemoryPreferencesInterface {
 public:
  void installIn(MemoryInterfaceLoader& loader);
  // The newest window. Must not be called before one was loaded.
  [[nodiscard]] MemoryPreferencesWindow& shown() { return *windows.back(); }

  bool hasScreen = true;
  std::set<std::string> missingOutlets;
  // Called with each new window before its controls are connected.
  std::function<void(MemoryPreferencesWindow&)> onLoad = [](MemoryPreferencesWindow&) {};
  std::vector<std::shared_ptr<MemoryPreferencesWindow>> windows;  // every one loaded
};

}  // namespace memory_host
