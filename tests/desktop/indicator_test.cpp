// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <png.h>
#include <unistd.h>

#include "tests/desktop/shown_indicator.h"

// The indicator as a tray sees it: over the bus, from another connection.

namespace desktop_test {
namespace {

using linux_host::VariantPtr;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr const char* kItem = "org.kde.StatusNotifierItem";
constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kMenu = "com.canonical.dbusmenu";
constexpr const char* kMenuPath = "/MenuBar";
constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";

std::string itemName() {
  return "org.kde.StatusNotifierItem-" + std::to_string(getpid()) + "-1";
}

// The watcher with which icons register, for its lifetime.
class Watcher {
 public:
  explicit Watcher(linux_host::ConnectionPtr connection) : connection_(std::move(connection)) {
    static const GDBusInterfaceVTable kCalls = {onCall, nullptr, nullptr, {}};
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(
        R"(<node><interface name="org.kde.StatusNotifierWatcher">
           <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
           </interface></node>)",
        nullptr);
    g_dbus_connection_register_object(connection_.get(), "/StatusNotifierWatcher",
                                      node->interfaces[0], &kCalls, this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    name_ = g_bus_own_name_on_connection(connection_.get(), kWatcher, G_BUS_NAME_OWNER_FLAGS_NONE,
                                         nullptr, nullptr, nullptr, nullptr);
  }
  ~Watcher() {
    g_bus_unown_name(name_);
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  std::vector<std::string> registered;

 private:
  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                     GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self) {
    const gchar* service = nullptr;
    g_variant_get(parameters, "(&s)", &service);
    static_cast<Watcher*>(self)->registered.emplace_back(service);
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }
  const linux_host::ConnectionPtr connection_;
  guint name_ = 0;
};

// The signals that another connection receives, as "Interface.Signal(arguments)".
class Ear {
 public:
  explicit Ear(GDBusConnection* connection) : connection_(connection) {
    subscription_ = g_dbus_connection_signal_subscribe(
        connection, nullptr, nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar* interface,
           const gchar* signal, GVariant* parameters, gpointer self) {
          gchar* text = g_variant_print(parameters, FALSE);
          static_cast<Ear*>(self)->heard.push_back(std::string(interface) + "." + signal + text);
          g_free(text);
        },
        this, nullptr);
  }
  ~Ear() { g_dbus_connection_signal_unsubscribe(connection_, subscription_); }
  Ear(const Ear&) = delete;
  Ear& operator=(const Ear&) = delete;

  [[nodiscard]] std::vector<std::string> from(const std::string& interface) const {
    std::vector<std::string> found;
    for (const std::string& one : heard) {
      if (one.starts_with(interface + ".")) found.push_back(one.substr(interface.size() + 1));
    }
    return found;
  }
  std::vector<std::string> heard;

