#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <map>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/bus/tool_object.h"
#include "hosts/linux/notifications/notification_center.h"
#include "hosts/linux/workspace/workspace.h"
#include "tests/base/glib_faults.h"
#include "tests/base/no_requests.h"
#include "tests/base/private_bus.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"

// The program's side of the desktop, against a bus of the test's own.

namespace linux_host {
namespace {

using base_test::Environment;
using base_test::GlibFaults;
using base_test::NoRequests;
using base_test::PrivateBus;
using base_test::TemporaryFolder;
using platform::UserNotification;
using platform::UserNotificationPtr;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

ConnectionPtr connected(const std::string& address) {
  std::string error;
  ConnectionPtr connection = connectTo(address, true, 5000, &error);
  EXPECT_NE(connection, nullptr) << error;
  return connection;
}

// An object on the bus that keeps what it is called with and answers as it is told.
class FakeService {
 public:
  using Answer = std::function<GVariant*(const std::string& method, const std::string& call)>;

  FakeService(const std::string& address, std::string name, const char* path, const char* xml,
              Answer answer)
      : connection_(connected(address)), name_(std::move(name)), answer_(std::move(answer)) {
    static const GDBusInterfaceVTable kCalls = {&FakeService::onCall, nullptr, nullptr, {}};
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(xml, nullptr);
    g_dbus_connection_register_object(connection_.get(), path, node->interfaces[0], &kCalls, this,
                                      nullptr, nullptr);
    g_dbus_node_info_unref(node);
    const VariantPtr owned(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name_.c_str(), 4U), nullptr, G_DBUS_CALL_FLAGS_NONE,
        5000, nullptr, nullptr));
    EXPECT_NE(owned, nullptr);
  }
  ~FakeService() { g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr); }
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  void emit(const char* path, const char* signal, GVariant* parameters) {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path, name_.c_str(), signal,
                                  parameters, nullptr);
  }

  std::vector<std::string> calls;  // "Method(arguments)"

 private:
  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                     const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                     gpointer raw) {
    auto& self = *static_cast<FakeService*>(raw);
    gchar* text = g_variant_print(parameters, FALSE);
    self.calls.push_back(std::string(method) + text);
    g_free(text);
    GVariant* answer = self.answer_(method, self.calls.back());
    if (answer == nullptr) {
      g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed",
                                                 "it does not want to");
    } else {
      g_dbus_method_invocation_return_value(invocation, answer);
    }
  }

  ConnectionPtr connection_;
  const std::string name_;
  const Answer answer_;
};

class DesktopTest : public ::testing::Test {
 protected:
  static void iterateUntil(const std::function<bool()>& done) {
    const gint64 end_us = g_get_monotonic_time() + 15 * G_USEC_PER_SEC;
    const guint wake = g_timeout_add(
        10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!done() && g_get_monotonic_time() < end_us) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(wake);
    ASSERT_TRUE(done());
  }
  // Everything that is on its way over the bus has arrived.
  void settle() {
    bool answered = false;
    g_dbus_connection_call(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
        "Ping", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
        [](GObject*, GAsyncResult*, gpointer flag) { *static_cast<bool*>(flag) = true; },
        &answered);
    iterateUntil([&] { return answered; });
  }

  bool hasOwner(const char* name) {
    const VariantPtr answer(g_dbus_connection_call_sync(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", name), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
        nullptr));
    const VariantPtr owned(g_variant_get_child_value(answer.get(), 0));
    return g_variant_get_boolean(owned.get()) != FALSE;
  }

  PrivateBus daemon_;
  ConnectionPtr bus_ = connected(daemon_.address());
};

constexpr const char* kNotificationsXml = R"(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="as" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/></method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
</interface></node>)";
constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";

class Delegate : public platform::UserNotificationCenterDelegate {
 public:
  bool userNotificationCenterShouldPresentNotification(platform::UserNotificationCenter&,
                                                       const UserNotificationPtr&) override {
    return present;
  }
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter& center, const UserNotificationPtr& notification) override {
    activations.emplace_back(notification, notification->activationType);
    if (removeWhenActivated) center.removeDeliveredNotification(notification);
  }
  bool present = true;
  bool removeWhenActivated = false;
  std::vector<std::pair<UserNotificationPtr, platform::UserNotificationActivationType>> activations;
};

class NotificationTest : public DesktopTest {
 protected:
  NotificationTest() { center_.setDelegate(delegate_); }

