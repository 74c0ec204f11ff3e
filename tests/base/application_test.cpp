// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>

#include "hosts/linux/application/icons.h"
#include "hosts/linux/application/request_router.h"
#include "tests/base/temporary_folder.h"

namespace linux_host {
namespace {

using base_test::Environment;
using base_test::TemporaryFolder;
using platform::TerminateReply;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Keeps a journal and runs the test's action in each call.
class Delegate : public platform::ApplicationDelegate, public platform::RemoteControl {
 public:
  void applicationWillFinishLaunching() override { happened("will finish"); }
  bool application(const std::string& openFile) override {
    happened("open " + openFile);
    return true;
  }
  void applicationDidFinishLaunching() override { happened("did finish"); }
  bool applicationShouldHandleReopen(bool hasVisibleWindows) override {
    happened(hasVisibleWindows ? "reopen with windows" : "reopen");
    return true;
  }
  TerminateReply applicationShouldTerminate() override {
    happened("should terminate");
    return reply;
  }
  void applicationWillTerminate() override { happened("will terminate"); }
  bool stop() override {
    happened("stop");
    return std::exchange(state, "idle") != "idle";
  }
  bool cancel() override { return stop(); }
  void setOnStateChange(std::function<void()>) override {}
  [[nodiscard]] platform::Dictionary status() const override { return {{"state", state}}; }

  std::vector<std::string> journal;
  std::map<std::string, std::function<void()>> whenHappens;
  TerminateReply reply = TerminateReply::kNow;
  std::string state = "idle";

 private:
  void happened(const std::string& what) {
    journal.push_back(what);
    const auto action = whenHappens.find(what);
    if (action != whenHappens.end()) action->second();
  }
};

class ApplicationTest : public ::testing::Test {
 protected:
  ApplicationTest() {
    application_.setDelegate(delegate_);
    router_.attach(delegate_, delegate_, "/preferences");
  }
  // Runs the loop until `done`, and gives up after a while.
  static void iterateUntil(const std::function<bool()>& done) {
    const gint64 end_us = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
    while (!done()) {
      ASSERT_LT(g_get_monotonic_time(), end_us);
      g_main_context_iteration(nullptr, FALSE);
    }
  }

