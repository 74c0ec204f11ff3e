// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <string>

namespace linux_host {

// Shows the window before those of other programs and gives it the keyboard, by the desktop's
// leave: an activation token or a startup id; empty: as far as the desktop lets us without one.
// Main thread.
void bringForward(QWidget& window, const std::string& token);

// Where only the compositor may raise a window (Wayland), hides one that is behind others, so that
// it is a new one, in front, when it is shown again. A dialog is left alone: hidden, it counts as
// answered. Main thread.
void makeNewIfBehind(QWidget& window);

}  // namespace linux_host