 private:
  GDBusConnection* const connection_;
  guint subscription_;
};

class TrayIconTest : public IndicatorTest {
 protected:
  std::string item(const char* name) {
    return property(client_.get(), itemName(), kItemPath, kItem, name);
  }
  void showAndWait() {
    show();
    ASSERT_TRUE(runUntil([&] { return hasOwner(itemName()); }));
  }
  // Calls the menu; the answer as GVariant text.
  std::string menuCall(const char* method, GVariant* arguments) {
    std::string error;
    const VariantPtr answer =
        call(client_.get(), itemName(), kMenuPath, kMenu, method, arguments, &error);
    if (answer == nullptr) return "error: " + error;
    gchar* printed = g_variant_print(answer.get(), FALSE);
    std::string text = printed;
    g_free(printed);
    return text;
  }
  std::string layout() { return menuCall("GetLayout", g_variant_new("(iias)", 0, -1, nullptr)); }
  // The id of the menu line with that label.
  int idOf(const std::string& label) {
    for (int id = 1; id < 20; ++id) {
      const std::string text = menuCall("GetProperty", g_variant_new("(is)", id, "label"));
      if (text.find("'" + label + "'") != std::string::npos) return id;
    }
    ADD_FAILURE() << "The menu has no line " << label << " in " << layout();
    return 0;
  }
  bool isEnabled(int id) {
    return menuCall("GetProperty", g_variant_new("(is)", id, "enabled")) == "(<true>,)";
  }
  std::string choose(int id, const char* event = "clicked") {
    return menuCall("Event", g_variant_new("(isvu)", id, event, g_variant_new_string(""), 0U));
  }
  // Waits until every signal emitted so far has passed the bus and arrived.
  void settle() {
    call(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
         "GetId", nullptr);
    hasOwner(itemName());
  }
};

TEST_F(TrayIconTest, NothingIsOfferedWhileHidden) {
  EXPECT_FALSE(hasOwner(itemName()));
  EXPECT_THAT(property(client_.get(), g_dbus_connection_get_unique_name(bus_.get()), kItemPath,
                       kItem, "Id"),
              HasSubstr("error: "));
}

TEST_F(TrayIconTest, SaysWhatItIs) {
  showAndWait();
  EXPECT_EQ(item("Id"), "'record-audio'");
  EXPECT_EQ(item("Title"), "'[Record Audio]'");
  EXPECT_EQ(item("Category"), "'ApplicationStatus'");
  EXPECT_EQ(item("Status"), "'Active'");
  EXPECT_EQ(item("ItemIsMenu"), "false");
  EXPECT_EQ(item("Menu"), "'/MenuBar'");
  EXPECT_EQ(item("IconThemePath"), std::string("'") + RA_BUILT_ICONS + "'");
}

TEST_F(TrayIconTest, IconFollowsTheDockIcon) {
  showAndWait();
  EXPECT_EQ(item("IconName"), "'com.vantrel.korvel.RecordAudio'");
  setIcon("ActiveIcon.icns");
  EXPECT_EQ(item("IconName"), "'com.vantrel.korvel.RecordAudio-active'");
  setIcon(platform::kImageNameApplicationIcon);
  EXPECT_EQ(item("IconName"), "'com.vantrel.korvel.RecordAudio'");
}

// The built icon as read by libpng, as ARGB without premultiplication.
std::vector<unsigned char> builtIcon(const char* name, int size_px) {
  const std::string size = std::to_string(size_px);
  const std::string path =
      std::string(RA_BUILT_ICONS) + "/hicolor/" + size + "x" + size + "/apps/" + name + ".png";
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0) << path;
  image.format = PNG_FORMAT_ARGB;
  std::vector<unsigned char> bytes(PNG_IMAGE_SIZE(image));
  EXPECT_NE(png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr), 0);
  return bytes;
}

TEST_F(TrayIconTest, PixmapsAreTheIconAtEverySizeForTraysWithoutThemes) {
  showAndWait();
  setIcon("ActiveIcon.icns");
  const VariantPtr answer =
      call(client_.get(), itemName(), kItemPath, "org.freedesktop.DBus.Properties", "Get",
           g_variant_new("(ss)", kItem, "IconPixmap"));
  ASSERT_NE(answer, nullptr);
  GVariantIter* each = nullptr;
  const VariantPtr boxed(g_variant_get_child_value(answer.get(), 0));
  const VariantPtr list(g_variant_get_variant(boxed.get()));
  g_variant_get(list.get(), "a(iiay)", &each);
  std::vector<int> sizes;
  gint32 width = 0;
  gint32 height = 0;
  GVariant* bytes = nullptr;
  while (g_variant_iter_loop(each, "(ii@ay)", &width, &height, &bytes)) {
    sizes.push_back(width);
    EXPECT_EQ(width, height);
    gsize count = 0;
    const auto* argb =
        static_cast<const unsigned char*>(g_variant_get_fixed_array(bytes, &count, 1));
    EXPECT_EQ(std::vector<unsigned char>(argb, argb + count),
              builtIcon("com.vantrel.korvel.RecordAudio-active", width));
  }
  g_variant_iter_free(each);
  EXPECT_THAT(sizes, ElementsAre(16, 22, 24, 32, 48));
}