  void serve(std::vector<std::string> capabilities) {
    capabilities_ = std::move(capabilities);
    server_ = std::make_unique<FakeService>(
        daemon_.address(), "org.freedesktop.Notifications", kNotificationsPath, kNotificationsXml,
        [this](const std::string& method, const std::string&) -> GVariant* {
          if (method == "GetCapabilities") {
            GVariantBuilder list;
            g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
            for (const std::string& one : capabilities_) {
              g_variant_builder_add(&list, "s", one.c_str());
            }
            return g_variant_new("(as)", &list);
          }
          if (method == "Notify") return g_variant_new("(u)", nextId_++);
          return g_variant_new("()");
        });
  }
  [[nodiscard]] bool wasCalled(const std::string& prefix) const { return callsOf(prefix) > 0; }
  [[nodiscard]] long callsOf(const std::string& prefix) const {
    return std::count_if(server_->calls.begin(), server_->calls.end(),
                         [&](const std::string& call) { return call.starts_with(prefix); });
  }
  static UserNotificationPtr saved() {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = "Saved <here> & there";
    notification->hasContentsAction = true;
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Open";
    notification->soundName = platform::kUserNotificationDefaultSoundName;
    notification->userInfo = {{"OpenPath", "/out/a.mp3"}};
    return notification;
  }
  static UserNotificationPtr started() {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = "Starting";
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Cancel";
    notification->userInfo = {{"Cancel", "Cancel"}};
    return notification;
  }
  void deliverAndWait(const UserNotificationPtr& notification) {
    const long before = callsOf("Notify");
    center_.deliverNotification(notification);
    iterateUntil([&] { return callsOf("Notify") > before; });
    settle();
  }

  std::vector<std::string> capabilities_;
  guint32 nextId_ = 7;
  std::unique_ptr<FakeService> server_;
  LinuxBundle bundle_{"/nonexistent/RecordAudio.app", nullptr};
  std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
  DesktopNotificationCenter center_{bus_.get(), bundle_};
};

TEST_F(NotificationTest, IsShownWithItsButtonSoundAndHints) {
  serve({"actions", "body", "body-markup"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("'Record Audio', 0, 'com.vantrel.korvel.RecordAudio'"),
                    HasSubstr("'Saved &lt;here&gt; &amp; there'"),
                    HasSubstr("['default', 'Show', 'button', 'Open']"),
                    HasSubstr("'desktop-entry': <'com.vantrel.korvel.RecordAudio'>"),
                    HasSubstr("'category': <'transfer.complete'>"),
                    HasSubstr("'sound-name': <'message-new-instant'>")));
}

TEST_F(NotificationTest, AServerWithoutMarkupGetsPlainText) {
  serve({"body"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved <here> & there'"));
}

TEST_F(NotificationTest, AServerWithoutActionsGetsTheTextAlone) {
  serve({"body"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), testing::Not(HasSubstr("'default'")));
}

TEST_F(NotificationTest, StaysTenSecondsAndKeepsItsButtonWhenItIsClicked) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'resident': <true>"));
  EXPECT_TRUE(server_->calls.back().ends_with(", 10000)")) << server_->calls.back();
  auto error = started();
  error->hasActionButton = false;
  deliverAndWait(error);
  EXPECT_THAT(server_->calls.back(), testing::Not(HasSubstr("'resident'")));
}

// A server that draws a button for the default action, and closes what is clicked on.
TEST_F(NotificationTest, ABubbleAsksForNoClickAndHasNoButtonThatDoesNothing) {
  serve({"actions", "body"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("['button', 'Cancel']"));
  auto notification = saved();
  notification->informativeText = "Saved.\nClick here.";
  notification->details = "More.";
  deliverAndWait(notification);
  EXPECT_THAT(server_->calls.back(), AllOf(HasSubstr("'Saved.\\nMore.'"),
                                           HasSubstr("['default', 'Show', 'button', 'Open']")));
}

// Where there is no default action these start the program anew, which ends the recording.
TEST_F(NotificationTest, AServerWithAListIsAskedForTheClickAndMayHaveItAlways) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("['default', 'Show', 'button', 'Cancel']"));
  auto notification = saved();
  notification->informativeText = "Saved.\nClick here.";
  deliverAndWait(notification);
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved.\\nClick here.'"));
}

TEST_F(NotificationTest, AButtonThatHasDoneAllItCanTakesTheNotificationAway) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  deliverAndWait(saved());
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 8U, "button"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "button"));
  iterateUntil([&] { return wasCalled("CloseNotification(7,)"); });
  settle();
  EXPECT_EQ(callsOf("CloseNotification"), 1) << "the file can be opened again";
}

