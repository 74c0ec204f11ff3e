// SPDX-License-Identifier: MIT
#pragma once

#include <adwaita.h>

#include <functional>
#include <memory>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "hosts/linux/windows_gtk/views.h"
#include "platform/controls.h"

namespace linux_host {

// A window with the views of its controls. Main thread.
class InterfaceWindow : public platform::Window {
 public:
  // The window's own widgets; either may be null. The first control has the keyboard when the
  // window opens.
  struct Parts {
    AdwHeaderBar* header;
    GtkWidget* firstControl;
  };
  // Owns the window. `services` outlives this object. `onDone` is called when the user wants the
  // window gone, which only its owner hides.
  InterfaceWindow(GtkWindow* window, const Parts& parts, WindowsServices& services,
                  std::function<void()> onDone);
  ~InterfaceWindow() override;
  InterfaceWindow(const InterfaceWindow&) = delete;
  InterfaceWindow& operator=(const InterfaceWindow&) = delete;

  // Keeps it as long as the window.
  void keep(std::shared_ptr<void> part) { kept_.push_back(std::move(part)); }

  void setDelegate(std::weak_ptr<platform::WindowDelegate> delegate) override;
  // The header bar is the window's own, so its close button is the suite's.
  void setTitleBarButtons(bool preferences, bool close) override;
  [[nodiscard]] bool isVisible() const override;
  // Minimised, or covered where the compositor says so and GTK passes it on (since 4.12).
  [[nodiscard]] bool isOccluded() const override;
  void makeKeyAndOrderFront() override;
  void orderFront() override;
  void orderFrontRegardless() override;
  void orderOut() override;

 private:
  void comeForward();
  static gboolean giveFocus(gpointer window);
  void tellOcclusion();
  // What the window is to the screen exists from now on.
  void followSurface();

  GtkWindow* const window_;
  const Parts parts_;
  WindowsServices& services_;
  bool wasOccluded_ = false;
  guint focusing_ = 0;  // the source; 0: none
  std::weak_ptr<platform::WindowDelegate> delegate_;
  std::vector<std::shared_ptr<void>> kept_;
  SignalHandlers handlers_;
};

}  // namespace linux_host
