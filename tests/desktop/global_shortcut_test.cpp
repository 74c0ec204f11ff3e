// SPDX-License-Identifier: MIT
#include "hosts/linux/shortcuts/global_shortcut.h"

#include <gmock/gmock.h>

#include "tests/desktop/desktop_fixture.h"
#include "tests/desktop/fake_shortcuts_portal.h"

// A key from the desktop, with several kinds of portals.

namespace desktop_test {
namespace {

using linux_host::GlobalShortcut;
using linux_host::Shortcut;
using linux_host::ShortcutChoice;
using linux_host::ShortcutPhase;
using linux_host::ShortcutWish;
using Behaviour = FakeShortcutsPortal::Behaviour;
using Outcome = ShortcutChoice::Outcome;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kDescription = "Start or stop recording";
constexpr const char* kBind = "BindShortcuts record LOGO+ALT+a x11:1a";
constexpr const char* kBindUnasked = "BindShortcuts record LOGO+ALT+a ";

class GlobalShortcutTest : public DesktopTest {
 protected:
  ~GlobalShortcutTest() override {
    shortcut_.reset();
    portal_.reset();
  }
  void startPortal(Behaviour behaviour = Behaviour()) {
    portal_ = std::make_unique<FakeShortcutsPortal>(client_.get(), std::move(behaviour));
    ASSERT_TRUE(runUntil([&] { return hasOwner(kPortal); }));
  }
  void makeShortcut(GDBusConnection* bus) {
    shortcut_ = std::make_unique<GlobalShortcut>(
        bus, kDescription, wish_, [this](const std::string& token) { presses_.push_back(token); },
        [this] { return now_us_; });
  }
  void follow() {
    shortcut_->follow([this](const Shortcut& shortcut) { shown_ = shortcut; });
  }
  void choose() {
    shortcut_->choose("x11:1a", [this](const ShortcutChoice& choice) {
      outcomes_.push_back(choice.outcome);
      reason_ = choice.reason;
    });
  }
  bool isAnswered(std::size_t times = 1) {
    return runUntil([&] { return outcomes_.size() == times; });
  }
  bool isSet() {
    return runUntil([&] { return shown_.set; });
  }
  // Waits until everything sent so far has arrived.
  void settle() {
    hasOwner(kPortal);
    call(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
         "Ping", nullptr);
  }
  void startWithKey(Behaviour behaviour = Behaviour()) {
    startPortal(std::move(behaviour));
    follow();
    choose();
    ASSERT_TRUE(isAnswered());
    ASSERT_THAT(outcomes_, ElementsAre(Outcome::kDone));
    ASSERT_TRUE(shown_.set);
  }
  void press() {
    const std::size_t before = presses_.size();
    now_us_ += GlobalShortcut::kRepeat_us;
    portal_->press();
    ASSERT_TRUE(runUntil([&] { return presses_.size() == before + 1; }));
  }

  ShortcutWish wish_{folder_ / "desktop.json"};
  std::unique_ptr<FakeShortcutsPortal> portal_;
  gint64 now_us_ = 0;
  std::vector<std::string> presses_;
  Shortcut shown_;
  std::vector<Outcome> outcomes_;
  std::string reason_;
  std::unique_ptr<GlobalShortcut> shortcut_ = std::make_unique<GlobalShortcut>(
      bus_.get(), kDescription, wish_,
      [this](const std::string& token) { presses_.push_back(token); }, [this] { return now_us_; });
};

TEST_F(GlobalShortcutTest, WithoutAPortalNothingIsOffered) {
  follow();
  settle();
  EXPECT_FALSE(shown_.offered);
  choose();
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kFailed));
  makeShortcut(nullptr);
  follow();
  choose();
  shortcut_->resume();
  EXPECT_FALSE(shown_.offered);
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kFailed, Outcome::kFailed));
}

TEST_F(GlobalShortcutTest, APortalWithoutShortcutsOffersNone) {
  startPortal({.version = 0});
  follow();
  settle();
  EXPECT_FALSE(shown_.offered);
  EXPECT_THAT(portal_->calls, IsEmpty());
}

TEST_F(GlobalShortcutTest, IsOfferedButNotAskedForBeforeTheUserWantsIt) {
  startPortal();
  follow();
  ASSERT_TRUE(runUntil([&] { return shown_.offered; }));
  EXPECT_FALSE(shown_.asking);
  EXPECT_FALSE(shown_.set);
  shortcut_->resume();
  settle();
  EXPECT_THAT(portal_->calls, IsEmpty());
}

