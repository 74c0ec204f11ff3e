// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "tests/authorization/fake_service.h"
#include "tests/contract/contract_rig.h"

// The desktop's other programs on the private session's bus: its portal, its file manager, its
// settings. They answer from the main loop. Main thread.

namespace contract {

class LinuxDesktop : public Desktop {
 public:
  // `programs` is the only folder of the search path.
  LinuxDesktop(const std::string& busAddress, std::string programs);
  ~LinuxDesktop() override;
  LinuxDesktop(const LinuxDesktop&) = delete;
  LinuxDesktop& operator=(const LinuxDesktop&) = delete;

  std::vector<std::string> openedURLs() override { return opened_; }
  std::vector<std::vector<std::string>> shownFiles() override { return shown_; }
  void setHasPrivacySettings(bool has) override;
  int privacySettingsOpened() override;

 private:
  void onOpen(GDBusMethodInvocation* invocation, GVariant* arguments);
  void onShow(GDBusMethodInvocation* invocation, GVariant* arguments);
  [[nodiscard]] std::string settingsProgram() const { return programs_ + "/pavucontrol"; }
  [[nodiscard]] std::string settingsJournal() const { return programs_ + "/opened"; }

  const std::string programs_;
  std::vector<std::string> opened_;
  std::vector<std::vector<std::string>> shown_;
  authorization_test::FakeService portal_;
  authorization_test::FakeService fileManager_;
};

}  // namespace contract