TEST_F(TrayIconTest, ToolTipShowsTheRunningTime) {
  showAndWait();
  EXPECT_EQ(item("ToolTip"), "('', [], '[Record Audio]', '')");
  record("00:07");
  EXPECT_EQ(item("ToolTip"), "('', [], '[Record Audio]', '00:07')");
}

TEST_F(TrayIconTest, ToolTipHasOneMoreLineForARemark) {
  showAndWait();
  record("00:07");
  indicator_->setRemark("Quiet & <dark>");
  EXPECT_EQ(item("ToolTip"), "('', [], '[Record Audio]', '00:07\\nQuiet &amp; &lt;dark&gt;')");
  indicator_->setRemark("");
  EXPECT_EQ(item("ToolTip"), "('', [], '[Record Audio]', '00:07')");
}

TEST_F(TrayIconTest, SignalsChangesToTheTrayAndNothingElse) {
  showAndWait();
  Ear ear(client_.get());
  settle();
  ear.heard.clear();
  setIcon("ActiveIcon.icns");
  setIcon("ActiveIcon.icns");
  record("00:01");
  record("00:01");
  settle();
  EXPECT_THAT(ear.from(kItem),
              ElementsAre("NewIcon()", "NewToolTip()", "XAyatanaNewLabel('00:01', '00:00')"));
}

TEST_F(TrayIconTest, ServesWhatOnlySomeTraysAskFor) {
  showAndWait();
  EXPECT_EQ(item("IconAccessibleDesc"), "'[Record Audio]'");
  EXPECT_EQ(item("AttentionAccessibleDesc"), "'[Record Audio]'");
  EXPECT_EQ(item("XAyatanaLabel"), "''");
  EXPECT_EQ(item("XAyatanaOrderingIndex"), "0");
  record("00:07");
  EXPECT_EQ(item("XAyatanaLabel"), "'00:07'");
  EXPECT_EQ(item("XAyatanaLabelGuide"), "'00:00'");
  record("01:00:07");
  EXPECT_EQ(item("XAyatanaLabel"), "'01:00:07'");
  EXPECT_EQ(item("XAyatanaLabelGuide"), "'00:00:00'");
}

