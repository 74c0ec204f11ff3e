// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/notifications/notification_center.h"
#include "tests/base/private_bus.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"

// Notifications with an independent server: dunst, on a virtual screen.

namespace linux_host {
namespace {

using base_test::contentsOf;
using base_test::PrivateBus;
using base_test::TemporaryFolder;
using platform::UserNotification;
using test_support::ChildProcess;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Type = platform::UserNotificationActivationType;
using std::chrono_literals::operator""s;

class Delegate : public platform::UserNotificationCenterDelegate {
 public:
  bool userNotificationCenterShouldPresentNotification(
      platform::UserNotificationCenter&, const platform::UserNotificationPtr&) override {
    return true;
  }
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter&,
      const platform::UserNotificationPtr& notification) override {
    activations.push_back(notification->activationType);
  }
  std::vector<Type> activations;
};

class DunstTest : public ::testing::Test {
 protected:
  DunstTest() {
    // The server's own menu of actions, answered with the test's choice.
    const std::string menu = folder_ / "menu";
    base_test::write(menu, "#!/bin/sh\ngrep -F -f " + (folder_ / "choice") + "\n");
    std::filesystem::permissions(menu, std::filesystem::perms::owner_all);
    base_test::write(folder_ / "dunstrc",
                     "[global]\nformat = \"%s|%b\"\ndmenu = " + menu + "\ntimeout = 0\n");
    screen_ = std::make_unique<ChildProcess>(ChildProcess::Command{
        {"sh", "-c",
         "exec Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>" + (folder_ / "display")},
        {},
        folder_ / "xvfb.log"});
    waitFor([&] { return contentsOf(folder_ / "display").ends_with('\n'); });
    std::string display;
    std::ifstream(folder_ / "display") >> display;
    environment_ = {"DISPLAY=:" + display, "DBUS_SESSION_BUS_ADDRESS=" + daemon_.address(),
                    "HOME=" + folder_.path()};
    auto bus = connectTo(daemon_.address(), true, 5000);
    if (!bus) throw std::runtime_error(bus.error());
    bus_ = *std::move(bus);
    startServer();
    center_ = std::make_unique<DesktopNotificationCenter>(bus_.get(), bundle_);
    center_->setDelegate(delegate_);
  }

  void startServer() {
    server_ = std::make_unique<ChildProcess>(ChildProcess::Command{
        {"dunst", "-conf", folder_ / "dunstrc"}, environment_, folder_ / "dunst.log"});
    waitFor([&] { return dunstctl({"is-paused"}).starts_with("false"); });
  }
  void waitFor(const std::function<bool()>& done) {
    const gint64 end_us = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
    while (!done()) {
      ASSERT_LT(g_get_monotonic_time(), end_us)
          << contentsOf(folder_ / "dunst.log") << contentsOf(folder_ / "xvfb.log");
      while (g_main_context_iteration(nullptr, FALSE)) {
      }
    }
  }
  std::string dunstctl(const std::vector<std::string>& arguments) {
    const std::string output = folder_ / "dunstctl";
    std::filesystem::remove(output);
    std::vector<std::string> command = {"dunstctl"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess control({command, environment_, output});
    EXPECT_TRUE(control.waitForExit(10s));
    return contentsOf(output);
  }
  [[nodiscard]] bool isDisplayed(int count) {
    return dunstctl({"count", "displayed"}) == std::to_string(count) + "\n";
  }
  std::shared_ptr<UserNotification> deliver(const std::string& text) {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = text;
    notification->hasContentsAction = true;
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Open";
    notification->userInfo = {{"OpenPath", "/out/a.mp3"}};
    center_->deliverNotification(notification);
    return notification;
  }
  void choose(const std::string& entry) {
    base_test::write(folder_ / "choice", entry + "\n");
    dunstctl({"context"});
  }

  TemporaryFolder folder_;
  PrivateBus daemon_;
  std::vector<std::string> environment_;
  std::unique_ptr<ChildProcess> screen_;
  std::unique_ptr<ChildProcess> server_;
  LinuxBundle bundle_{"/nonexistent/RecordAudio.app", nullptr};
  ConnectionPtr bus_;
  std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
  std::unique_ptr<DesktopNotificationCenter> center_;
};

TEST_F(DunstTest, ShowsTheNotificationAndClosesIt) {
  const auto notification = deliver("Audio recording is saved.\n<b>& more</b>");
  waitFor([&] { return isDisplayed(1); });
  center_->removeDeliveredNotification(notification);
  waitFor([&] { return isDisplayed(0); });
  EXPECT_THAT(dunstctl({"history"}), HasSubstr("Record Audio"));
}

TEST_F(DunstTest, ButtonAndBodyReachTheDelegateWhileItIsShown) {
  const auto first = deliver("one");
  waitFor([&] { return isDisplayed(1); });
  choose("button]");
  waitFor([&] { return delegate_->activations.size() == 1; });
  center_->removeDeliveredNotification(first);
  waitFor([&] { return isDisplayed(0); });
  deliver("two");
  waitFor([&] { return isDisplayed(1); });
  choose("default]");
  waitFor([&] { return delegate_->activations.size() == 2; });
  EXPECT_THAT(delegate_->activations,
              ElementsAre(Type::kActionButtonClicked, Type::kContentsClicked));
}

TEST_F(DunstTest, AServerThatIsKilledBreaksNothing) {
  const auto notification = deliver("one");
  waitFor([&] { return isDisplayed(1); });
  server_->kill();
  center_->removeDeliveredNotification(notification);
  deliver("two");
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  startServer();
  deliver("three");
  waitFor([&] { return isDisplayed(1); });
}

}  // namespace
}  // namespace linux_host
