// SPDX-License-Identifier: MIT
#pragma once

#include <gtk/gtk.h>

#include <functional>

#include "hosts/linux/windows/windows_module.h"

// The only place that knows which of libadwaita's dialogs shows a message.

namespace linux_host {

// Returns the window of an alert that belongs above `parent`, or stands alone where that is null;
// not shown yet. The first button agrees and is the answer to Return; the last one declines and is
// the answer to Escape, to closing the window and to declineMessage(). `onAnswer` is called once,
// with the index of the button or kAlertExtraButtonReturn; the window is then gone. Texts are
// shown as they stand. Main thread.
GtkWindow* newMessage(GtkWindow* parent, const platform::Alert& alert,
                      const WindowsServices& services, std::function<void(int answer)> onAnswer);

// Answers an alert that is shown with its last button. Main thread.
void declineMessage(GtkWindow* message);

// The newest window of this program on the screen, above which a dialog belongs; null when there is
// none. Main thread.
GtkWindow* frontWindow();

}  // namespace linux_host
