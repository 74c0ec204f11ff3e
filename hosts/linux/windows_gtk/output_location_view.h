// SPDX-License-Identifier: MIT
#pragma once

#include <adwaita.h>

#include <memory>
#include <optional>
#include <string>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_gtk/activation.h"
#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "hosts/linux/windows_gtk/views.h"
#include "suite/suite.h"

namespace linux_host {

// Shows the folder in its row; a click on the row or its button opens a dialog for another one: the
// desktop's, or else the toolkit's. The dialog belongs to the window, and the program goes on
// meanwhile. Main thread.
class OutputLocationView : public WidgetView<suite::OutputLocationButton> {
 public:
  // `services` outlives the view.
  OutputLocationView(GtkButton* button, WindowsServices& services, UserAct onClick);
  // An open dialog counts as cancelled.
  ~OutputLocationView() override;
  OutputLocationView(const OutputLocationView&) = delete;
  OutputLocationView& operator=(const OutputLocationView&) = delete;

  void updateState() override;
  void handleOutputLocationChanged(Completion completion) override;

 private:
  struct Choice;

  [[nodiscard]] GtkWindow* window() const;
  void askDesktop(const std::string& parentName);
  void askToolkit();
  void take(const std::string& path);
  void finish(bool success, const std::string& error, const platform::Dictionary& details);

  WindowsServices& services_;
  std::shared_ptr<Choice> choice_;  // the one that is being made; null: none
  SignalHandlers handlers_;
};

}  // namespace linux_host
