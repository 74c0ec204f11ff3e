// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <map>

#include "hosts/linux/base/activation_tokens.h"
#include "hosts/linux/bus/tool_object.h"
#include "hosts/linux/workspace/workspace.h"
#include "tests/base/fake_service.h"
#include "tests/base/no_requests.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"

// The program's side of the desktop, with a private bus.

namespace linux_host {
namespace {

using base_test::connected;
using base_test::DesktopTest;
using base_test::Environment;
using base_test::FakeService;
using base_test::NoRequests;
using base_test::TemporaryFolder;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kFileManagerXml = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
  <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
</interface></node>)";

using WorkspaceTest = DesktopTest;

TEST_F(WorkspaceTest, RevealsFilesInTheFileManager) {
  FakeService manager(daemon_.address(), "org.freedesktop.FileManager1",
                      "/org/freedesktop/FileManager1", kFileManagerXml,
                      [](const std::string&, const std::string&) { return g_variant_new("()"); });
  DesktopWorkspace workspace(bus_.get(), [](const platform::ImagePtr&) { return ""; });
  workspace.activateFileViewerSelectingURLs({"file:///out/a%20b.mp3"});
  iterateUntil([&] { return !manager.calls.empty(); });
  EXPECT_THAT(manager.calls, ElementsAre("ShowItems(['file:///out/a%20b.mp3'], '')"));
}

// Showing it as an item would open the folder above.
TEST_F(WorkspaceTest, OpensAFolderInTheFileManager) {
  FakeService manager(daemon_.address(), "org.freedesktop.FileManager1",
                      "/org/freedesktop/FileManager1", kFileManagerXml,
                      [](const std::string&, const std::string&) { return g_variant_new("()"); });
  DesktopWorkspace workspace(
      bus_.get(), [](const platform::ImagePtr&) { return ""; },
      [] { return std::string("leave"); });
  const TemporaryFolder folder;
  EXPECT_TRUE(workspace.openFile(folder.path()));
  iterateUntil([&] { return !manager.calls.empty(); });
  EXPECT_THAT(manager.calls, ElementsAre("ShowFolders(['file://" + folder.path() + "'], 'leave')"));
}

TEST_F(WorkspaceTest, TheActivationTokenGoesToTheFileManager) {
  FakeService manager(daemon_.address(), "org.freedesktop.FileManager1",
                      "/org/freedesktop/FileManager1", kFileManagerXml,
                      [](const std::string&, const std::string&) { return g_variant_new("()"); });
  ActivationTokens tokens;
  DesktopWorkspace workspace(
      bus_.get(), [](const platform::ImagePtr&) { return ""; }, [&] { return tokens.take(); });
  tokens.give("leave");
  workspace.activateFileViewerSelectingURLs({"file:///out/a.mp3"});
  workspace.activateFileViewerSelectingURLs({"file:///out/a.mp3"});
  iterateUntil([&] { return manager.calls.size() == 2; });
  EXPECT_THAT(manager.calls, ElementsAre("ShowItems(['file:///out/a.mp3'], 'leave')",
                                         "ShowItems(['file:///out/a.mp3'], '')"));
}

constexpr const char* kPortalXml = R"(<node><interface name="org.freedesktop.portal.OpenURI">
  <method name="OpenFile"><arg type="s" direction="in"/><arg type="h" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="OpenURI"><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
</interface></node>)";

TEST_F(WorkspaceTest, OpensFilesAndAddressesThroughThePortal) {
  FakeService portal(
      daemon_.address(), "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
      kPortalXml,
      [](const std::string&, const std::string&) { return g_variant_new("(o)", "/request"); });
  const TemporaryFolder folder;
  base_test::write(folder / "a.mp3", "x");
  DesktopWorkspace workspace(bus_.get(), [](const platform::ImagePtr&) { return ""; });
  EXPECT_TRUE(workspace.openFile(folder / "a.mp3"));
  EXPECT_TRUE(workspace.openURL("https://example.org/"));
  EXPECT_FALSE(workspace.openFile(folder / "missing"));
  EXPECT_FALSE(workspace.openURL("no address"));
  iterateUntil([&] { return portal.calls.size() == 2; });
  EXPECT_THAT(portal.calls[0], testing::StartsWith("OpenFile('', 0"));
  EXPECT_THAT(portal.calls[1], testing::StartsWith("OpenURI('', 'https://example.org/'"));
}

