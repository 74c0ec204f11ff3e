// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <memory>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_qt/window_exposure.h"
#include "platform/controls.h"

namespace linux_host {

// The widget of a window. It tells its port when it became the key window or changed visibility.
// Escape and Ctrl+W close it like its Done button.
class WindowWidget : public QDialog {
  Q_OBJECT

 public:
  explicit WindowWidget(QWidget* parent = nullptr);

 signals:
  void becameKey();
  void visibilityChanged();
  // The font, style or colours are others now; sent once after the event in which they changed.
  void looksChanged();
  // The user wants the window gone.
  void doneWanted();

 protected:
  bool event(QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;
  void reject() override { emit doneWanted(); }

 private:
  bool isTellingOfLooks_ = false;
};

// A window with the views of its controls. Main thread.
class QtWindow : public platform::Window {
 public:
  // `services` outlives the window.
  QtWindow(std::unique_ptr<WindowWidget> widget, std::vector<std::shared_ptr<platform::View>> views,
           WindowsServices& services);

  void setDelegate(std::weak_ptr<platform::WindowDelegate> delegate) override;
  // The title bar belongs to the window manager and has none of the suite's buttons; its own close
  // button acts as Done.
  void setTitleBarButtons(bool, bool) override {}
  [[nodiscard]] bool isVisible() const override { return widget_->isVisible(); }
  [[nodiscard]] bool isOccluded() const override { return exposure_.isOccluded(); }
  void makeKeyAndOrderFront() override;
  // Takes the keyboard only if a click of the user gave us permission.
  void orderFront() override;
  void orderFrontRegardless() override;
  void orderOut() override { widget_->hide(); }

 private:
  std::vector<std::shared_ptr<platform::View>> views_;
  std::unique_ptr<WindowWidget> widget_;  // declared after the views, so destroyed before them
  WindowExposure exposure_;
  std::weak_ptr<platform::WindowDelegate> delegate_;
  WindowsServices& services_;
};

}  // namespace linux_host
