// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Builds a window from an interface file (Qt Designer) embedded in the module. A widget's object
// name is its outlet's name, and its property "actionName" is the action that it sends. Widgets
// with the property "hostOnly" are not outlets. Every text is looked up in the program's string
// tables. The action in the dialog's property "doneAction" is sent when the user closes the window.
// Null when there is no such file.
std::shared_ptr<platform::Window> loadQtWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner,
                                               WindowsServices& services);

}  // namespace linux_host
