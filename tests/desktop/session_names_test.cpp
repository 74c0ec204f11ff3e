// SPDX-License-Identifier: MIT
#include "hosts/linux/power/session_names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "tests/desktop/desktop_fixture.h"

// Logging out on a bus whose session manager tells the program nothing.

namespace desktop_test {
namespace {

using linux_host::SessionNames;
using suite::ToolData;

const ToolData kJustBegun{1, "", "", "00:00"};
const ToolData kRunning{1, "", "", "00:01"};
const ToolData kEnded{0, "", "", ""};

class SessionNamesTest : public DesktopTest, public ::testing::WithParamInterface<const char*> {
 protected:
  ~SessionNamesTest() override { names_.reset(); }

  void logIn() {
    manager_ = connectAgain();
    ASSERT_NE(call(manager_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                   "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", GetParam(), 0U)),
              nullptr);
  }
  void logOut() {
    g_dbus_connection_close_sync(manager_.get(), nullptr, nullptr);
    ASSERT_TRUE(runUntil([&] { return !hasOwner(GetParam()); }));
  }
  // Waits until everything sent to the program has arrived.
  void settle() {
    for (int i = 0; i < 3; ++i) {
      call(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
           "GetId", nullptr);
    }
  }

  linux_host::ConnectionPtr manager_;
  int over_ = 0;
  std::unique_ptr<SessionNames> names_ =
      std::make_unique<SessionNames>(bus_.get(), [this] { ++over_; });
};

TEST_P(SessionNamesTest, ALogoutEndsTheRecordingThatRuns) {
  logIn();
  names_->toolDataDidChange(kJustBegun);
  names_->toolDataDidChange(kRunning);
  settle();
  EXPECT_EQ(over_, 0);
  logOut();
  EXPECT_TRUE(runUntil([&] { return over_ == 1; }));
}

TEST_P(SessionNamesTest, ASessionWithoutAManagerIsNotOver) {
  names_->toolDataDidChange(kRunning);
  settle();
  EXPECT_EQ(over_, 0);
  logIn();
  settle();
  EXPECT_EQ(over_, 0);
  logOut();
  EXPECT_TRUE(runUntil([&] { return over_ == 1; })) << "a session that began meanwhile";
}

TEST_P(SessionNamesTest, ALogoutAfterTheRecordingIsIgnored) {
  logIn();
  names_->toolDataDidChange(kRunning);
  settle();
  names_->toolDataDidChange(kEnded);
  logOut();
  settle();
  EXPECT_EQ(over_, 0);
}

TEST_P(SessionNamesTest, WithoutABusThereIsNothingToFollow) {
  SessionNames names(nullptr, [this] { ++over_; });
  names.toolDataDidChange(kRunning);
  names.toolDataDidChange(kEnded);
  EXPECT_EQ(over_, 0);
}

INSTANTIATE_TEST_SUITE_P(Managers, SessionNamesTest,
                         ::testing::Values("org.gnome.SessionManager", "org.xfce.SessionManager",
                                           "org.kde.ksmserver", "org.lxqt.session"),
                         [](const auto& manager) {
                           std::string name = manager.param;
                           std::replace(name.begin(), name.end(), '.', '_');
                           return name;
                         });

}  // namespace
}  // namespace desktop_test
