// SPDX-License-Identifier: MIT
#include "hosts/linux/windows/windows_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "hosts/linux/base/log.h"
#include "hosts/linux/windows/module_choice.h"

namespace linux_host {
namespace {

void sayMissing(const std::string& what) {
  logOnce(LogLevel::kWarning, what, what);
}

int lastButton(const platform::Alert& alert) {
  const int buttons = static_cast<int>(alert.buttons.size());
  return platform::kAlertFirstButtonReturn + std::max(buttons - 1, 0);
}

}  // namespace

bool isScreenNamed() {
  constexpr std::array kVariables = {"WAYLAND_DISPLAY", "DISPLAY", "QT_QPA_PLATFORM"};
  return std::any_of(kVariables.begin(), kVariables.end(), [](const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
  });
}

std::string alertText(const platform::Alert& alert) {
  return alert.informativeText.empty() ? alert.messageText
                                       : alert.messageText + ": " + alert.informativeText;
}

WindowsLoader::WindowsLoader(WindowsServices& services, std::vector<std::string> folders)
    : services_(services), folders_(std::move(folders)) {}

WindowsLoader::~WindowsLoader() = default;

int WindowsLoader::runModal(const platform::Alert& alert) {
  mainThread_.assertHeld();
  WindowsModule* windows = module();
  if (windows == nullptr) {
    wentUnseen_ = true;
    const bool critical = alert.style == platform::AlertStyle::kCritical;
    logMessage(critical ? LogLevel::kError : LogLevel::kWarning, alertText(alert));
    return lastButton(alert);
  }
  ++alerts_;
  onAlert_(true);
  const int answer = windows->runModal(alert);
  onAlert_(false);
  --alerts_;
  return answer;
}

void WindowsLoader::dismissAlerts() {
  if (isAlertShowing()) module_->dismissAlerts();
}

std::shared_ptr<platform::Window> WindowsLoader::loadWindow(const std::string& interfaceFileName,
                                                            platform::InterfaceOwner& owner) {
  mainThread_.assertHeld();
  WindowsModule* windows = module();
  if (windows == nullptr) {
    wentUnseen_ = true;
    return nullptr;
  }
  auto window = windows->loadWindow(interfaceFileName, owner);
  std::erase_if(windows_, [](const auto& known) { return known.expired(); });
  if (window != nullptr) windows_.push_back(window);
  return window;
}

void WindowsLoader::setPointingHand() {
  if (module_ != nullptr && !isScreenLost_) module_->cursor().setPointingHand();
}

std::optional<platform::Color> WindowsLoader::linkColor() const {
  if (module_ == nullptr || isScreenLost_) return std::nullopt;
  return module_->systemColors().linkColor();
}

bool WindowsLoader::hasVisibleWindows() const {
  return std::any_of(windows_.begin(), windows_.end(), [](const auto& known) {
    const auto window = known.lock();
    return window != nullptr && window->isVisible();
  });
}

void WindowsLoader::raiseWindows() {
  if (isAlertShowing()) {
    module_->raiseAlert();
    return;
  }
  const auto windows = windows_;
  for (const auto& known : windows) {
    const auto window = known.lock();
    if (window != nullptr && window->isVisible()) window->orderFrontRegardless();
  }
}

void WindowsLoader::loseScreen() {
  isScreenLost_ = true;
  windows_.clear();
  for (; alerts_ > 0; --alerts_) onAlert_(false);
}

WindowsModule* WindowsLoader::module() {
  if (isScreenLost_) {
    sayMissing("The screen has gone: no windows are shown and alerts go to this log.");
    return nullptr;
  }
  if (module_ != nullptr) return module_.get();
  if (!isScreenNamed()) {
    sayMissing(
        "There is no screen (WAYLAND_DISPLAY and DISPLAY are not set): no windows are "
        "shown and alerts go to this log.");
    return nullptr;
  }
  std::string error;
  module_ = load(&error);
  if (module_ == nullptr) sayMissing("No windows are shown and alerts go to this log: " + error);
  return module_.get();
}

std::unique_ptr<WindowsModule> WindowsLoader::load(std::string* error) {
  *error = std::string("Neither ") + kGtkModuleFileName + " nor " + kQtModuleFileName +
           " is there. Install record-audio-gtk or record-audio-qt.";
  for (const std::string& name : windowsModulesHere()) {
    for (const std::string& folder : folders_) {
      const std::string path = folder + "/" + name;
      if (access(path.c_str(), F_OK) != 0) continue;
      if (auto loaded = loadFrom(path, error)) return loaded;
    }
  }
  return nullptr;
}

std::unique_ptr<WindowsModule> WindowsLoader::loadFrom(const std::string& path,
                                                       std::string* error) {
  // Never unloaded: neither toolkit supports that.
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) {
    *error = dlerror();
    return nullptr;
  }
  const auto create =
      reinterpret_cast<CreateWindowsModule>(dlsym(library, kCreateWindowsModuleSymbol));
  if (create == nullptr) {
    *error = path + " has another version. Reinstall Record Audio.";
    return nullptr;
  }
  return std::unique_ptr<WindowsModule>(create(services_, error));
}

}  // namespace linux_host
