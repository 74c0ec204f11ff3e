// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace linux_host {

inline constexpr const char* kQtModuleFileName = "record-audio-windows.so";
inline constexpr const char* kGtkModuleFileName = "record-audio-windows-gtk.so";

// Which windows module to try first, and which serves if that one cannot be loaded. `wish` is the
// value of RECORD_AUDIO_WINDOWS, "gtk" or "qt"; anything else counts as no wish. `desktop` is the
// value of XDG_CURRENT_DESKTOP, names with colons between them. Without a wish GNOME and its
// relatives get GTK, all other desktops Qt.
std::array<std::string, 2> windowsModules(std::string_view wish, std::string_view desktop);

// The same for the environment of this process.
std::array<std::string, 2> windowsModulesHere();

}  // namespace linux_host
