// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QPalette>
#include <QSize>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// Gives all widgets the palette and style that the user chose in the desktop. A desktop theme that
// already matches is left alone. Main thread, after QApplication was created.
void applyAppearance(const Appearance& appearance);

// Returns the icon as it is, or, if it would hardly be visible on a button of that palette, in the
// colour of the button's text: themes have icons drawn for light windows, which only the theme
// engine could recolour.
QIcon legibleIcon(const QIcon& icon, const QSize& size, const QPalette& palette);

}  // namespace linux_host
