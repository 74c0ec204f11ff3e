// SPDX-License-Identifier: MIT
#include "suite/korvel_window_controller.h"

namespace suite {
namespace {

template <typename Entry>
std::vector<std::string> namesOf(const std::map<std::string, Entry>& entries) {
  std::vector<std::string> names;
  for (const auto& [name, entry] : entries) names.push_back(name);
  return names;
}

}  // namespace

KorvelWindowController::KorvelWindowController(Environment environment, std::string nibName)
    : environment_(environment), nibName_(std::move(nibName)) {}

KorvelWindowController::~KorvelWindowController() = default;

std::shared_ptr<platform::Window> KorvelWindowController::window() {
  mainThread_.assertHeld();
  if (window_) return window_;
  window_ = host().interfaceLoader.loadWindow(nibName_, *this);
  if (!window_) return nullptr;
  window_->setTitleBarButtons(!hidesPreferencesButton(), !hidesCloseButton());
  windowDidLoad();
  return window_;
}

void KorvelWindowController::showWindow() {
  if (const auto shown = window()) shown->makeKeyAndOrderFront();
}

std::vector<std::string> KorvelWindowController::outletNames() const {
  return namesOf(outlets_);
}

std::vector<std::string> KorvelWindowController::actionNames() const {
  return namesOf(actions_);
}

void KorvelWindowController::connectOutlet(const std::string& name,
                                           const std::shared_ptr<platform::View>& view) {
  mainThread_.assertHeld();
  const auto outlet = outlets_.find(name);
  if (outlet != outlets_.end()) outlet->second(view);
}

void KorvelWindowController::performAction(const std::string& name, platform::View* sender) {
  mainThread_.assertHeld();
  const auto action = actions_.find(name);
  if (action != actions_.end()) action->second(sender);
}

void KorvelWindowController::addAction(const std::string& name,
                                       std::function<void(platform::View*)> action) {
  actions_[name] = std::move(action);
}

}  // namespace suite