TEST_F(WorkspaceTest, TheActivationTokenGoesToThePortal) {
  FakeService portal(
      daemon_.address(), "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
      kPortalXml,
      [](const std::string&, const std::string&) { return g_variant_new("(o)", "/request"); });
  DesktopWorkspace workspace(
      bus_.get(), [](const platform::ImagePtr&) { return ""; },
      [] { return std::string("leave"); });
  EXPECT_TRUE(workspace.openURL("https://example.org/"));
  iterateUntil([&] { return !portal.calls.empty(); });
  EXPECT_THAT(portal.calls[0], HasSubstr("{'activation_token': <'leave'>}"));
}

// A desktop whose default application for folders writes its argument into a file.
class DefaultApplicationTest : public DesktopTest {
 protected:
  DefaultApplicationTest() { std::filesystem::remove(opened()); }

  static std::string opened() { return std::string(std::getenv("XDG_DATA_HOME")) + "/opened"; }
  void expectOpened() {
    iterateUntil([] { return std::filesystem::exists(opened()); });
    EXPECT_EQ(base_test::contentsOf(opened()), folder_.path() + "\n");
    std::filesystem::remove(opened());
  }
  TemporaryFolder folder_;
};

TEST_F(DefaultApplicationTest, WithoutAFileManagerOnTheBusTheFolderIsOpened) {
  DesktopWorkspace workspace(bus_.get(), [](const platform::ImagePtr&) { return ""; });
  base_test::write(folder_ / "a.mp3", "x");
  workspace.activateFileViewerSelectingURLs({"file://" + (folder_ / "a.mp3")});
  expectOpened();
}

TEST_F(DefaultApplicationTest, OpensAFolderWithoutAFileManagerOrABus) {
  for (GDBusConnection* bus : {bus_.get(), static_cast<GDBusConnection*>(nullptr)}) {
    DesktopWorkspace workspace(bus, [](const platform::ImagePtr&) { return ""; });
    EXPECT_TRUE(workspace.openFile(folder_.path()));
    expectOpened();
  }
}

TEST_F(DefaultApplicationTest, WithoutABusTheFolderIsOpenedToo) {
  DesktopWorkspace workspace(nullptr, [](const platform::ImagePtr&) { return ""; });
  workspace.activateFileViewerSelectingURLs({"file://" + (folder_ / "a.mp3")});
  expectOpened();
  EXPECT_FALSE(workspace.openFile(folder_ / "a.nobody-opens-this"));
}

TEST(FileIconTest, SettingsEndAndAnImageWithoutAFileIsRefused) {
  DesktopWorkspace workspace(nullptr, [](const platform::ImagePtr& image) {
    return image->name == "known" ? "/icons/known.svg" : "";
  });
  const TemporaryFolder folder;
  const auto image = [](const char* name) {
    return std::make_shared<const platform::Image>(platform::Image{name});
  };
  EXPECT_TRUE(workspace.setIcon(image("known"), folder.path(), 0));
  EXPECT_TRUE(workspace.setIcon(nullptr, folder.path(), 0));
  EXPECT_FALSE(workspace.setIcon(image("unknown"), folder.path(), 0));
  workspace.finish(5000);
  // A workspace that is destroyed while an icon is being set.
  DesktopWorkspace(nullptr, [](const platform::ImagePtr&) {
    return "/x";
  }).setIcon(image("known"), folder.path(), 0);
}

TEST(PrivacySettingsTest, AreTheDesktopsOrThoseOfWhatIsInstalled) {
  const auto installed = [](std::set<std::string> programs) {
    return [programs](const std::string& program) { return programs.contains(program); };
  };
  EXPECT_THAT(
      privacySettingsCommand("ubuntu:GNOME", installed({"gnome-control-center", "pavucontrol"})),
      ElementsAre("gnome-control-center", "microphone"));
  EXPECT_THAT(privacySettingsCommand("XFCE", installed({"gnome-control-center", "pavucontrol"})),
              ElementsAre("pavucontrol"));
  EXPECT_THAT(privacySettingsCommand("KDE", installed({"systemsettings"})),
              ElementsAre("systemsettings", "kcm_pulseaudio"));
  EXPECT_THAT(privacySettingsCommand("GNOME", installed({})), IsEmpty());
}

using ToolObjectTest = DesktopTest;