  MainLoop loop_;
  DispatchThreads dispatch_;
  LinuxApplication application_{loop_};
  RequestRouter router_{application_, loop_, dispatch_};
  std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
};

TEST_F(ApplicationTest, MayTerminateWithinItsLaunch) {
  delegate_->whenHappens["did finish"] = [&] { application_.terminate(); };
  router_.launch({});
  application_.run();
  application_.terminate();
  router_.activate();
  EXPECT_THAT(delegate_->journal,
              ElementsAre("will finish", "did finish", "should terminate", "will terminate"));
}

TEST_F(ApplicationTest, EndsRegardlessOfWhatTheDelegateAnswersButAsksItToSave) {
  router_.launch({});
  delegate_->reply = TerminateReply::kCancel;
  application_.terminateRegardless();
  EXPECT_THAT(delegate_->journal,
              ElementsAre("will finish", "did finish", "should terminate", "will terminate"));
}

TEST_F(ApplicationTest, TellsObserversOfTheIndicatorTheStateAndItsChanges) {
  class Observer : public IndicatorObserver {
   public:
    void activationPolicyDidChange(platform::ActivationPolicy policy) override {
      seen.push_back(policy == platform::ActivationPolicy::kRegular ? "regular" : "hidden");
    }
    void applicationIconDidChange(const platform::ImagePtr& icon) override {
      seen.push_back(icon == nullptr ? "own icon" : icon->name);
    }
    std::vector<std::string> seen;
  } observer;
  application_.addIndicatorObserver(observer);
  application_.setActivationPolicy(platform::ActivationPolicy::kRegular);
  application_.setActivationPolicy(platform::ActivationPolicy::kRegular);
  application_.setApplicationIconImage(application_.imageNamed("ActiveIcon.icns"));
  EXPECT_THAT(observer.seen, ElementsAre("hidden", "own icon", "regular", "ActiveIcon.icns"));
}

TEST_F(ApplicationTest, RequestsDuringTheLaunchWaitForItsEndExceptPathsToOpen) {
  std::string line;
  delegate_->whenHappens["did finish"] = [&] {
    router_.activate();
    router_.open({"/x"});
    router_.status([&](const std::string& text) { line = text; });
    EXPECT_EQ(line, "");
  };
  router_.launch({});
  EXPECT_THAT(delegate_->journal, ElementsAre("will finish", "did finish", "open /x", "reopen"));
  EXPECT_EQ(line, R"({"state":"idle"})");
}

TEST_F(ApplicationTest, AReopenRaisesAnOpenAlertInstead) {
  int raised = 0;
  router_.setWindows([] { return true; }, [] { return true; }, [&] { ++raised; });
  router_.launch({});
  router_.activate();
  EXPECT_EQ(raised, 1);
  EXPECT_THAT(delegate_->journal, ElementsAre("will finish", "did finish"));
}

// A user who clicks twice wants to see what is wrong, not a second attempt later.
TEST_F(ApplicationTest, RequestsDuringAnAlertAtLaunchAreAnsweredAtOnceAndAClickIsDropped) {
  bool waits = false;
  int raised = 0;
  router_.setWindows([] { return false; }, [&] { return waits; }, [&] { ++raised; });
  delegate_->whenHappens["did finish"] = [&] {
    waits = true;
    std::string line;
    std::vector<RequestResult> results;
    const auto note = [&](RequestResult result) { results.push_back(result); };
    router_.status([&](const std::string& text) { line = text; });
    router_.action("stop", note);
    router_.action("cancel", note);
    router_.activate();
    EXPECT_EQ(line, R"({"state":"idle"})");
    EXPECT_THAT(results, ElementsAre(RequestResult::kNothingToDo, RequestResult::kNothingToDo));
    EXPECT_EQ(raised, 1);
    waits = false;
  };
  router_.launch({});
  EXPECT_THAT(delegate_->journal, ElementsAre("will finish", "did finish", "stop", "stop"));
}

TEST_F(ApplicationTest, OpeningAPathDoesNotHideAnOpenAlert) {
  int raised = 0;
  router_.setWindows([] { return true; }, [] { return true; }, [&] { ++raised; });
  router_.launch({});
  router_.open({"/x"});
  EXPECT_EQ(delegate_->journal.back(), "open /x");
  EXPECT_EQ(raised, 1);
}

// A quit while an alert waits.

class AlertEndTest : public ApplicationTest {
 protected:
  AlertEndTest() {
    application_.setAlerts(
        {[this] { return waits_; }, [this] { delegate_->journal.emplace_back("dismiss"); },
         [this](auto work) { coreLoop_.performAfterDelay(0, std::move(work)); }});
    delegate_->reply = TerminateReply::kCancel;
    router_.launch({});
    delegate_->journal.clear();
    waits_ = true;
    coreLoop_.hold();
  }
  void eventIsOver() {
    waits_ = false;
    delegate_->journal.emplace_back("event over");
    delegate_->reply = TerminateReply::kNow;
    coreLoop_.release();
    iterateUntil([&] { return application_.hasTerminated(); });
  }

