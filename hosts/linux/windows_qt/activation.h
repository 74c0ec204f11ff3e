// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <string>

namespace linux_host {

// Shows the window in front of other programs' windows and gives it the keyboard. `token` is the
// desktop's permission: an activation token or a startup id. Empty: as far as the desktop allows
// without one. Main thread.
void bringForward(QWidget& window, const std::string& token);

// Where only the compositor may raise a window (Wayland), hides a window that is behind others:
// when shown again it is a new window and comes in front. Dialogs are left alone, because hiding
// one counts as an answer. Main thread.
void makeNewIfBehind(QWidget& window);

}  // namespace linux_host
