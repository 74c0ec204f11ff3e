// SPDX-License-Identifier: MIT
#include "driver/default_guard.h"

#include <gtest/gtest.h>

#include <vector>

#include "driver/loopback_protocol.h"

namespace {

using loopback::choiceOf;
using loopback::DefaultChoice;
using loopback::DefaultGuard;
using loopback::deviceNameOf;
using loopback::MetadataValue;

// A session manager's metadata: every write comes back as a change.
class FakeKeys : public loopback::DefaultKeys {
 public:
  void setConfigured(const DefaultChoice& choice) override { configured.push_back(choice); }
  void setEffective(const DefaultChoice& choice) override { effective.push_back(choice); }
  std::vector<DefaultChoice> configured;
  std::vector<DefaultChoice> effective;
};

class FakeMemory : public loopback::ChoiceMemory {
 public:
  DefaultChoice load() override { return choice; }
  void store(const DefaultChoice& stored) override {
    choice = stored;
    ++stores;
  }
  DefaultChoice choice;
  int stores = 0;
};

class DefaultGuardTest : public testing::Test {
 protected:
  DefaultGuardTest() { guard.serve(); }
  // The session manager has reported the user's choice and what it uses.
  void start(const DefaultChoice& configured, const std::string& used) {
    if (configured) guard.configuredChanged(configured);
    guard.effectiveChanged(choiceOf(used));
    guard.sessionManagerReady();
  }
  void recordingStarts() {
    guard.willShow();
    guard.configuredChanged(kLoopback);
    guard.effectiveChanged(kLoopback);
  }
  const DefaultChoice kLoopback = choiceOf(loopback::kLoopbackDeviceUID);
  FakeKeys keys;
  FakeMemory memory;
  DefaultGuard guard{keys, memory};
};

TEST(DeviceName, IsFoundAmongOtherMembersAndWithEscapes) {
  EXPECT_EQ(deviceNameOf(MetadataValue{"Spa:String:JSON", R"({ "name": "alsa.out" })"}),
            "alsa.out");
  EXPECT_EQ(deviceNameOf(MetadataValue{"Spa:String:JSON", R"({"x":{"name":"no"},"name":"yes"})"}),
            "yes");
  EXPECT_EQ(deviceNameOf(choiceOf("a \"quoted\" \\ name")), "a \"quoted\" \\ name");
}

TEST(DeviceName, IsEmptyForWhatIsNotAnObjectWithAName) {
  for (const char* text : {"", "{", "{}", "[1]", "null", "{\"name\":", "{\"name\"", "\"name\""}) {
    EXPECT_EQ(deviceNameOf(MetadataValue{"Spa:String:JSON", text}), "") << text;
  }
  EXPECT_EQ(deviceNameOf({}), "");
}

TEST(DeviceName, SurvivesControlCharacters) {
  const std::string name = "\x01\x02\x1f\n\t\x03";
  EXPECT_EQ(deviceNameOf(choiceOf(name)), name);
}

TEST(DeviceName, MustBeAString) {
  for (const char* text : {"{\"name\":7}", "{\"name\":yes}", "{\"name\":{\"name\":\"no\"}}"}) {
    EXPECT_EQ(deviceNameOf(MetadataValue{"Spa:String:JSON", text}), "") << text;
  }
}

TEST_F(DefaultGuardTest, WritesNothingBeforeItServesAndThenWhatIsDue) {
  memory.choice = choiceOf("speaker");
  DefaultGuard fresh(keys, memory);
  fresh.configuredChanged(kLoopback);
  EXPECT_TRUE(keys.configured.empty());
  fresh.serve();
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{choiceOf("speaker")});
}

TEST_F(DefaultGuardTest, PutsExactlyTheUsersValueBack) {
  const DefaultChoice users = MetadataValue{"Spa:String:JSON", R"({  "name":"speaker" , "x":1})"};
  start(users, "speaker");
  recordingStarts();
  EXPECT_TRUE(keys.configured.empty());
  guard.willHide();
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{users});
}