TEST_F(GlobalShortcutTest, TheUsersWishCreatesASessionAndBindsTheKey) {
  startPortal();
  portal_->behaviour.isSlow = true;
  follow();
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->calls.size() == 1; }));
  EXPECT_TRUE(shown_.asking);
  portal_->behaviour.isSlow = false;
  portal_->answerNow();
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kDone));
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", kBind));
  EXPECT_EQ(portal_->description, kDescription);
  EXPECT_THAT(portal_->session(), HasSubstr("/RecordAudio"));
  EXPECT_FALSE(shown_.asking);
  EXPECT_TRUE(shown_.set);
  EXPECT_EQ(shown_.trigger, "Ctrl+Meta+R");
  EXPECT_TRUE(wish_.isWanted());
}

TEST_F(GlobalShortcutTest, IdentifiesItselfBeforeAnythingElse) {
  startWithKey({.hasRegistry = true});
  EXPECT_EQ(portal_->calls.front(), "Register com.vantrel.korvel.RecordAudio");
}

TEST_F(GlobalShortcutTest, EachPressOfOurKeyCountsOnceAndOtherKeysDoNot) {
  startWithKey();
  press();
  press();
  portal_->press("other");
  portal_->press("record", "/org/freedesktop/portal/desktop/session/1_2/RecordAudio");
  settle();
  EXPECT_EQ(presses_.size(), 2U);
  now_us_ += GlobalShortcut::kRepeat_us;
  portal_->press("record", {}, "token-9");
  ASSERT_TRUE(runUntil([&] { return presses_.size() == 3; }));
  EXPECT_EQ(presses_.back(), "token-9");
}

// A held key repeats, and each repetition would start or stop a recording.
TEST_F(GlobalShortcutTest, AKeyHeldDownCountsAsOnePress) {
  startWithKey();
  press();
  for (int i = 0; i < 100; ++i) {
    now_us_ += i == 0 ? GlobalShortcut::kRepeat_us - 1 : 40'000;
    portal_->press();
    settle();
  }
  EXPECT_EQ(presses_.size(), 1U);
  press();
  EXPECT_EQ(presses_.size(), 2U);
}

TEST_F(GlobalShortcutTest, TheUsersRefusalIsRemembered) {
  startPortal({.binding = 1});
  follow();
  choose();
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kDeclined));
  EXPECT_TRUE(shown_.offered);
  EXPECT_FALSE(shown_.set);
  EXPECT_FALSE(wish_.isWanted());
  ASSERT_TRUE(runUntil([&] { return !portal_->hasSession(); })) << "the session is ended";
}

TEST_F(GlobalShortcutTest, ARefusalIsReportedWithItsReason) {
  startPortal({.refuses = true});
  follow();
  choose();
  ASSERT_TRUE(isAnswered());
  EXPECT_THAT(reason_, HasSubstr("Not for you"));
  portal_->behaviour.refuses = false;
  portal_->behaviour.opening = 2;
  choose();
  ASSERT_TRUE(isAnswered(2));
  portal_->behaviour.opening = 0;
  portal_->behaviour.trigger.reset();
  choose();
  ASSERT_TRUE(isAnswered(3)) << "it agreed to nothing";
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kFailed, Outcome::kFailed, Outcome::kFailed));
  EXPECT_FALSE(wish_.isWanted());
  EXPECT_TRUE(shown_.offered);
  EXPECT_FALSE(shown_.asking);
  portal_->behaviour.trigger = "F9";
  choose();
  ASSERT_TRUE(isAnswered(4));
  EXPECT_EQ(outcomes_.back(), Outcome::kDone);
}

TEST_F(GlobalShortcutTest, ALaterRunBindsAgainWithoutTheUser) {
  wish_.want(true);
  startPortal();
  follow();
  shortcut_->resume();
  ASSERT_TRUE(isSet());
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", "ListShortcuts", kBindUnasked));
  press();
}

// Binding again could open a dialog, which a user who starts a recording does not want.
TEST_F(GlobalShortcutTest, AKeyThatTheDesktopKnowsIsNotAskedForAgain) {
  wish_.want(true);
  startPortal({.isKnown = true});
  follow();
  shortcut_->resume();
  ASSERT_TRUE(isSet());
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", "ListShortcuts"));
  press();
}

TEST_F(GlobalShortcutTest, ASessionThatBringsTheKeyNeedsNothingElse) {
  wish_.want(true);
  startPortal({.bindsAtOnce = true});
  follow();
  shortcut_->resume();
  ASSERT_TRUE(isSet());
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession"));
  press();
}