TEST_F(NotificationTest, AServerWithRoomForOneLineGetsTheTextAsThat) {
  serve({});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved <here> & there', ''"));
}

TEST_F(NotificationTest, ASilentOneKeepsTheServerSilent) {
  serve({"body", "sound"});
  auto silent = saved();
  silent->soundName.reset();
  deliverAndWait(silent);
  EXPECT_THAT(server_->calls.back(), HasSubstr("'suppress-sound': <true>"));
}

TEST_F(NotificationTest, CapabilitiesAreAskedOnce) {
  serve({"body"});
  deliverAndWait(saved());
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("GetCapabilities"), 1);
}

TEST_F(NotificationTest, BodyAndButtonReachTheDelegateAsLongAsItIsShown) {
  serve({"actions", "body"});
  const auto notification = saved();
  deliverAndWait(notification);
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "button"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "other"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 99U, "default"));
  iterateUntil([&] { return delegate_->activations.size() == 2; });
  settle();
  using Type = platform::UserNotificationActivationType;
  EXPECT_THAT(delegate_->activations,
              ElementsAre(std::pair(notification, Type::kContentsClicked),
                          std::pair(notification, Type::kActionButtonClicked)));
  server_->emit(kNotificationsPath, "NotificationClosed", g_variant_new("(uu)", 7U, 2U));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  settle();
  EXPECT_EQ(delegate_->activations.size(), 2U);
  center_.removeDeliveredNotification(notification);
  settle();
  EXPECT_EQ(callsOf("CloseNotification"), 0) << "the user closed it";
}

TEST_F(NotificationTest, SignalsWithOtherArgumentsAreIgnored) {
  const GlibFaults faults;
  serve({"actions", "body"});
  deliverAndWait(saved());
  const auto emit = [&](const char* signal, GVariant* arguments) {
    server_->emit(kNotificationsPath, signal, arguments);
  };
  emit("NotificationClosed", g_variant_new("(us)", 7U, "default"));
  emit("NotificationClosed", g_variant_new("(u)", 7U));
  emit("ActionInvoked", g_variant_new("(uu)", 7U, 1U));
  emit("ActionInvoked", nullptr);
  settle();
  EXPECT_THAT(delegate_->activations, IsEmpty());
  emit("ActionInvoked", g_variant_new("(us)", 7U, "default"));
  iterateUntil([&] { return delegate_->activations.size() == 1; });
  EXPECT_EQ(faults.count(), 0);
}

TEST_F(NotificationTest, TheDelegateMayRemoveWhatItIsCalledFor) {
  serve({"actions", "body"});
  delegate_->removeWhenActivated = true;
  deliverAndWait(saved());
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "button"));
  iterateUntil([&] { return wasCalled("CloseNotification(7,)"); });
}

TEST_F(NotificationTest, RemovalClosesItOnTheScreen) {
  serve({"body"});
  const auto notification = saved();
  deliverAndWait(notification);
  center_.removeDeliveredNotification(notification);
  center_.removeDeliveredNotification(notification);
  iterateUntil([&] { return wasCalled("CloseNotification"); });
  settle();
  EXPECT_EQ(callsOf("CloseNotification"), 1);
}

TEST_F(NotificationTest, OneRemovedBeforeTheServerNamedItIsClosedThen) {
  serve({"body"});
  deliverAndWait(saved());
  const auto second = saved();
  center_.deliverNotification(second);
  center_.removeDeliveredNotification(second);
  iterateUntil([&] { return wasCalled("CloseNotification(8,)"); });
}

TEST_F(NotificationTest, OneRemovedBeforeTheServerIsKnownIsNeverShown) {
  serve({"body"});
  const auto notification = saved();
  center_.deliverNotification(notification);
  center_.removeDeliveredNotification(notification);
  // The next one comes after whatever became of the first.
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("Notify"), 1);
}

TEST_F(NotificationTest, OneTheDelegateDoesNotPresentIsNotShown) {
  serve({"body"});
  delegate_->present = false;
  center_.deliverNotification(saved());
  settle();
  EXPECT_THAT(server_->calls, IsEmpty());
  delegate_->present = true;
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("Notify"), 1);
}

TEST_F(NotificationTest, WithoutAServerNothingBreaksAndItIsSaidOnce) {
  ::testing::internal::CaptureStderr();
  center_.deliverNotification(saved());
  center_.deliverNotification(saved());
  settle();
  settle();
  center_.removeDeliveredNotification(saved());
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(said, HasSubstr("Notifications are not shown"));
  EXPECT_EQ(said.find("Notifications are not shown"), said.rfind("Notifications are not shown"));
}