// The launching desktop's token reaches the code that shows the window.
TEST_F(ToolObjectTest, TheActivationTokenArrivesBeforeTheRequest) {
  class Recorded : public NoRequests {
   public:
    void useActivationToken(const std::string& token) override { said.push_back(token); }
    void activate() override { said.emplace_back("activate"); }
    void open(const std::vector<std::string>&) override { said.emplace_back("open"); }
    std::vector<std::string> said;
  } requests;
  ToolObject object(requests);
  const ConnectionPtr server = connected(daemon_.address());
  const auto exported = object.exportOn(server.get());
  ASSERT_TRUE(exported) << exported.error();
  const auto call = [&](const char* method, const char* arguments) {
    g_dbus_connection_call(bus_.get(), g_dbus_connection_get_unique_name(server.get()), kObjectPath,
                           kApplicationInterface, method, g_variant_new_parsed(arguments, nullptr),
                           nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr, nullptr);
  };
  call("Activate", "({'activation-token': <'new'>, 'desktop-startup-id': <'old'>},)");
  call("Open", "(@as [], {'desktop-startup-id': <'old'>, 'activation-token': <''>})");
  call("Activate", "({'activation-token': <7>},)");
  call("Activate", "(@a{sv} {},)");
  iterateUntil([&] { return requests.said.size() == 6; });
  EXPECT_THAT(requests.said, ElementsAre("new", "activate", "old", "open", "activate", "activate"));
}

TEST_F(ToolObjectTest, PropertiesFollowTheToolAndChangesAreAnnounced) {
  NoRequests requests;
  ToolObject object(requests);
  const ConnectionPtr server = connected(daemon_.address());
  const auto exported = object.exportOn(server.get());
  ASSERT_TRUE(exported) << exported.error();
  EXPECT_FALSE(object.exportOn(server.get())) << "already there";

  std::vector<std::string> announced;
  const std::string name = g_dbus_connection_get_unique_name(server.get());
  const guint subscription = g_dbus_connection_signal_subscribe(
      bus_.get(), name.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged", kObjectPath,
      kToolDataInterface, G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
         GVariant* parameters, gpointer raw) {
        gchar* text = g_variant_print(parameters, FALSE);
        static_cast<std::vector<std::string>*>(raw)->push_back(text);
        g_free(text);
      },
      &announced, nullptr);
  settle();
  object.toolDataDidChange({1, "", "", ""});
  object.toolDataDidChange({1, "KorvelIconOn", "MenuIconOn", "00:\xff"});
  iterateUntil([&] { return announced.size() == 2; });
  EXPECT_EQ(announced[0], "('com.vantrel.korvel.ToolData1', {'ToolStatus': <1>}, [])");
  EXPECT_THAT(announced[1], AllOf(HasSubstr("'ToolIcon': <'KorvelIconOn'>"),
                                  HasSubstr("'MenuIcon': <'MenuIconOn'>"),
                                  HasSubstr("'MenuText': <'00:\ufffd'>")));

  std::string all;
  g_dbus_connection_call(
      bus_.get(), name.c_str(), kObjectPath, "org.freedesktop.DBus.Properties", "GetAll",
      g_variant_new("(s)", kToolDataInterface), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer raw) {
        const VariantPtr answer(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
        gchar* text = g_variant_print(answer.get(), FALSE);
        *static_cast<std::string*>(raw) = text;
        g_free(text);
      },
      &all);
  iterateUntil([&] { return !all.empty(); });
  EXPECT_THAT(all, AllOf(HasSubstr("'ToolStatus': <1>"), HasSubstr("'MenuIcon': <'MenuIconOn'>")));
  g_dbus_connection_signal_unsubscribe(bus_.get(), subscription);
}

}  // namespace
}  // namespace linux_host

namespace {

// GLib notices changes of these files only some time later, so they are there from the start.
void writeDefaultApplication(const std::string& data) {
  const std::string program = data + "/opener";
  const std::string result = data + "/opened";
  base_test::write(program, "#!/bin/sh\necho \"$1\" > " + result + ".tmp; mv " + result + ".tmp " +
                                result + "\n");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  base_test::write(data + "/applications/opener.desktop",
                   "[Desktop Entry]\nType=Application\nName=Opener\nExec=" + program +
                       " %f\nMimeType=inode/directory;\n");
  base_test::write(data + "/applications/mimeapps.list",
                   "[Default Applications]\ninode/directory=opener.desktop\n");
}

}  // namespace

int main(int argc, char** argv) {
  const base_test::TemporaryFolder data;
  writeDefaultApplication(data.path());
  // Set before GLib reads it for the first and only time.
  const base_test::Environment environment{{"XDG_DATA_HOME", data.path()},
                                           {"XDG_CONFIG_HOME", data.path()}};
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
