// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_controls.h"

#include <stdexcept>
#include <utility>

namespace memory_host {

void MemoryPopUpButton::removeAllItems() {
  items.clear();
  selected = -1;
  ++rebuilds;
}

void MemoryPopUpButton::addItem(const std::string& title) {
  items.push_back({title, false});
}

void MemoryPopUpButton::addSeparator() {
  items.push_back({"", true});
}

void MemoryPopUpButton::selectItem(std::int64_t index) {
  selections.push_back(index);
  selected = index >= 0 && index < numberOfItems() ? static_cast<int>(index) : -1;
}

std::vector<std::string> MemoryPopUpButton::titles() const {
  std::vector<std::string> result;
  for (const Item& item : items) result.push_back(item.separator ? "-" : item.title);
  return result;
}

std::string MemoryPopUpButton::selectedTitle() const {
  return selected < 0 ? "" : items.at(static_cast<std::size_t>(selected)).title;
}

void MemoryButton::removeTrackingArea(const platform::TrackingAreaPtr& area) {
  std::erase(areas, area);
}

void MemoryButton::hover(bool windowIsKey) {
  for (const auto& area : areas) {
    const bool covers = area->rect.width > rect.width / 2 && area->rect.height > rect.height / 2;
    const bool active = windowIsKey || (area->options & platform::kTrackingActiveInKeyWindow) == 0;
    const auto target = responder.lock();
    if (covers && active && target && (area->options & platform::kTrackingCursorUpdate) != 0) {
      target->cursorUpdate();
    }
  }
}

bool MemoryButton::clickPresses(bool windowIsActive) const {
  const auto target = responder.lock();
  return windowIsActive || (target && target->acceptsFirstMouse());
}

void MemoryOutputLocationButton::answer(bool success, int code,
                                        const std::optional<std::string>& message,
                                        const platform::Dictionary& details) {
  const auto completion = std::move(pending.front());
  pending.erase(pending.begin());
  completion(success, code, message, details);
}

namespace {

void pick(platform::InterfaceOwner& owner, MemoryPopUpButton& popUp, int index,
          const std::string& action) {
  if (popUp.items.at(static_cast<std::size_t>(index)).separator) {
    throw std::logic_error("a separator cannot be picked");
  }
  popUp.selected = index;
  owner.performAction(action, &popUp);
}

}  // namespace

void MemoryPreferencesWindow::pickAudioSource(int index) {
  pick(owner_, *audioSource, index, "onAudioSelect");
}

void MemoryPreferencesWindow::pickSoundFormat(int index) {
  pick(owner_, *soundFormatPopUp, index, "onSoundFormatSelected");
}

void MemoryPreferencesWindow::pickQuality(int index) {
  pick(owner_, *qualityPopUp, index, "onQualitySelect");
}

void MemoryPreferencesWindow::clickHighlightMouseClicks() {
  highlightMouseClicksButton->checked = !highlightMouseClicksButton->checked;
  owner_.performAction("onHighlightMouseClicks", highlightMouseClicksButton.get());
}

void MemoryPreferencesWindow::clickPrivacySettings() {
  owner_.performAction("onOpenPrivacySettings", privacySettingsLink.get());
}

void MemoryPreferencesWindow::clickOutputFolder() {
  owner_.performAction("onRevealOutputFolder", outputFolderLink.get());
}

void MemoryPreferencesInterface::installIn(MemoryInterfaceLoader& loader) {
  loader.recipe = [this](const std::string& name,
                         platform::InterfaceOwner& owner) -> std::shared_ptr<platform::Window> {
    if (!hasScreen || name != "AudioPreferencesWindow") return nullptr;
    auto made = std::make_shared<MemoryPreferencesWindow>(owner);
    onLoad(*made);
    for (const char* title : {"m4a", "MP3"}) made->soundFormatPopUp->addItem(title);
    for (const char* title : {"High", "Medium", "Low"}) made->qualityPopUp->addItem(title);
    for (const auto& menu : {made->soundFormatPopUp, made->qualityPopUp}) menu->selected = 0;
    const auto connect = [&](const std::string& outlet,
                             const std::shared_ptr<platform::View>& view) {
      if (!missingOutlets.contains(outlet)) owner.connectOutlet(outlet, view);
    };
    connect("audioSource", made->audioSource);
    connect("soundFormatPopUp", made->soundFormatPopUp);
    connect("qualityPopUp", made->qualityPopUp);
    connect("outputLocation", made->outputLocation);
    connect("highlightMouseClicksButton", made->highlightMouseClicksButton);
    connect("audioWarning", made->audioWarning);
    connect("audioLevel", made->audioLevel);
    connect("privacySettingsLink", made->privacySettingsLink);
    connect("outputFolderLink", made->outputFolderLink);
    windows.push_back(made);
    return made->window;
  };
}

}  // namespace memory_host
