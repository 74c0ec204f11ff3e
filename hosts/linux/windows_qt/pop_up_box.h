// SPDX-License-Identifier: MIT
#pragma once

#include <QComboBox>

namespace linux_host {

// A combo box in which only a click or a key in the open menu picks. The wheel does nothing while
// the menu is closed, and keys that would pick open it: on the way through the audio sources is
// "Computer", and picking that installs a driver. A text too long for the box has a tool tip.
class PopUpBox : public QComboBox {
 public:
  explicit PopUpBox(QWidget* parent = nullptr) : QComboBox(parent) {}

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  [[nodiscard]] bool isTextCut() const;
};

}  // namespace linux_host
