// SPDX-License-Identifier: MIT
#include "hosts/linux/workspace/folder_chooser.h"

#include <gmock/gmock.h>

#include <map>

#include "tests/desktop/desktop_fixture.h"

// Choosing a folder in the desktop's dialog, with several kinds of portals.

namespace desktop_test {
namespace {

using linux_host::FolderChooser;
using linux_host::VariantPtr;
using Outcome = FolderChooser::Outcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kRequest = "org.freedesktop.portal.Request";
constexpr const char* kChooserXml = R"xml(<node>
<interface name="org.freedesktop.portal.FileChooser">
<property name="version" type="u" access="read"/>
<method name="OpenFile"><arg type="s" direction="in"/><arg type="s" direction="in"/>
<arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method></interface>
<interface name="org.freedesktop.portal.Request"><method name="Close"/></interface></node>)xml";

// A portal with a user controlled by the test.
class FakePortal {
 public:
  FakePortal(GDBusConnection* bus, guint32 version)
      : bus_(bus), version_(version), node_(g_dbus_node_info_new_for_xml(kChooserXml, nullptr)) {
    static const GDBusInterfaceVTable kTable = {&onCall, &onVersion, nullptr, {}};
    chooser_ = g_dbus_connection_register_object(bus_, kPortalPath, node_->interfaces[0], &kTable,
                                                 this, nullptr, nullptr);
    name_ = g_bus_own_name_on_connection(bus_, kPortal, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                         nullptr, nullptr, nullptr);
  }
  ~FakePortal() {
    leave();
    if (dialog_ != 0) g_dbus_connection_unregister_object(bus_, dialog_);
    g_dbus_connection_unregister_object(bus_, chooser_);
    g_dbus_node_info_unref(node_);
  }
  FakePortal(const FakePortal&) = delete;
  FakePortal& operator=(const FakePortal&) = delete;

  void leave() {
    if (name_ != 0) g_bus_unown_name(name_);
    name_ = 0;
  }
  // 0 with the folders, 1 for Cancel, 2 for a dialog that broke.
  void respond(guint32 response, const std::vector<std::string>& uris = {}) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string& uri : uris) g_variant_builder_add(&list, "s", uri.c_str());
    GVariantBuilder results;
    g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&results, "{sv}", "uris", g_variant_builder_end(&list));
    g_dbus_connection_emit_signal(bus_, nullptr, request_.c_str(), kRequest, "Response",
                                  g_variant_new("(ua{sv})", response, &results), nullptr);
  }

  std::string refusal;             // the error that OpenFile answers with; empty: it opens a dialog
  bool hasOwnPaths = false;        // like portals before callers could name their requests
  std::vector<std::string> asked;  // "parent|title" of each dialog
  std::map<std::string, std::string> options;
  int closed = 0;

 private:
  static GVariant* onVersion(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar*, GError**, gpointer self) {
    return g_variant_new_uint32(static_cast<FakePortal*>(self)->version_);
  }
  static void onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                     const gchar* method, GVariant* arguments, GDBusMethodInvocation* invocation,
                     gpointer self) {
    auto& portal = *static_cast<FakePortal*>(self);
    if (std::string(method) == "Close") {
      ++portal.closed;
      g_dbus_method_invocation_return_value(invocation, nullptr);
    } else {
      portal.openFile(sender, arguments, invocation);
    }
  }
  void openFile(std::string sender, GVariant* arguments, GDBusMethodInvocation* invocation) {
    const gchar* parent = nullptr;
    const gchar* title = nullptr;
    GVariant* rawOptions = nullptr;
    g_variant_get(arguments, "(&s&s@a{sv})", &parent, &title, &rawOptions);
    const VariantPtr owned(rawOptions);
    asked.push_back(std::string(parent) + "|" + title);
    GVariantIter each;
    g_variant_iter_init(&each, rawOptions);
    const gchar* key = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_loop(&each, "{&sv}", &key, &value) != FALSE) {
      gchar* printed = g_variant_print(value, FALSE);
      options[key] = printed;
      g_free(printed);
    }
    const gchar* token = "";
    g_variant_lookup(rawOptions, "handle_token", "&s", &token);
    options.erase("handle_token");
    for (char& letter : sender) letter = letter == '.' ? '_' : letter;
    request_ = std::string(kPortalPath) + "/request/" +
               (hasOwnPaths ? "old/7" : sender.substr(1) + "/" + token);
    if (!refusal.empty()) {
      g_dbus_method_invocation_return_dbus_error(invocation, refusal.c_str(), "Not for you");
      return;
    }
    static const GDBusInterfaceVTable kTable = {&onCall, nullptr, nullptr, {}};
    dialog_ = g_dbus_connection_register_object(bus_, request_.c_str(), node_->interfaces[1],
                                                &kTable, this, nullptr, nullptr);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", request_.c_str()));
  }

  GDBusConnection* const bus_;
  const guint32 version_;
  GDBusNodeInfo* const node_;
  guint chooser_ = 0;
  guint dialog_ = 0;
  guint name_ = 0;
  std::string request_;
};

