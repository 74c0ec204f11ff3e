#pragma once

#include <QWidget>
#include <string>

namespace linux_host {

// Shows the window before those of other programs and gives it the keyboard, by the desktop's
// leave: an activation token or a startup id; empty: as far as the desktop lets us without one.
// Main thread.
void bringForward(QWidget& window, const std::string& token);

}  // namespace linux_host
