// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/windows/windows_module.h"

class QWidget;

namespace linux_host {

// Shows a message above `parent` and returns at once. `key` is the text's key in the string tables;
// `details` is shown as it stands. Main thread.
void showWarning(QWidget* parent, WindowsServices& services, const char* key,
                 const std::string& details);

}  // namespace linux_host
