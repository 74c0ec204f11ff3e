// SPDX-License-Identifier: MIT
#pragma once

#include <QPushButton>
#include <memory>
#include <string>

#include "hosts/linux/windows_qt/qt_views.h"

namespace linux_host {

// A path always reads from left to right, never as "Music/~". Qt draws text in the application's
// direction, not the widget's, so this button draws itself.
class PathButton : public QPushButton {
 public:
  explicit PathButton(QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;
};

// Shows the folder with its icon; a click opens the desktop's chooser for another one, or else the
// toolkit's. The program goes on meanwhile, and the button does nothing.
class QtOutputLocationButton : public QtView<suite::OutputLocationButton> {
 public:
  QtOutputLocationButton(QPushButton* button, WindowsServices& services, UserAct onClick);
  // Ends an open choice without a change.
  ~QtOutputLocationButton() override;
  QtOutputLocationButton(const QtOutputLocationButton&) = delete;
  QtOutputLocationButton& operator=(const QtOutputLocationButton&) = delete;
  void updateState() override;
  // While a choice is open, a further one ends at once without a change.
  void handleOutputLocationChanged(Completion completion) override;

 private:
  struct Choice;

  [[nodiscard]] QWidget* window() const;
  void askDesktop();
  void askToolkit();
  // Stores the folder that the user has chosen; empty: the user cancelled.
  void take(const std::string& path);
  void finish(bool success, const std::string& error, const platform::Dictionary& details);

  WindowsServices& services_;
  std::shared_ptr<Choice> choice_;  // null unless the user is choosing
};

}  // namespace linux_host