TEST_F(GlobalShortcutTest, AnAnswerWithoutTheTriggerIsLookedUp) {
  startWithKey({.version = 2, .agreesInFewWords = true});
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", kBind, "ListShortcuts"));
  EXPECT_EQ(shown_.trigger, "Ctrl+Meta+R");
}

// Asking again at every start would only annoy the user.
TEST_F(GlobalShortcutTest, ARefusalAtALaterRunEndsTheAsking) {
  wish_.want(true);
  startPortal({.binding = 1});
  follow();
  shortcut_->resume();
  ASSERT_TRUE(runUntil([&] { return !wish_.isWanted() && !shown_.asking; }));
  EXPECT_FALSE(shown_.set);
}

TEST_F(GlobalShortcutTest, AnotherKeyIsChosenInTheDesktopsOwnSettings) {
  startWithKey({.version = 2});
  choose();
  ASSERT_TRUE(isAnswered(2));
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", kBind, "ConfigureShortcuts x11:1a"));
  portal_->change("F9");
  ASSERT_TRUE(runUntil([&] { return shown_.trigger == "F9"; }));
  press();
}

TEST_F(GlobalShortcutTest, AnotherKeyNeedsANewSessionWhereTheDesktopHasNoSettingsForIt) {
  startWithKey();
  portal_->behaviour.trigger = "F9";
  choose();
  ASSERT_TRUE(isAnswered(2));
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", kBind, "Close", "CreateSession", kBind));
  EXPECT_EQ(shown_.trigger, "F9");
  press();
}

TEST_F(GlobalShortcutTest, WhatTheUserChangesInTheDesktopIsShown) {
  startWithKey();
  portal_->change("");
  ASSERT_TRUE(runUntil([&] { return shown_.trigger.empty(); }));
  EXPECT_TRUE(shown_.set);
  portal_->change(std::nullopt);
  ASSERT_TRUE(runUntil([&] { return !shown_.set; }));
  portal_->change("F8");
  ASSERT_TRUE(isSet());
  EXPECT_EQ(shown_.trigger, "F8");
}

TEST_F(GlobalShortcutTest, ASessionThatTheDesktopClosesIsGone) {
  startWithKey();
  const std::string session = portal_->session();
  portal_->closeSession();
  ASSERT_TRUE(runUntil([&] { return !shown_.set; }));
  EXPECT_TRUE(shown_.offered);
  portal_->press("record", session);
  settle();
  EXPECT_THAT(presses_, IsEmpty());
  choose();
  ASSERT_TRUE(isAnswered(2));
  EXPECT_TRUE(shown_.set);
  press();
}

TEST_F(GlobalShortcutTest, APortalThatComesBackGivesTheKeyAgain) {
  startWithKey();
  portal_.reset();
  ASSERT_TRUE(runUntil([&] { return !shown_.offered; }));
  startPortal({.isKnown = true});
  ASSERT_TRUE(isSet());
  EXPECT_THAT(portal_->calls, ElementsAre("CreateSession", "ListShortcuts"));
  press();
}

TEST_F(GlobalShortcutTest, APortalThatLeavesWhileTheUserChoosesIsAFailure) {
  startPortal();
  portal_->behaviour.isSlow = true;
  follow();
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->calls.size() == 1; }));
  portal_.reset();
  ASSERT_TRUE(isAnswered());
  ASSERT_TRUE(runUntil([&] { return !shown_.offered; }));
  EXPECT_THAT(outcomes_, ElementsAre(Outcome::kFailed));
  startPortal();
  ASSERT_TRUE(runUntil([&] { return shown_.offered; }));
  settle();
  EXPECT_THAT(portal_->calls, IsEmpty()) << "it was not agreed";
}

