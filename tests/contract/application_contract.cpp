// SPDX-License-Identifier: MIT
#include <atomic>
#include <map>
#include <utility>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/application.h promises of an application's way from launch to end, and of alerts
// without a screen.

namespace contract {
namespace {

using platform::TerminateReply;
using testing::ElementsAre;

// Keeps a journal of its calls and does what the test wants in each.
class JournalDelegate : public platform::ApplicationDelegate, public platform::RemoteControl {
 public:
  void applicationWillFinishLaunching() override { note("will finish"); }
  bool application(const std::string& openFile) override {
    note("open " + openFile);
    return true;
  }
  void applicationDidFinishLaunching() override { note("did finish"); }
  bool applicationShouldHandleReopen(bool hasVisibleWindows) override {
    note(hasVisibleWindows ? "reopen with windows" : "reopen");
    return true;
  }
  TerminateReply applicationShouldTerminate() override {
    note("should terminate");
    return std::exchange(reply, TerminateReply::kNow);
  }
  void applicationWillTerminate() override { note("will terminate"); }

  bool stop() override { return false; }
  bool cancel() override { return false; }
  [[nodiscard]] platform::Dictionary status() const override { return {{"state", "idle"}}; }
  void setOnStateChange(std::function<void()>) override {}

  std::vector<std::string> journal;
  std::map<std::string, std::function<void()>> when;
  TerminateReply reply = TerminateReply::kNow;  // to the next question

 private:
  void note(const std::string& what) {
    journal.push_back(what);
    if (const auto found = when.find(what); found != when.end()) found->second();
  }
};

class ApplicationContract : public ContractTest {
 protected:
  // Runs the application to its end, and returns the delegate's journal.
  std::vector<std::string> run(const std::vector<std::string>& pathsToOpen = {}) {
    rig->surroundings().run(delegate, delegate, pathsToOpen);
    return delegate->journal;
  }
  void terminate() { host().application.terminate(); }
  void terminateSoon() {
    host().runLoop.performAfterDelay(0, [this] { terminate(); });
  }

  std::shared_ptr<JournalDelegate> delegate = std::make_shared<JournalDelegate>();
};

TEST_F(ApplicationContract, TheDelegateIsCalledInOneOrderFromLaunchToEnd) {
  delegate->when["did finish"] = [&] { terminateSoon(); };
  EXPECT_THAT(run({"/a", "/b"}), ElementsAre("will finish", "open /a", "open /b", "did finish",
                                             "should terminate", "will terminate"));
}

TEST_F(ApplicationContract, AnEndWithinTheLaunchSkipsTheRestOfIt) {
  delegate->when["open /a"] = [&] { terminate(); };
  EXPECT_THAT(run({"/a", "/b"}),
              ElementsAre("will finish", "open /a", "should terminate", "will terminate"));
}

TEST_F(ApplicationContract, OneThatHasEndedIsNotAskedAgain) {
  delegate->when["did finish"] = [&] {
    terminate();
    terminate();
  };
  delegate->when["will terminate"] = [&] { terminate(); };
  EXPECT_THAT(run(),
              ElementsAre("will finish", "did finish", "should terminate", "will terminate"));
}

TEST_F(ApplicationContract, TheDelegateIsNotAskedWhileItIsAsked) {
  delegate->when["did finish"] = [&] { terminateSoon(); };
  delegate->when["should terminate"] = [&] { terminate(); };
  EXPECT_THAT(run(),
              ElementsAre("will finish", "did finish", "should terminate", "will terminate"));
}

class RefusedEndContract : public ApplicationContract,
                           public testing::WithParamInterface<TerminateReply> {};

INSTANTIATE_TEST_SUITE_P(Replies, RefusedEndContract,
                         testing::Values(TerminateReply::kCancel, TerminateReply::kLater));

TEST_P(RefusedEndContract, WhatTheDelegateDoesNotWantNowGoesOnAndMayBeAskedAgain) {
  delegate->reply = GetParam();
  delegate->when["did finish"] = [&] {
    terminate();
    host().runLoop.performAfterDelay(0.05, [&] { terminate(); });
  };
  EXPECT_THAT(run(), ElementsAre("will finish", "did finish", "should terminate",
                                 "should terminate", "will terminate"));
}

TEST_F(ApplicationContract, WhatIsQueuedAtTheEndIsStillDone) {
  auto queue = host().dispatch.createSerialQueue("contract.end");
  ASSERT_NE(queue, nullptr);
  std::atomic<int> done{0};
  delegate->when["did finish"] = [&] { terminateSoon(); };
  delegate->when["will terminate"] = [&] {
    for (int item = 0; item < 3; ++item) queue->async([&] { ++done; });
    queue.reset();
  };
  run();
  EXPECT_EQ(done, 3);
}

TEST_F(ApplicationContract, SettingsAreStoredAtTheEndAtTheLatest) {
  delegate->when["did finish"] = [&] { terminateSoon(); };
  delegate->when["will terminate"] = [&] { host().userDefaults.setInteger(5, "contract end"); };
  run();
  EXPECT_TRUE(
      rig->runUntil([&] { return rig->storedSetting("contract end") == platform::Value(5); }));
}

TEST_F(ApplicationContract, AnotherStartReopensOrOpensWhatCameWithIt) {
  delegate->when["did finish"] = [&] {
    host().runLoop.performAfterDelay(0, [&] { rig->surroundings().startAgain({}); });
  };
  delegate->when["reopen"] = [&] { rig->surroundings().startAgain({"/c", "/d"}); };
  delegate->when["open /d"] = [&] { terminateSoon(); };
  EXPECT_THAT(run(), ElementsAre("will finish", "did finish", "reopen", "open /c", "open /d",
                                 "should terminate", "will terminate"));
}

TEST_F(ApplicationContract, WhatTheLoopOwesIsDoneBetweenTheCalls) {
  bool fired = false;
  delegate->when["did finish"] = [&] {
    host().runLoop.scheduledTimer(0.01, {}, false, [&](const platform::TimerPtr&) {
      fired = true;
      terminate();
    });
    EXPECT_FALSE(fired);
  };
  run();
  EXPECT_TRUE(fired);
}

class AlertContract : public ContractTest {};

// No program of this file's has a screen.
TEST_F(AlertContract, WithoutAScreenTheLastButtonAnswers) {
  platform::Alert alert;
  alert.messageText = "Contract: nobody sees this.";
  EXPECT_EQ(host().alerts.runModal(alert), platform::kAlertFirstButtonReturn);
  alert.buttons = {"Yes"};
  EXPECT_EQ(host().alerts.runModal(alert), platform::kAlertFirstButtonReturn);
  alert.buttons = {"Yes", "Later", "No"};
  alert.extraButton = "More";
  EXPECT_EQ(host().alerts.runModal(alert), platform::kAlertFirstButtonReturn + 2);
}

TEST_F(AlertContract, WithoutAScreenThereIsNoWindow) {
  class Nobody : public platform::InterfaceOwner {
   public:
    void connectOutlet(const std::string&, const std::shared_ptr<platform::View>&) override {
      ADD_FAILURE();
    }
    void performAction(const std::string&, platform::View*) override { ADD_FAILURE(); }
  } owner;
  EXPECT_EQ(host().interfaceLoader.loadWindow("AudioPreferencesWindow", owner), nullptr);
  EXPECT_EQ(host().interfaceLoader.loadWindow("no such window", owner), nullptr);
  host().cursor.setPointingHand();
}

}  // namespace
}  // namespace contract
