// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/authorization/desktop_launch_services.h"
#include "hosts/linux/authorization/polkit_authorization.h"
#include "hosts/linux/authorization/system_bus.h"
#include "hosts/linux/host/linux_host.h"
#include "tests/authorization/fake_service.h"
#include "tests/contract/contract_rig.h"

// A desktop around the Linux host, on the private session's bus, which is also its system bus: a
// notification server, polkit, login1, and another start of the program. All answer from the main
// loop. Main thread.

namespace contract {

// Shows notifications, in the order in which they came.
class NotificationServer {
 public:
  explicit NotificationServer(const std::string& busAddress);
  [[nodiscard]] std::vector<std::string> firstLines() const;
  void act(const std::string& firstLine, Surroundings::Act act);

 private:
  void onCall(GDBusMethodInvocation* invocation, GVariant* arguments);

  guint32 lastID_ = 0;
  std::map<guint32, std::string> shown_;
  authorization_test::FakeService service_;
};

// What the host runs with privileges is written down instead.
class LinuxSurroundings : public Surroundings {
 public:
  // `folder` receives its files. The host outlives this object.
  LinuxSurroundings(linux_host::LinuxHost& host, const std::string& busAddress, std::string folder);

  // The host's ports, with a pkexec and a folder of applications that the test can write.
  [[nodiscard]] platform::Host& ports() { return ports_; }

  void run(std::shared_ptr<platform::ApplicationDelegate> delegate,
           std::shared_ptr<platform::RemoteControl> remote,
           const std::vector<std::string>& pathsToOpen) override;
  void startAgain(const std::vector<std::string>& pathsToOpen) override;
  std::vector<std::string> shownNotifications() override { return notifications_.firstLines(); }
  void act(const std::string& firstLine, Act act) override { notifications_.act(firstLine, act); }
  void setGrantsRights(bool grants) override { grantsRights_ = grants; }
  std::vector<std::vector<std::string>> programsStartedWithRights() override;
  void setRestarts(bool obeys) override { restarts_ = obeys; }
  int restartsAskedFor() override { return restartsAskedFor_; }
  std::string installApplication(const std::string& bundleIdentifier) override;

 private:
  static platform::Host withServices(const platform::Host& ports,
                                     platform::Authorization& authorization,
                                     platform::LaunchServices& launchServices);
  [[nodiscard]] std::string makePkexec() const;

  linux_host::LinuxHost& host_;
  const std::string folder_;
  bool grantsRights_ = true;
  bool restarts_ = true;
  int restartsAskedFor_ = 0;
  int installed_ = 0;
  linux_host::ConnectionPtr otherProgram_;
  NotificationServer notifications_;
  authorization_test::FakeService polkit_;
  authorization_test::FakeService login_;
  linux_host::SystemBus systemBus_;
  linux_host::PolkitAuthorization authorization_;
  linux_host::DesktopLaunchServices launchServices_;
  platform::Host ports_;
};

}  // namespace contract