// A tray that asks for all properties, and notes whether it was answered or refused.
class Asked {
 public:
  explicit Asked(GDBusConnection* connection) {
    g_dbus_connection_call(
        connection, itemName().c_str(), kItemPath, "org.freedesktop.DBus.Properties", "GetAll",
        g_variant_new("(s)", kItem), G_VARIANT_TYPE("(a{sv})"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer self) {
          auto& asked = *static_cast<Asked*>(self);
          asked.isOver = true;
          asked.answer.reset(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
        },
        this);
  }
  Asked(const Asked&) = delete;
  Asked& operator=(const Asked&) = delete;

  bool isOver = false;
  VariantPtr answer;
};

// GNOME's tray drops properties that it gets before the bus has named the owner.
TEST_F(TrayIconTest, GetAllIsAnsweredOnceTheBusHasHadTimeToAnnounceTheName) {
  showAndWait();
  Asked asked(client_.get());
  EXPECT_EQ(item("Id"), "'record-audio'");
  settle();
  EXPECT_FALSE(asked.isOver);
  record("00:07");
  ASSERT_TRUE(runUntil([&] { return asked.isOver; }));
  ASSERT_NE(asked.answer, nullptr);
  const VariantPtr all(g_variant_get_child_value(asked.answer.get(), 0));
  EXPECT_EQ(g_variant_n_children(all.get()), 21U);
  const gchar* label = nullptr;
  ASSERT_TRUE(g_variant_lookup(all.get(), "XAyatanaLabel", "&s", &label));
  EXPECT_STREQ(label, "00:07");
}

TEST_F(TrayIconTest, APendingGetAllIsAnsweredWhenTheProgramEnds) {
  showAndWait();
  Asked asked(client_.get());
  EXPECT_EQ(item("Id"), "'record-audio'");
  ASSERT_FALSE(asked.isOver);
  indicator_.reset();
  ASSERT_TRUE(runUntil([&] { return asked.isOver; }));
  EXPECT_NE(asked.answer, nullptr);
}

TEST_F(TrayIconTest, ChangesThatCancelEachOtherAreNotSignalled) {
  showAndWait();
  record("00:01");
  settle();
  Ear ear(client_.get());
  settle();
  ear.heard.clear();
  setIcon("ActiveIcon.icns");
  setIcon(platform::kImageNameApplicationIcon);
  settle();
  EXPECT_THAT(ear.from(kItem), IsEmpty());
}

// A tray asks for changes a moment after it was told of them, and logs an error when nobody
// answers.
TEST_F(TrayIconTest, LeavesWithoutASignalAndStillAnswersCallsOnTheirWay) {
  showAndWait();
  record("00:01");
  setIcon("ActiveIcon.icns");
  Ear ear(client_.get());
  settle();
  ear.heard.clear();
  setIcon(platform::kImageNameApplicationIcon);
  rest();
  hide();
  const std::string us = g_dbus_connection_get_unique_name(bus_.get());
  const auto late = [&](const char* name) {
    return property(client_.get(), us, kItemPath, kItem, name);
  };
  ASSERT_TRUE(runUntil([&] { return !hasOwner(itemName()); }));
  EXPECT_THAT(ear.from(kItem), IsEmpty());
  EXPECT_EQ(late("IconName"), "'com.vantrel.korvel.RecordAudio'");
  EXPECT_EQ(property(client_.get(), us, kMenuPath, kMenu, "Version"), "3");
  // Then the item is gone, so that a tray that comes later does not find it.
  EXPECT_TRUE(runUntil([&] { return late("IconName").starts_with("error: "); }));
  EXPECT_TRUE(runUntil([&] {
    return property(client_.get(), us, kMenuPath, kMenu, "Version").starts_with("error: ");
  }));
}

TEST_F(TrayIconTest, LeavesOnlyAfterTheTrayHasHadTimeForTheLastChange) {
  showAndWait();
  record("00:01");
  settle();
  hide();
  EXPECT_TRUE(indicator_->isLeaving());
  EXPECT_TRUE(hasOwner(itemName()));
  EXPECT_TRUE(runUntil([&] { return !indicator_->isLeaving(); }));
  EXPECT_TRUE(runUntil([&] { return !hasOwner(itemName()); }));
}

TEST_F(TrayIconTest, StaysIfShownAgainWhileLeaving) {
  showAndWait();
  hide();
  show();
  ASSERT_TRUE(runUntil([&] { return hasOwner(itemName()); }));
  bool isOver = false;
  const guint timer = g_timeout_add(
      1500,
      [](gpointer over) -> gboolean {
        *static_cast<bool*>(over) = true;
        return FALSE;
      },
      &isOver);
  EXPECT_TRUE(runUntil([&] { return isOver; }));
  if (!isOver) g_source_remove(timer);
  EXPECT_EQ(item("Id"), "'record-audio'");
}

TEST_F(TrayIconTest, MenuBeginsWithTheRunningTime) {
  showAndWait();
  record("01:02");
  EXPECT_EQ(idOf("01:02"), 1);
  EXPECT_FALSE(isEnabled(1));
  EXPECT_TRUE(isEnabled(idOf("[Stop]")));
  EXPECT_TRUE(isEnabled(idOf("[Cancel]")));
  EXPECT_TRUE(isEnabled(idOf("[Stop and Open Preferences…]")));
  EXPECT_TRUE(isEnabled(idOf("[Quit]")));
}

TEST_F(TrayIconTest, MenuAtRestOffersNeitherStopNorCancel) {
  showAndWait();
  EXPECT_EQ(idOf("[Record Audio]"), 1);
  EXPECT_FALSE(isEnabled(idOf("[Stop]")));
  EXPECT_FALSE(isEnabled(idOf("[Cancel]")));
  EXPECT_TRUE(isEnabled(idOf("[Preferences…]")));
  EXPECT_TRUE(isEnabled(idOf("[Quit]")));
  choose(idOf("[Stop]"));
  EXPECT_THAT(requests_.received, IsEmpty());
}

TEST_F(TrayIconTest, MenuTextsWithUnderscoresMarkNoKey) {
  showAndWait();
  record("a_b");
  EXPECT_THAT(layout(), HasSubstr("'a__b'"));
}

TEST_F(TrayIconTest, RunningTimeChangesOneLineAndNotTheMenu) {
  showAndWait();
  record("00:01");
  Ear ear(client_.get());
  settle();
  ear.heard.clear();
  record("00:02");
  settle();
  ASSERT_THAT(ear.from(kMenu), SizeIs(1));
  EXPECT_THAT(ear.from(kMenu).front(),
              HasSubstr("ItemsPropertiesUpdated([(1, {'label': <'00:02'>"));
}

TEST_F(TrayIconTest, AnswersEverythingThatTraysAskOfAMenu) {
  showAndWait();
  record("00:01");
  EXPECT_THAT(layout(), HasSubstr("'children-display': <'submenu'>"));
  EXPECT_THAT(layout(), HasSubstr("'type': <'separator'>"));
  EXPECT_THAT(menuCall("GetLayout", g_variant_new("(iias)", 0, 0, nullptr)),
              Not(HasSubstr("[Stop]")));
  EXPECT_THAT(menuCall("GetGroupProperties", g_variant_new("(aias)", nullptr, nullptr)),
              HasSubstr("'[Quit]'"));
  GVariantBuilder ids;
  g_variant_builder_init(&ids, G_VARIANT_TYPE("ai"));
  g_variant_builder_add(&ids, "i", 1);
  g_variant_builder_add(&ids, "i", 99);
  EXPECT_EQ(menuCall("GetGroupProperties", g_variant_new("(aias)", &ids, nullptr)),
            "([(1, {'label': <'00:01'>, 'enabled': <false>, 'visible': <true>})],)");
  EXPECT_EQ(menuCall("AboutToShow", g_variant_new("(i)", 0)), "(false,)");
  EXPECT_EQ(menuCall("AboutToShowGroup", g_variant_new("(ai)", nullptr)), "([], [])");
  EXPECT_THAT(menuCall("GetProperty", g_variant_new("(is)", 99, "label")), HasSubstr("error: "));
  EXPECT_EQ(property(client_.get(), itemName(), kMenuPath, kMenu, "Version"), "3");
  EXPECT_EQ(property(client_.get(), itemName(), kMenuPath, kMenu, "Status"), "'normal'");
}

TEST_F(TrayIconTest, EachChoiceSendsTheRequestOfItsName) {
  showAndWait();
  record("00:01");
  for (const char* label : {"[Stop]", "[Cancel]", "[Stop and Open Preferences…]", "[Quit]"}) {
    EXPECT_EQ(choose(idOf(label)), "()");
  }
  EXPECT_THAT(requests_.received, ElementsAre("stop", "cancel", "preferences", "quit"));
}

TEST_F(TrayIconTest, HoveringAndTheTimeLineChooseNothing) {
  showAndWait();
  record("00:01");
  choose(idOf("[Stop]"), "hovered");
  choose(1);
  choose(99);
  EXPECT_THAT(requests_.received, IsEmpty());
}

TEST_F(TrayIconTest, AMenuChoiceMayRemoveTheIcon) {
  showAndWait();
  record("00:01");
  requests_.onAction = [this](const std::string&) { hide(); };
  GVariantBuilder events;
  g_variant_builder_init(&events, G_VARIANT_TYPE("a(isvu)"));
  const int stop = idOf("[Stop]");
  const int quit = idOf("[Quit]");
  g_variant_builder_add(&events, "(isvu)", stop, "clicked", g_variant_new_string(""), 0U);
  g_variant_builder_add(&events, "(isvu)", quit, "clicked", g_variant_new_string(""), 0U);
  EXPECT_EQ(menuCall("EventGroup", g_variant_new("(a(isvu))", &events)), "([],)");
  EXPECT_THAT(requests_.received, ElementsAre("stop", "quit"));
  EXPECT_TRUE(runUntil([&] { return !hasOwner(itemName()); }));
}

TEST_F(TrayIconTest, AClickCountsAsADockClickAndOtherButtonsDoNot) {
  showAndWait();
  const auto click = [&](const char* method) {
    return call(client_.get(), itemName(), kItemPath, kItem, method, g_variant_new("(ii)", 3, 4));
  };
  EXPECT_NE(click("SecondaryActivate"), nullptr);
  EXPECT_NE(click("ContextMenu"), nullptr);
  EXPECT_THAT(requests_.received, IsEmpty());
  EXPECT_NE(click("Activate"), nullptr);
  EXPECT_THAT(requests_.received, ElementsAre("activate"));
}

TEST_F(TrayIconTest, TheActivationTokenArrivesBeforeTheClick) {
  showAndWait();
  call(client_.get(), itemName(), kItemPath, kItem, "ProvideXdgActivationToken",
       g_variant_new("(s)", "leave"));
  call(client_.get(), itemName(), kItemPath, kItem, "Activate", g_variant_new("(ii)", 0, 0));
  EXPECT_THAT(requests_.received, ElementsAre("token leave", "activate"));
}

TEST_F(TrayIconTest, RegistersWithATrayThatIsThere) {
  Watcher watcher(connectAgain());
  ASSERT_TRUE(runUntil([&] { return !trays_.empty() && trays_.back(); }));
  show();
  EXPECT_TRUE(runUntil([&] { return !watcher.registered.empty(); }));
  EXPECT_THAT(watcher.registered, Each(itemName()));
}

TEST_F(TrayIconTest, RegistersOnceWhenItIsShownBeforeTheTrayIsFound) {
  Watcher watcher(connectAgain());
  ASSERT_TRUE(runUntil([&] { return hasOwner(kWatcher); }));
  trays_.clear();
  makeIndicator();
  show();
  ASSERT_TRUE(runUntil([&] { return !watcher.registered.empty(); }));
  // By then everything else that was sent has arrived.
  EXPECT_EQ(item("Id"), "'record-audio'");
  EXPECT_TRUE(runUntil([&] { return !trays_.empty(); }));
  settle();
  EXPECT_THAT(watcher.registered, ElementsAre(itemName()));
}

TEST_F(TrayIconTest, RegistersWithATrayThatComesLaterAndWithTheNextOne) {
  showAndWait();
  ASSERT_TRUE(runUntil([&] { return !trays_.empty(); }));
  EXPECT_FALSE(trays_.back());
  {
    Watcher first(connectAgain());
    EXPECT_TRUE(runUntil([&] { return !first.registered.empty(); }));
    EXPECT_TRUE(trays_.back());
  }
  EXPECT_TRUE(runUntil([&] { return !trays_.back(); }));
  Watcher second(connectAgain());
  EXPECT_TRUE(runUntil([&] { return !second.registered.empty(); }));
  EXPECT_THAT(second.registered, ElementsAre(itemName()));
}

TEST_F(TrayIconTest, HidingTakesTheIconAwayAndShowingBringsItBack) {
  Watcher watcher(connectAgain());
  show();
  ASSERT_TRUE(runUntil([&] { return !watcher.registered.empty(); }));
  hide();
  EXPECT_TRUE(runUntil([&] { return !hasOwner(itemName()); }));
  const std::size_t before = watcher.registered.size();
  record("00:05");
  show();
  EXPECT_TRUE(runUntil([&] { return watcher.registered.size() > before; }));
  EXPECT_EQ(item("ToolTip"), "('', [], '[Record Audio]', '00:05')");
  EXPECT_EQ(idOf("00:05"), 1);
}

TEST_F(TrayIconTest, TheLauncherIsUrgentWhileRecordingAndCountsNothing) {
  Ear ear(client_.get());
  settle();
  ear.heard.clear();
  record("00:01");
  record("00:02");
  rest();
  settle();
  const std::string application = "('application://com.vantrel.korvel.RecordAudio.desktop', ";
  EXPECT_THAT(ear.from("com.canonical.Unity.LauncherEntry"),
              ElementsAre("Update" + application + "{'urgent': <true>})",
                          "Update" + application + "{'urgent': <false>})"));
}

}  // namespace
}  // namespace desktop_test
