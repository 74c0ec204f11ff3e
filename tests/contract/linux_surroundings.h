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
#include "tests/contract/linux_desktop.h"
#include "tests/integration/fake_permissions.h"

// A desktop around the Linux host, on the private session's bus, which is also its system bus: a
// notification server, polkit, login1, and another start of the program. All answer from the main
// loop, except who permits microphones. Main thread.

namespace contract {

// Shows notifications, in the order in which they came.
class NotificationServer {
 public:
  explicit NotificationServer(const std::string& busAddress);
  [[nodiscard]] std::vector<std::string> firstLines() const;
  // Its title and its text, one below the other.
  [[nodiscard]] std::string textOf(const std::string& firstLine) const;
  void act(const std::string& firstLine, Surroundings::Act act);

 private:
  void onCall(GDBusMethodInvocation* invocation, GVariant* arguments);

  struct Shown {
    std::string firstLine;
    std::string text;
  };
  guint32 lastID_ = 0;
  std::map<guint32, Shown> shown_;
  authorization_test::FakeService service_;
};

// What the host runs with privileges is written down instead.
class LinuxSurroundings : public Surroundings {
 public:
  // `folder` receives its files; `programs` is the only folder of the search path. The host
  // outlives this object.
  LinuxSurroundings(linux_host::LinuxHost& host, const std::string& busAddress, std::string folder,
                    std::string programs);

  // The host's ports, with a pkexec and a folder of applications that the test can write.
  [[nodiscard]] platform::Host& ports() { return ports_; }

  void run(std::shared_ptr<platform::ApplicationDelegate> delegate,
           std::shared_ptr<platform::RemoteControl> remote,
           const std::vector<std::string>& pathsToOpen) override;
  void startAgain(const std::vector<std::string>& pathsToOpen) override;
  std::vector<std::string> shownNotifications() override { return notifications_.firstLines(); }
  std::string shownText(const std::string& firstLine) override {
    return notifications_.textOf(firstLine);
  }
  void act(const std::string& firstLine, Act act) override { notifications_.act(firstLine, act); }
  Desktop& desktop() override;
  void setMicrophonePermission(platform::AuthorizationStatus status, bool userAgrees) override;
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
  const std::string busAddress_;
  const std::string folder_;
  const std::string programs_;
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
  // Made when they are needed: both are the desktop's portal.
  std::optional<LinuxDesktop> desktop_;
  std::optional<integration_test::FakePermissions> permissions_;
};

}  // namespace contract
