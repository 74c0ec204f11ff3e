// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "hosts/linux/application/linux_application.h"
#include "hosts/linux/bus/requests.h"
#include "hosts/linux/indicator/status_notifier_item.h"
#include "platform/foundation.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// The program's presence in the desktop: the tray icon with its tool tip and menu, and the
// launcher's entry. They show what the application and the suite's menu text say. A click counts as
// a click on the Dock icon. Main thread.
class Indicator : public IndicatorObserver, public suite::ToolDataObserver {
 public:
  // The first three outlive the indicator. `iconThemeFolder` as for StatusNotifierItem. `onTray` is
  // told whether the desktop has a tray, and of each change.
  Indicator(GDBusConnection* bus, Requests& requests, const platform::Bundle& strings,
            std::string iconThemeFolder, std::function<void(bool present)> onTray);

  void activationPolicyDidChange(platform::ActivationPolicy policy) override;
  void applicationIconDidChange(const platform::ImagePtr& icon) override;
  void toolDataDidChange(const suite::ToolData& data) override;
  // Whether the icon is being removed and still in the tray; see StatusNotifierItem.
  [[nodiscard]] bool isLeaving() const { return item_.isLeaving(); }
  // Whether there is something to stop: a recording, or its start.
  void setUnderWay(bool underWay);
  // An extra line of the tool tip that warns the user; empty: none.
  void setRemark(const std::string& remark);

 private:
  void refresh();
  void refreshLauncher();
  [[nodiscard]] std::vector<MenuItem> menu() const;
  void choose(int id);
  [[nodiscard]] std::string text(const char* key) const { return strings_.localizedString(key); }

  GDBusConnection* const bus_;
  Requests& requests_;
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const platform::Bundle& strings_;
  std::string iconName_;
  std::string menuText_;
  std::string remark_;
  bool recording_ = false;
  bool underWay_ = false;
  bool urgent_ = false;
  StatusNotifierItem item_;
};

}  // namespace linux_host
