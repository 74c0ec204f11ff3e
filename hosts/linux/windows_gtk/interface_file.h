// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// A window's interface file (GtkBuilder XML), ready for GTK.
struct InterfaceFile {
  // Every translatable text is in the user's language, and no signal is left: the program's actions
  // have names, not functions that GTK could look up.
  std::string xml;
  // Which action which object sends, by the object's id.
  std::map<std::string, std::string> actions;
};

// Looks every translatable text up in the program's string tables. Null when `xml` is not well
// formed.
std::optional<InterfaceFile> readInterface(std::string_view xml, const WindowsServices& services);

}  // namespace linux_host
