// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QPalette>
#include <QSize>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Gives all widgets the palette and style the user asked the desktop for. A desktop theme that
// meets the wish already is left alone. Main thread, once QApplication is there.
void applyAppearance(const Appearance& appearance);

// The icon as it is, or, where its colours are hardly seen on a button of that palette, in the
// colour of the button's text: themes have drawings for light windows that only they can colour
// anew.
QIcon legibleIcon(const QIcon& icon, const QSize& size, const QPalette& palette);

}  // namespace linux_host
