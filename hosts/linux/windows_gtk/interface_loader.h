// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Builds a window from an interface file (GtkBuilder XML) embedded in the module. An object's id is
// its outlet's name, and the handler of its signal is the action that it sends; the one of the
// window is sent when the user closes it. Objects whose id has a hyphen are not outlets. Every
// translatable text is looked up in the program's string tables. Null when there is no such file.
std::shared_ptr<platform::Window> loadInterface(const std::string& interfaceFileName,
                                                platform::InterfaceOwner& owner,
                                                WindowsServices& services);

}  // namespace linux_host