TEST_F(GlobalShortcutTest, AnswersOfAnotherKindAreFailures) {
  startPortal();
  follow();
  const auto failsWith = [&](const std::string& method, const char* results) {
    const std::size_t before = outcomes_.size();
    portal_->behaviour.strangeResults = [=](const std::string& asked) {
      if (asked == method) return g_variant_new_parsed(results);
      return g_variant_new_parsed("@a{sv} {'session_handle': <'/session'>}");
    };
    choose();
    EXPECT_TRUE(isAnswered(before + 1));
    EXPECT_EQ(outcomes_.back(), Outcome::kFailed) << method << " " << results;
    EXPECT_FALSE(shown_.set);
  };
  failsWith("CreateSession", "@a{sv} {}");
  failsWith("CreateSession", "@a{sv} {'session_handle': <'no path'>}");
  failsWith("CreateSession", "@a{sv} {'session_handle': <7>}");
  failsWith("BindShortcuts", "@a{sv} {'shortcuts': <@a(sa{sv}) []>}");
  failsWith("BindShortcuts", "@a{sv} {'shortcuts': <['record']>}");
  failsWith("BindShortcuts", "@a{sv} {'shortcuts': <[('other', @a{sv} {})]>}");
  EXPECT_FALSE(wish_.isWanted());
}

TEST_F(GlobalShortcutTest, SignalsOfAnotherKindAreIgnored) {
  startWithKey();
  portal_->say("Activated", g_variant_new("(s)", "record"));
  portal_->say("Activated", g_variant_new("(os)", portal_->session().c_str(), "record"));
  portal_->say("ShortcutsChanged", g_variant_new("(o)", portal_->session().c_str()));
  portal_->say("SomethingElse", nullptr);
  settle();
  EXPECT_THAT(presses_, IsEmpty());
  EXPECT_TRUE(shown_.set);
  press();
}

TEST_F(GlobalShortcutTest, ATriggerOfAnotherTypeIsIgnored) {
  startPortal();
  portal_->behaviour.strangeResults = [](const std::string& asked) {
    if (asked == "CreateSession") {
      return g_variant_new_parsed("@a{sv} {'session_handle': <objectpath '/session'>}");
    }
    return g_variant_new_parsed("{'shortcuts': <[('record', {'trigger_description': <7>})]>}");
  };
  follow();
  choose();
  ASSERT_TRUE(isAnswered());
  EXPECT_TRUE(shown_.set);
  EXPECT_EQ(shown_.trigger, "");
}

TEST_F(GlobalShortcutTest, LeavingEndsTheSessionForGood) {
  startWithKey();
  shortcut_->leave();
  ASSERT_TRUE(runUntil([&] { return !portal_->hasSession(); }));
  EXPECT_THAT(portal_->calls, Contains("Close"));
  portal_->press("record", "/session");
  settle();
  EXPECT_THAT(presses_, IsEmpty());
  EXPECT_TRUE(wish_.isWanted()) << "for the next run";
}

TEST_F(GlobalShortcutTest, NothingIsReportedAfterDestruction) {
  startPortal();
  portal_->behaviour.isSlow = true;
  choose();
  ASSERT_TRUE(runUntil([&] { return portal_->calls.size() == 1; }));
  shortcut_.reset();
  portal_->answerNow();
  settle();
  EXPECT_THAT(outcomes_, IsEmpty());
  makeShortcut(bus_.get());
  follow();
  shortcut_.reset();
  settle();
}

TEST(ShortcutPhaseTest, SkipsNoPhase) {
  EXPECT_TRUE(mayFollow(ShortcutPhase::kUnknown, ShortcutPhase::kLooking));
  EXPECT_FALSE(mayFollow(ShortcutPhase::kUnknown, ShortcutPhase::kBound));
  EXPECT_FALSE(mayFollow(ShortcutPhase::kBound, ShortcutPhase::kBinding));
}

class ShortcutWishTest : public ::testing::Test {
 protected:
  base_test::TemporaryFolder folder_;
  const std::string path_ = folder_ / "settings/desktop.json";
  ShortcutWish wish_{path_};
};

TEST_F(ShortcutWishTest, IsKeptFromRunToRunBesideOtherKeys) {
  EXPECT_FALSE(wish_.isWanted());
  wish_.want(false);
  EXPECT_FALSE(std::filesystem::exists(path_)) << "nothing has changed";
  base_test::write(path_, R"({"Other": 5})");
  wish_.want(true);
  EXPECT_TRUE(ShortcutWish(path_).isWanted());
  EXPECT_THAT(base_test::contentsOf(path_), HasSubstr("Other"));
  wish_.want(false);
  EXPECT_FALSE(ShortcutWish(path_).isWanted());
}

TEST_F(ShortcutWishTest, WhatIsNotAWishCountsAsNone) {
  for (const char* text : {"{", "[]", R"({"GlobalShortcut": 1})", R"({"GlobalShortcut": "yes"})"}) {
    base_test::write(path_, text);
    EXPECT_FALSE(wish_.isWanted()) << text;
  }
}

}  // namespace
}  // namespace desktop_test
