// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// Gives Qt the language of the program's texts: the direction of all windows, and Qt's own texts,
// as far as Qt's translations are installed. `language` is the name of a string table. Main thread,
// once, after QApplication was created.
void applyLanguage(const std::string& language);

}  // namespace linux_host