  CoreRunLoop coreLoop_;
  bool waits_ = false;
};

TEST_F(AlertEndTest, TheEndOfTheSessionWaitsForItsEventToo) {
  application_.terminateRegardless();
  EXPECT_FALSE(application_.hasTerminated());
  eventIsOver();
  EXPECT_EQ(std::ranges::count(delegate_->journal, "will terminate"), 1);
  EXPECT_EQ(delegate_->journal.back(), "will terminate");
}

TEST_F(ApplicationTest, StopIsDoneWhenTheStateHasLeftRecordingAndAllWritersHaveClosed) {
  router_.launch({});
  delegate_->state = "starting";
  // A start not yet confirmed ends later.
  delegate_->whenHappens["stop"] = [&] {
    loop_.performAfterDelay(0.05, [&] { delegate_->state = "idle"; });
  };
  auto token = std::make_unique<PendingWork::Token>(dispatch_.pendingWork());
  std::optional<RequestResult> result;
  // The delegate above becomes idle at once; this one takes a while.
  delegate_->whenHappens["stop"] = [&] {
    loop_.performAfterDelay(0, [&] { delegate_->state = "starting"; });
    loop_.performAfterDelay(0.05, [&] { delegate_->state = "idle"; });
  };
  router_.action("stop", [&](RequestResult done) { result = done; });
  bool idle = false;
  loop_.performAfterDelay(0.15, [&] { idle = true; });
  iterateUntil([&] { return idle; });
  EXPECT_FALSE(result) << "a writer is not done";
  token.reset();
  iterateUntil([&] { return result.has_value(); });
  EXPECT_EQ(result, RequestResult::kDone);
}

// Waiting requests have timers and bus invocations, which belong to this thread.
TEST_F(ApplicationTest, CallersWaitingForAStopAreReleasedOnTheMainThread) {
  router_.launch({});
  delegate_->state = "recording";
  auto token = std::make_unique<PendingWork::Token>(dispatch_.pendingWork());
  std::thread::id forgottenOn;
  auto caller = std::shared_ptr<int>(new int, [&forgottenOn](const int* number) {
    forgottenOn = std::this_thread::get_id();
    delete number;
  });
  bool isAnswered = false;
  router_.action("stop",
                 [caller = std::move(caller), &isAnswered](RequestResult) { isAnswered = true; });
  // The thread whose work ends last itself ends after the answer.
  std::promise<void> answered;
  dispatch_.pendingWork().whenIdle([&answered] { answered.get_future().wait(); });
  std::thread last([&token] { token.reset(); });
  iterateUntil([&] { return isAnswered; });
  answered.set_value();
  last.join();
  EXPECT_EQ(forgottenOn, std::this_thread::get_id());
}

TEST_F(ApplicationTest, CallersStillWaitingAreAnsweredAtTheEnd) {
  router_.launch({});
  delegate_->state = "recording";
  const PendingWork::Token token(dispatch_.pendingWork());
  std::optional<RequestResult> result;
  router_.action("stop", [&](RequestResult done) { result = done; });
  EXPECT_FALSE(result);
  router_.finish();
  EXPECT_EQ(result, RequestResult::kDone);
}

TEST_F(ApplicationTest, UnknownActionsAndNothingToStopAreReported) {
  router_.launch({});
  std::vector<RequestResult> results;
  const auto note = [&](RequestResult result) { results.push_back(result); };
  router_.action("dance", note);
  router_.action("stop", note);
  router_.action("cancel", note);
  EXPECT_THAT(results, ElementsAre(RequestResult::kUnknown, RequestResult::kNothingToDo,
                                   RequestResult::kNothingToDo));
}

TEST_F(ApplicationTest, AClickThatFindsNothingToStopIsAnswered) {
  int told = 0;
  router_.setOnNothingRecorded([&] { ++told; });
  router_.launch({});
  router_.action("stop", [](RequestResult) {});
  EXPECT_EQ(told, 0) << "a script knows by its exit status";
  router_.useActivationToken("leave");
  router_.action("cancel", [](RequestResult) {});
  EXPECT_EQ(told, 1);
  router_.useActivationToken("leave");
  router_.activate();
  router_.action("stop", [](RequestResult) {});
  EXPECT_EQ(told, 1) << "the click was another";
}

TEST_F(ApplicationTest, StartedOnlyToStopItSaysThatThereIsNothingToStop) {
  int told = 0;
  router_.setOnNothingRecorded([&] { ++told; });
  router_.launchOnFirstRequest();
  std::optional<RequestResult> result;
  router_.action("stop", [&](RequestResult done) { result = done; });
  EXPECT_EQ(result, RequestResult::kNothingToDo);
  EXPECT_EQ(told, 1);
  EXPECT_FALSE(application_.hasTerminated()) << "what it told would go with it";
  router_.action("quit", [](RequestResult) {});
  EXPECT_TRUE(application_.hasTerminated());
}

TEST(IconsTest, KnowsTheProgramsPicturesAndNoOthers) {
  for (const char* name : {"ActiveIcon.icns", "KorvelIconOn", "MenuIconOn", "MenuIcon",
                           platform::kImageNameApplicationIcon}) {
    const auto image = Icons::imageNamed(name);
    ASSERT_NE(image, nullptr) << name;
    EXPECT_EQ(image->name, name);
    EXPECT_THAT(Icons::themeName(image), HasSubstr("com.vantrel.korvel.RecordAudio"));
  }
  EXPECT_EQ(Icons::imageNamed("Other"), nullptr);
  EXPECT_EQ(Icons::themeName(nullptr), "");
}

TEST(IconsTest, FindsTheFileInTheBuildFolderOrInTheTheme) {
  const TemporaryFolder folder;
  const Icons icons(folder / "resources", folder / "theme");
  const auto image = Icons::imageNamed("MenuIcon");
  EXPECT_EQ(icons.file(image), "");
  const std::string name = "com.vantrel.korvel.RecordAudio-symbolic.svg";
  base_test::write(folder / ("theme/symbolic/apps/" + name), "");
  EXPECT_EQ(icons.file(image), folder / ("theme/symbolic/apps/" + name));
  base_test::write(folder / ("resources/icons/hicolor/symbolic/apps/" + name), "");
  EXPECT_EQ(icons.file(image), folder / ("resources/icons/hicolor/symbolic/apps/" + name));
}

TEST(IconsTest, EveryPictureIsAmongTheProductsIcons) {
  const Icons icons(RA_BUILT_RESOURCES, "/nonexistent");
  for (const char* name : {"ActiveIcon.icns", "KorvelIconOn", "MenuIconOn", "MenuIcon",
                           platform::kImageNameApplicationIcon}) {
    EXPECT_NE(icons.file(Icons::imageNamed(name)), "") << name;
  }
}

}  // namespace
}  // namespace linux_host
