// SPDX-License-Identifier: MIT
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/linux/host/desktop_appearance.h"
#include "tests/base/fake_service.h"

namespace linux_host {
namespace {

using base_test::DesktopTest;
using base_test::FakeService;

constexpr const char* kSettings = "org.freedesktop.portal.Settings";
constexpr const char* kSettingsXml =
    R"(<node><interface name="org.freedesktop.portal.Settings"/></node>)";

class AppearanceTest : public DesktopTest {
 protected:
  void change(const char* space, const char* key) {
    portal_.emit("/org/freedesktop/portal/desktop", kSettings, "SettingChanged",
                 g_variant_new("(ssv)", space, key, g_variant_new_uint32(1)));
  }

  FakeService portal_{daemon_.address(), "org.freedesktop.portal.Desktop",
                      "/org/freedesktop/portal/desktop", kSettingsXml,
                      [](const std::string&, const std::string&) { return g_variant_new("()"); }};
};

TEST_F(AppearanceTest, TheFollowerOfThePortalsSettingsIsToldAtOnce) {
  AppearanceWatch watch(bus_.get());
  int changes = 0;
  watch.follow([&] { ++changes; });
  settle();  // the bus knows now what is followed
  change("org.freedesktop.appearance", "color-scheme");
  iterateUntil([&] { return changes == 1; });
  change("org.example.other", "color-scheme");
  change("org.freedesktop.appearance", "contrast");
  iterateUntil([&] { return changes == 2; });
  watch.follow({});
  change("org.freedesktop.appearance", "color-scheme");
  int later = 0;
  watch.follow([&] { ++later; });
  settle();
  change("org.freedesktop.appearance", "contrast");
  iterateUntil([&] { return later > 0; });
  EXPECT_EQ(changes, 2);
}

TEST_F(AppearanceTest, WithoutABusThereIsNothingToFollowButTheDesktopsSettings) {
  AppearanceWatch watch(nullptr);
  watch.follow([] { ADD_FAILURE(); });
  watch.follow({});
}

}  // namespace
}  // namespace linux_host