TEST_F(DefaultGuardTest, ClearsTheKeyWhereTheUserHadChosenNothing) {
  memory.choice = choiceOf("long ago");
  DefaultGuard fresh(keys, memory);
  fresh.serve();
  fresh.effectiveChanged(choiceOf("speaker"));
  fresh.sessionManagerReady();
  fresh.willShow();
  fresh.configuredChanged(kLoopback);
  fresh.willHide();
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{std::nullopt});
}

TEST_F(DefaultGuardTest, KeepsWhatTheUserChoosesDuringTheRecording) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.configuredChanged(choiceOf("headphones"));
  guard.willHide();
  EXPECT_TRUE(keys.configured.empty());
  EXPECT_EQ(memory.choice, choiceOf("headphones"));
}

TEST_F(DefaultGuardTest, KeepsTheChoiceClearedIfTheUserClearsItDuringTheRecording) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.configuredChanged({});
  guard.willHide();
  EXPECT_TRUE(keys.configured.empty());
  EXPECT_EQ(memory.choice, std::nullopt);
}

TEST_F(DefaultGuardTest, TakesALeftoverOfACrashBackToTheRememberedChoice) {
  memory.choice = choiceOf("speaker");
  DefaultGuard fresh(keys, memory);
  fresh.serve();
  fresh.configuredChanged(kLoopback);
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{choiceOf("speaker")});
}

TEST_F(DefaultGuardTest, ClearsALeftoverWhenNothingIsRemembered) {
  guard.configuredChanged(kLoopback);
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{std::nullopt});
}

TEST_F(DefaultGuardTest, AnEmptySessionManagerDoesNotEraseTheChoice) {
  memory.choice = choiceOf("speaker");
  DefaultGuard fresh(keys, memory);
  fresh.serve();
  fresh.sessionManagerReady();
  fresh.configuredChanged(kLoopback);
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{choiceOf("speaker")});
}

TEST_F(DefaultGuardTest, UndoesAChoiceOfTheHiddenDeviceAtAnyTime) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.willHide();
  guard.configuredChanged(kLoopback);
  EXPECT_EQ(keys.configured.size(), 2U);
  EXPECT_EQ(keys.configured.back(), choiceOf("speaker"));
}

TEST_F(DefaultGuardTest, PutsTheChoiceBackOnce) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.willHide();
  guard.willShow();
  guard.willHide();
  EXPECT_EQ(keys.configured.size(), 1U);
}

TEST_F(DefaultGuardTest, PutsNothingBackOnceTheSessionManagerIsGone) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.sessionManagerGone();
  guard.willHide();
  EXPECT_TRUE(keys.configured.empty());
}

TEST_F(DefaultGuardTest, ARestartOfTheSessionManagerInARecordingLosesNothing) {
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.sessionManagerGone();
  guard.configuredChanged(kLoopback);
  guard.sessionManagerReady();
  guard.willHide();
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{choiceOf("speaker")});
  EXPECT_TRUE(keys.effective.empty());
}

TEST_F(DefaultGuardTest, ShowingWithoutASessionManagerDoesNotForgetTheChoice) {
  start(choiceOf("speaker"), "speaker");
  guard.sessionManagerGone();
  guard.willShow();
  guard.configuredChanged(kLoopback);
  guard.willHide();
  EXPECT_EQ(keys.configured, std::vector<DefaultChoice>{choiceOf("speaker")});
}

TEST_F(DefaultGuardTest, RemembersOnDiskOnlyChanges) {
  start(choiceOf("speaker"), "speaker");
  for (int i = 0; i < 3; ++i) {
    recordingStarts();
    guard.willHide();
    guard.configuredChanged(choiceOf("speaker"));
  }
  EXPECT_EQ(memory.stores, 1);
  EXPECT_TRUE(keys.effective.empty());
}

