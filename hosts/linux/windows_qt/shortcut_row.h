// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <QFormLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>

#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// The row of the preferences with the key that starts and stops recordings. Visible only while the
// desktop has such keys. Belongs to the window's dialog. Main thread.
class ShortcutRow : public QObject {
 public:
  // Follows the shortcut from now on if the dialog has the row's widgets. `services` outlives the
  // dialog.
  static void addTo(QDialog& dialog, WindowsServices& services);
  ~ShortcutRow() override;

 private:
  ShortcutRow(QDialog& dialog, QFormLayout& form, QPushButton& button, WindowsServices& services);

  void show(const Shortcut& shortcut);
  // Shows what is known of the key, as wide as the font allows.
  void showKey();
  void choose();
  [[nodiscard]] QString text(const char* key) const;

  WindowsServices& services_;
  QDialog& dialog_;
  QFormLayout& form_;
  QPushButton& button_;
  QLabel* const key_;
  QString shownKey_;
};

}  // namespace linux_host
