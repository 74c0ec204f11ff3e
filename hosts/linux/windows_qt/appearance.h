// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QObject>
#include <QPalette>
#include <QSize>
#include <QString>

#include "hosts/linux/windows/windows_module.h"
#include "platform/controls.h"

namespace linux_host {

// Gives all widgets the palette and style that the user has chosen in the desktop, and follows
// every change. A desktop theme that already matches is left alone. Main thread, after QApplication
// was created.
class AppearanceFollower : public QObject {
 public:
  // `services` outlives this object.
  explicit AppearanceFollower(WindowsServices& services);
  ~AppearanceFollower() override;

  // Watches the application for a change of the toolkit's own theme.
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void apply();
  // Once, after the current event.
  void applySoon();

  WindowsServices& services_;
  // The toolkit's own style, before any of ours.
  const QString ownStyle_;
  bool isApplyingSoon_ = false;
};

// The link colour as the program knows it: what is drawn in it has the link colour of the palette
// at that moment. The same for the process's life.
platform::Color linkColor();

// Returns the icon as it is, or, if it would hardly be visible on a button of that palette, in the
// colour of the button's text: themes have icons drawn for light windows, which only the theme
// engine could recolour.
QIcon legibleIcon(const QIcon& icon, const QSize& size, const QPalette& palette);

}  // namespace linux_host