class FolderChooserTest : public DesktopTest {
 protected:
  ~FolderChooserTest() override {
    chooser_.reset();
    portal_.reset();
  }
  void startPortal(guint32 version = 4) {
    portal_ = std::make_unique<FakePortal>(client_.get(), version);
    ASSERT_TRUE(runUntil([&] { return hasOwner(kPortal); }));
  }
  void choose() {
    chooser_->choose("x11:1a", "Output folder", "/home/x/Mus\xc3\xadk",
                     [this](Outcome outcome, const std::string& path) {
                       outcomes_.emplace_back(outcome, path);
                     });
  }
  void openDialog() {
    startPortal();
    choose();
    ASSERT_TRUE(runUntil([&] { return !portal_->asked.empty(); }));
    // The call's own answer arrives before the user's action.
    hasOwner(kPortal);
  }
  bool isAnswered() {
    return runUntil([&] { return !outcomes_.empty(); });
  }

  std::unique_ptr<FakePortal> portal_;
  std::unique_ptr<FolderChooser> chooser_ = std::make_unique<FolderChooser>(bus_.get());
  std::vector<std::pair<Outcome, std::string>> outcomes_;
};

TEST_F(FolderChooserTest, TheDialogOpensAboveTheWindowAtTheFolder) {
  openDialog();
  EXPECT_THAT(portal_->asked, ElementsAre("x11:1a|Output folder"));
  EXPECT_THAT(portal_->options,
              UnorderedElementsAre(Pair("directory", "true"), Pair("modal", "true"),
                                   Pair("current_folder", "b'/home/x/Mus\\303\\255k'")));
  EXPECT_THAT(outcomes_, IsEmpty());
}

TEST_F(FolderChooserTest, TheUsersChoiceIsAPath) {
  openDialog();
  portal_->respond(0, {"file:///home/x/A%20%25%20b"});
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Pair(Outcome::kChosen, "/home/x/A % b")));
}

TEST_F(FolderChooserTest, APortalThatNamesTheRequestItselfIsUnderstoodToo) {
  startPortal();
  portal_->hasOwnPaths = true;
  choose();
  ASSERT_TRUE(runUntil([&] { return !portal_->asked.empty(); }));
  // It hears nothing at the portal's path until it listens there.
  ASSERT_TRUE(runUntil([&] {
    portal_->respond(0, {"file:///home/x"});
    return !outcomes_.empty();
  }));
  EXPECT_THAT(outcomes_, ElementsAre(Pair(Outcome::kChosen, "/home/x")));
}

TEST_F(FolderChooserTest, CancelIsNotAFailure) {
  openDialog();
  portal_->respond(1);
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Pair(Outcome::kCancelled, "")));
}

TEST_F(FolderChooserTest, ADialogThatBreaksAndAFolderWithoutAPathAreFailures) {
  openDialog();
  portal_->respond(2);
  ASSERT_TRUE(isAnswered());
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->asked.size() == 2; }));
  portal_->respond(0, {"sftp://host/music"});
  ASSERT_TRUE(runUntil([&] { return outcomes_.size() == 2; }));
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->asked.size() == 3; }));
  portal_->respond(0);
  ASSERT_TRUE(runUntil([&] { return outcomes_.size() == 3; }));
  for (const auto& outcome : outcomes_) EXPECT_THAT(outcome, Pair(Outcome::kUnavailable, ""));
}

TEST_F(FolderChooserTest, APortalThatRefusesOrLeavesIsAFailure) {
  startPortal();
  portal_->refusal = "org.freedesktop.portal.Error.NotAllowed";
  choose();
  ASSERT_TRUE(isAnswered());
  portal_->refusal.clear();
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->asked.size() == 2; }));
  portal_->leave();
  ASSERT_TRUE(runUntil([&] { return outcomes_.size() == 2; }));
  for (const auto& outcome : outcomes_) EXPECT_THAT(outcome, Pair(Outcome::kUnavailable, ""));
}

TEST_F(FolderChooserTest, APortalThatKnowsNoFoldersIsNotAsked) {
  startPortal(2);
  choose();
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Pair(Outcome::kUnavailable, "")));
  EXPECT_THAT(portal_->asked, IsEmpty());
}

TEST_F(FolderChooserTest, WithoutPortalOrBusThereIsNoDialog) {
  choose();
  ASSERT_TRUE(isAnswered());
  FolderChooser(nullptr).choose("", "", "", [&](Outcome outcome, const std::string& path) {
    outcomes_.emplace_back(outcome, path);
  });
  EXPECT_THAT(outcomes_,
              ElementsAre(Pair(Outcome::kUnavailable, ""), Pair(Outcome::kUnavailable, "")));
}

TEST_F(FolderChooserTest, TheDialogClosesWithTheChooserWithoutAnAnswer) {
  openDialog();
  chooser_.reset();
  EXPECT_TRUE(runUntil([&] { return portal_->closed == 1; }));
  EXPECT_THAT(outcomes_, IsEmpty());
}

}  // namespace
}  // namespace desktop_test
