// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "hosts/linux/bus/desktop_setting.h"
#include "hosts/linux/permission/desktop_permission.h"
#include "tests/support/child_process.h"
#include "tests/support/private_pipewire.h"

namespace linux_host {
namespace {

using platform::AuthorizationStatus;
using test_support::PrivatePipeWire;

constexpr const char* kSchema = R"(<schemalist>
  <schema id="org.gnome.desktop.privacy" path="/org/gnome/desktop/privacy/">
    <key name="disable-microphone" type="b"><default>false</default></key>
  </schema>
  <schema id="org.gnome.desktop.interface" path="/org/gnome/desktop/interface/">
    <key name="color-scheme" type="u"><default>1</default></key>
  </schema>
  <schema id="org.gnome.desktop.a11y.interface">
    <key name="high-contrast" type="b"><default>true</default></key>
  </schema>
</schemalist>
)";

// A desktop that has the switch, independent of this machine, and settings of unexpected types.
class MicrophoneSwitchTest : public testing::Test {
 protected:
  MicrophoneSwitchTest() {
    const std::string schemas = server_.directory() + "/data/glib-2.0/schemas";
    std::filesystem::create_directories(schemas);
    std::ofstream(schemas + "/privacy.gschema.xml") << kSchema;
    test_support::ChildProcess compiler({{"glib-compile-schemas", schemas}, {}, {}});
    EXPECT_EQ(compiler.waitForExit(std::chrono::seconds(10)), 0);
    setenv("XDG_DATA_DIRS", (server_.directory() + "/data").c_str(), 1);
  }

  void setSwitch(bool isOff) {
    const std::string folder = server_.configHome() + "/glib-2.0/settings";
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/keyfile")
        << "[org/gnome/desktop/privacy]\ndisable-microphone=" << (isOff ? "true" : "false") << "\n";
  }

  static PrivatePipeWire::Options folders() {
    PrivatePipeWire::Options options;
    options.startDaemon = false;
    options.sessionBus = false;
    return options;
  }

  PrivatePipeWire server_{folders()};
};

// A single test, because GLib keeps the schemas and the settings file of a process's first access.
TEST_F(MicrophoneSwitchTest, DeniesAllProgramsWhenItIsOffAndIgnoresOddSettings) {
  setSwitch(true);
  DesktopMicrophonePermission permission([]() -> GDBusConnection* { return nullptr; });
  EXPECT_TRUE(permission.isKnown());
  EXPECT_EQ(permission.status(), AuthorizationStatus::kDenied);
  setSwitch(false);
  EXPECT_TRUE(test_support::waitUntil([&] {
    g_main_context_iteration(nullptr, FALSE);
    return permission.status() == AuthorizationStatus::kAuthorized;
  }));

  EXPECT_NE(
      desktopSetting("org.gnome.desktop.privacy", "disable-microphone", G_VARIANT_TYPE_BOOLEAN),
      nullptr);
  EXPECT_EQ(desktopSetting("org.gnome.desktop.interface", "color-scheme", G_VARIANT_TYPE_STRING),
            nullptr)
      << "of another type";
  EXPECT_EQ(
      desktopSetting("org.gnome.desktop.a11y.interface", "high-contrast", G_VARIANT_TYPE_BOOLEAN),
      nullptr)
      << "that lies nowhere";
}

}  // namespace
}  // namespace linux_host