TEST_F(DefaultGuardTest, AnUnsetEffectiveKeyIsNoDefault) {
  start({}, "speaker");
  guard.effectiveChanged({});
  EXPECT_EQ(guard.lastRealDefault(), "speaker");
}

TEST_F(DefaultGuardTest, CorrectsASessionManagerThatTakesTheLoopbackUnasked) {
  guard.sinkAppeared("speaker", 500);
  guard.sinkAppeared("headphones", 900);
  start({}, "speaker");
  guard.willShow();
  guard.effectiveChanged(kLoopback);
  EXPECT_EQ(keys.effective, std::vector<DefaultChoice>{choiceOf("speaker")});
}

TEST_F(DefaultGuardTest, CorrectsToTheBestSinkWhenTheLastOneIsGone) {
  guard.sinkAppeared("speaker", 500);
  guard.sinkAppeared("headphones", 900);
  guard.sinkAppeared("bluetooth", 100);
  start({}, "bluetooth");
  guard.sinkGone("bluetooth");
  guard.willShow();
  guard.effectiveChanged(kLoopback);
  EXPECT_EQ(keys.effective, std::vector<DefaultChoice>{choiceOf("headphones")});
  EXPECT_EQ(guard.lastRealDefault(), "headphones");
}

TEST_F(DefaultGuardTest, OfEquallyGoodSinksTheFirstByNameIsTaken) {
  guard.sinkAppeared("b", 500);
  guard.sinkAppeared("a", 500);
  guard.willShow();
  guard.effectiveChanged(kLoopback);
  EXPECT_EQ(keys.effective, std::vector<DefaultChoice>{choiceOf("a")});
}

TEST_F(DefaultGuardTest, LeavesTheLoopbackWhereThereIsNoOtherSink) {
  start({}, "speaker");
  guard.willShow();
  guard.effectiveChanged(kLoopback);
  EXPECT_TRUE(keys.effective.empty());
}

class CorrectedSessionManager : public DefaultGuardTest {
 protected:
  CorrectedSessionManager() {
    guard.sinkAppeared("speaker", 500);
    start({}, "speaker");
    guard.willShow();
    guard.effectiveChanged(kLoopback);
    guard.effectiveChanged(choiceOf("speaker"));  // the correction's echo
    keys.effective.clear();
  }
};

TEST_F(CorrectedSessionManager, IsHelpedToTheLoopbackOnceItIsConfigured) {
  guard.configuredChanged(kLoopback);
  EXPECT_EQ(keys.effective, std::vector<DefaultChoice>{kLoopback});
  guard.configuredChanged(kLoopback);
  EXPECT_EQ(keys.effective.size(), 1U);
}

TEST_F(CorrectedSessionManager, NeedsNoHelpOnceItHasTakenAnotherDefault) {
  guard.effectiveChanged(choiceOf("headphones"));
  guard.configuredChanged(kLoopback);
  EXPECT_TRUE(keys.effective.empty());
}

TEST_F(CorrectedSessionManager, IsForgottenWhenTheDeviceIsHidden) {
  guard.willHide();
  guard.willShow();
  guard.configuredChanged(kLoopback);
  EXPECT_TRUE(keys.effective.empty());
}

TEST_F(CorrectedSessionManager, IsForgottenWhenItIsGone) {
  guard.sessionManagerGone();
  guard.sessionManagerReady();
  guard.configuredChanged(kLoopback);
  EXPECT_TRUE(keys.effective.empty());
}

TEST_F(DefaultGuardTest, NeverTouchesTheEffectiveKeyOfASessionManagerThatFollows) {
  guard.sinkAppeared("speaker", 500);
  start(choiceOf("speaker"), "speaker");
  recordingStarts();
  guard.willHide();
  guard.configuredChanged(choiceOf("speaker"));
  guard.effectiveChanged(choiceOf("speaker"));
  EXPECT_TRUE(keys.effective.empty());
}

}  // namespace
