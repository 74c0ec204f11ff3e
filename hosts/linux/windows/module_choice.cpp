// SPDX-License-Identifier: MIT
#include "hosts/linux/windows/module_choice.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace linux_host {
namespace {

// Desktops whose own programs are written with GTK 4 and libadwaita, or that are built on GNOME's.
constexpr std::array<std::string_view, 8> kGnomeAndItsKin = {
    "gnome", "gnome-classic", "gnome-flashback", "unity",
    "phosh", "pantheon",      "budgie",          "x-cinnamon"};

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return lower;
}

bool isGnomeOrItsKin(std::string_view desktop) {
  while (!desktop.empty()) {
    const std::size_t end = std::min(desktop.find(':'), desktop.size());
    const std::string name = lowerCase(desktop.substr(0, end));
    if (std::find(kGnomeAndItsKin.begin(), kGnomeAndItsKin.end(), name) != kGnomeAndItsKin.end()) {
      return true;
    }
    desktop.remove_prefix(std::min(end + 1, desktop.size()));
  }
  return false;
}

std::string_view environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace

std::array<std::string, 2> windowsModules(std::string_view wish, std::string_view desktop) {
  const bool isGtk = wish == "gtk" || (wish != "qt" && isGnomeOrItsKin(desktop));
  if (isGtk) return {kGtkModuleFileName, kQtModuleFileName};
  return {kQtModuleFileName, kGtkModuleFileName};
}

std::array<std::string, 2> windowsModulesHere() {
  return windowsModules(environmentValue("RECORD_AUDIO_WINDOWS"),
                        environmentValue("XDG_CURRENT_DESKTOP"));
}

}  // namespace linux_host
