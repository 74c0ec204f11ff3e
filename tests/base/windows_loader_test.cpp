// SPDX-License-Identifier: MIT
#include "hosts/linux/windows/windows_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "hosts/linux/windows/module_choice.h"
#include "tests/base/fake_windows_module.h"
#include "tests/base/temporary_folder.h"

// Which windows module is loaded, and what happens without one.

namespace linux_host {
namespace {

using base_test::Environment;
using base_test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Services : public WindowsServices {
  [[nodiscard]] std::string localizedString(const std::string& key) const override { return key; }
  [[nodiscard]] std::optional<std::string> outputLocation() override { return std::nullopt; }
  std::string setOutputLocation(const std::string&) override { return {}; }
};

class NoOwner : public platform::InterfaceOwner {
  void connectOutlet(const std::string&, const std::shared_ptr<platform::View>&) override {}
  void performAction(const std::string&, platform::View*) override {}
};

platform::Alert alert(std::vector<std::string> buttons) {
  return {
      platform::AlertStyle::kCritical, "Microphone muted", "Un-mute it.", std::move(buttons), {}};
}

TEST(WindowsLoaderTest, WithoutAScreenAlertsAreLoggedAndDismissedWithTheLastButton) {
  const Environment environment{
      {"DISPLAY", ""}, {"WAYLAND_DISPLAY", std::nullopt}, {"QT_QPA_PLATFORM", std::nullopt}};
  Services services;
  NoOwner owner;
  WindowsLoader windows(services, {"/nonexistent"});
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(windows.runModal(alert({})), platform::kAlertFirstButtonReturn);
  EXPECT_EQ(windows.runModal(alert({"Install", "Cancel"})), platform::kAlertFirstButtonReturn + 1);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Microphone muted: Un-mute it."));
  EXPECT_EQ(windows.loadWindow("AudioPreferencesWindow", owner), nullptr);
  EXPECT_FALSE(windows.linkColor());
  EXPECT_FALSE(windows.hasVisibleWindows());
  EXPECT_FALSE(windows.isModuleLoaded());
}

TEST(WindowsLoaderTest, ForeignModulesCountAsNoScreen) {
  const Environment environment{{"QT_QPA_PLATFORM", "offscreen"}};
  const TemporaryFolder folder;
  for (const char* name : {kQtModuleFileName, kGtkModuleFileName}) {
    base_test::write(folder / name, "no library");
  }
  Services services;
  WindowsLoader windows(services, {folder.path()});
  EXPECT_EQ(windows.runModal(alert({"A", "B"})), platform::kAlertFirstButtonReturn + 1);
  EXPECT_FALSE(windows.isModuleLoaded());
}

// What is loaded from a folder with modules that only say which they are.
class ModuleChoiceTest : public ::testing::Test {
 protected:
  void install(const char* fileName, const char* module) const {
    std::filesystem::copy_file(module, folder_ / fileName);
  }
  void installBoth() const {
    install(kGtkModuleFileName, FAKE_GTK_MODULE);
    install(kQtModuleFileName, FAKE_QT_MODULE);
  }
  std::string loaded() {
    WindowsLoader windows(services_, {"/nonexistent", folder_.path()});
    windows.runModal(alert({"A", "B"}));
    const auto color = windows.linkColor();
    if (!color) return "none";
    return *color == base_test::kLinksOfFakeGtk ? "gtk" : "qt";
  }
  static std::string on(const char* desktop) {
    return windowsModules("", desktop).front() == kGtkModuleFileName ? "gtk" : "qt";
  }

  const Environment environment_{{"QT_QPA_PLATFORM", "offscreen"},
                                 {"XDG_CURRENT_DESKTOP", std::nullopt},
                                 {"RECORD_AUDIO_WINDOWS", std::nullopt},
                                 {"FAKE_TOOLKIT_WITHOUT_SCREEN", std::nullopt}};
  const TemporaryFolder folder_;
  Services services_;
};

TEST_F(ModuleChoiceTest, GnomeAndItsKinGetGtkAndAllOthersQt) {
  for (const char* gnome : {"GNOME", "ubuntu:GNOME", "GNOME-Classic:GNOME", "GNOME-Flashback:GNOME",
                            "Unity", "Phosh:GNOME", "Pantheon", "Budgie:GNOME", "X-Cinnamon"}) {
    EXPECT_EQ(on(gnome), "gtk") << gnome;
  }
  for (const char* other : {"", "KDE", "LXQt", "XFCE", "MATE", "sway", ":", "::", "GNOMELIKE"}) {
    EXPECT_EQ(on(other), "qt") << other;
  }
}

TEST_F(ModuleChoiceTest, AWishCountsMoreThanTheDesktop) {
  EXPECT_THAT(windowsModules("qt", "GNOME"), ElementsAre(kQtModuleFileName, kGtkModuleFileName));
  EXPECT_THAT(windowsModules("gtk", "KDE"), ElementsAre(kGtkModuleFileName, kQtModuleFileName));
  EXPECT_THAT(windowsModules("motif", "KDE"), ElementsAre(kQtModuleFileName, kGtkModuleFileName));
}

TEST_F(ModuleChoiceTest, TheEnvironmentDecides) {
  installBoth();
  EXPECT_EQ(loaded(), "qt");
  const Environment gnome{{"XDG_CURRENT_DESKTOP", "ubuntu:GNOME"}};
  EXPECT_EQ(loaded(), "gtk");
  const Environment wish{{"RECORD_AUDIO_WINDOWS", "qt"}};
  EXPECT_EQ(loaded(), "qt");
}

TEST_F(ModuleChoiceTest, TheOtherModuleServesWhereOneIsMissing) {
  install(kGtkModuleFileName, FAKE_GTK_MODULE);
  const Environment plasma{{"XDG_CURRENT_DESKTOP", "KDE"}};
  EXPECT_EQ(loaded(), "gtk");
  const Environment wish{{"RECORD_AUDIO_WINDOWS", "qt"}};
  EXPECT_EQ(loaded(), "gtk");
}

TEST_F(ModuleChoiceTest, TheOtherModuleServesWhereOneCannotBeLoaded) {
  base_test::write(folder_ / kGtkModuleFileName, "no library");
  install(kQtModuleFileName, FAKE_QT_MODULE);
  const Environment gnome{{"XDG_CURRENT_DESKTOP", "GNOME"}};
  EXPECT_EQ(loaded(), "qt");
}

TEST_F(ModuleChoiceTest, TheOtherModuleServesWhereOneReachesNoScreen) {
  installBoth();
  const Environment gnome{{"XDG_CURRENT_DESKTOP", "GNOME"}, {"FAKE_TOOLKIT_WITHOUT_SCREEN", "gtk"}};
  EXPECT_EQ(loaded(), "qt");
}

TEST_F(ModuleChoiceTest, TheLogSaysWhatIsToBeInstalledWhereBothAreMissing) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(loaded(), "none");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("Install record-audio-gtk or record-audio-qt."));
}

}  // namespace
}  // namespace linux_host