TEST_F(NotificationTest, AServerThatIsReplacedIsAskedAnew) {
  serve({"body"});
  const auto notification = saved();
  deliverAndWait(notification);
  server_.reset();
  iterateUntil([&] { return !hasOwner("org.freedesktop.Notifications"); });
  settle();
  serve({});
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("GetCapabilities"), 1);
  center_.removeDeliveredNotification(notification);
  settle();
  EXPECT_FALSE(wasCalled("CloseNotification")) << "that number is another server's";
}

TEST_F(NotificationTest, TheCenterMayGoWhileCallsAreUnderWay) {
  serve({"body"});
  {
    DesktopNotificationCenter shortLived(bus_.get(), bundle_);
    shortLived.deliverNotification(saved());
  }
  iterateUntil([&] { return wasCalled("GetCapabilities"); });
  settle();
}

TEST(NotificationWithoutBusTest, ShowsNothing) {
  const LinuxBundle bundle("/nonexistent/RecordAudio.app", nullptr);
  DesktopNotificationCenter center(nullptr, bundle);
  const auto notification = std::make_shared<UserNotification>();
  center.deliverNotification(notification);
  center.removeDeliveredNotification(notification);
}

constexpr const char* kFileManagerXml = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
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

constexpr const char* kPortalXml = R"(<node><interface name="org.freedesktop.portal.OpenURI">
  <method name="OpenFile"><arg type="s" direction="in"/><arg type="h" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="OpenURI"><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
</interface></node>)";

TEST_F(WorkspaceTest, OpensFilesAndAddressesByThePortal) {
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

// A desktop whose default application for what is opened writes its argument into a file.
class DefaultApplicationTest : public DesktopTest {
 protected:
  DefaultApplicationTest() {
    const std::string program = folder_ / "opener";
    base_test::write(program, "#!/bin/sh\necho \"$1\" > " + (folder_ / "opened.tmp") + "; mv " +
                                  (folder_ / "opened.tmp") + " " + (folder_ / "opened") + "\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    base_test::write(dataHome() + "/applications/opener.desktop",
                     "[Desktop Entry]\nType=Application\nName=Opener\nExec=" + program +
                         " %f\nMimeType=inode/directory;\n");
    base_test::write(dataHome() + "/applications/mimeapps.list",
                     "[Default Applications]\ninode/directory=opener.desktop\n");
  }
  // GLib reads it once a process; main() below has set it.
  static std::string dataHome() { return std::getenv("XDG_DATA_HOME"); }
  TemporaryFolder folder_;
};

TEST_F(DefaultApplicationTest, WithoutAFileManagerOnTheBusTheFolderIsOpened) {
  DesktopWorkspace workspace(bus_.get(), [](const platform::ImagePtr&) { return ""; });
  base_test::write(folder_ / "a.mp3", "x");
  workspace.activateFileViewerSelectingURLs({"file://" + (folder_ / "a.mp3")});
  iterateUntil([&] { return std::filesystem::exists(folder_ / "opened"); });
  EXPECT_EQ(base_test::contentsOf(folder_ / "opened"), folder_.path() + "\n");
}

TEST_F(DefaultApplicationTest, WithoutABusTheFolderIsOpenedToo) {
  DesktopWorkspace workspace(nullptr, [](const platform::ImagePtr&) { return ""; });
  workspace.activateFileViewerSelectingURLs({"file://" + (folder_ / "a.mp3")});
  iterateUntil([&] { return std::filesystem::exists(folder_ / "opened"); });
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
  // One that goes while its icon is being set.
  DesktopWorkspace(nullptr, [](const platform::ImagePtr&) {
    return "/x";
  }).setIcon(image("known"), folder.path(), 0);
}

TEST(PrivacySettingsTest, AreThoseOfTheDesktopElseOfWhatIsInstalled) {
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

TEST_F(ToolObjectTest, PropertiesFollowTheToolAndChangesAreAnnounced) {
  NoRequests requests;
  ToolObject object(requests);
  const ConnectionPtr server = connected(daemon_.address());
  std::string error;
  ASSERT_TRUE(object.exportOn(server.get(), &error)) << error;
  EXPECT_FALSE(object.exportOn(server.get(), &error)) << "already there";

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

int main(int argc, char** argv) {
  const base_test::TemporaryFolder data;
  // Before GLib looks at it for the first and only time.
  const base_test::Environment environment{{"XDG_DATA_HOME", data.path()},
                                           {"XDG_CONFIG_HOME", data.path()}};
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
