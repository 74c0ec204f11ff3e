// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "platform/controls.h"

namespace linux_host {

// The widget of a window: tells its port when it became the key window or changed visibility, and
// closes on Escape and Ctrl+W as on its Done button.
class WindowWidget : public QDialog {
  Q_OBJECT

 public:
  explicit WindowWidget(QWidget* parent = nullptr);

 signals:
  void becameKey();
  void visibilityChanged();
  // The user wants the window gone.
  void doneWanted();

 protected:
  bool event(QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void reject() override { emit doneWanted(); }
};

// How portals call a window; empty where there is no way to say it.
std::string portalNameOf(const QWidget* window);

// A window with the views of its controls. Main thread.
class QtWindow : public platform::Window {
 public:
  // `services` outlives the window.
  QtWindow(std::unique_ptr<WindowWidget> widget, std::vector<std::shared_ptr<platform::View>> views,
           WindowsServices& services);

  void setDelegate(std::weak_ptr<platform::WindowDelegate> delegate) override;
  // The title bar is the window manager's and has none of the suite's buttons; its own close
  // button acts as Done.
  void setTitleBarButtons(bool, bool) override {}
  [[nodiscard]] bool isVisible() const override { return widget_->isVisible(); }
  void makeKeyAndOrderFront() override;
  // Takes the keyboard only where the user asked for the window by a click that gave us leave.
  void orderFront() override;
  void orderFrontRegardless() override;
  void orderOut() override { widget_->hide(); }

 private:
  std::vector<std::shared_ptr<platform::View>> views_;
  std::unique_ptr<WindowWidget> widget_;  // behind the views: it goes first
  std::weak_ptr<platform::WindowDelegate> delegate_;
  WindowsServices& services_;
};

}  // namespace linux_host
