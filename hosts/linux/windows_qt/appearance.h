#pragma once

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Gives all widgets the palette and style the user asked the desktop for. A desktop theme that
// meets the wish already is left alone. Main thread, once QApplication is there.
void applyAppearance(const Appearance& appearance);

}  // namespace linux_host
