// SPDX-License-Identifier: MIT
#include <algorithm>
#include <deque>
#include <set>
#include <utility>
#include <vector>

#include "app/app_delegate.h"
#include "tests/contract/contract_test.h"

// The tool itself on each host: what platform/remote_control.h promises, and that the ports
// together make a recording.

namespace contract {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::Not;

constexpr const char* kStartedText = "Starting a new audio recording.";
constexpr const char* kSavedText = "Audio recording is saved.\nClick here to show in Finder.";

class ToolContract : public ContractTest {
 protected:
  using Step = std::function<void()>;
  struct Awaited {
    std::function<bool()> condition;
    Step step;
  };

  void SetUp() override {
    rig->surroundings();
    useFormat(0);
    host().userDefaults.setInteger(1, "AudioSourceType");
    host().userDefaults.setObject("", "AudioSourceID");
  }
  void useFormat(int format) { host().userDefaults.setInteger(format, "SoundFormat"); }

  // Once the condition holds, and after the steps before it.
  void when(std::function<bool()> condition, Step step) {
    script_.push_back({std::move(condition), std::move(step)});
  }
  void whenStateIs(const std::string& state, Step step) {
    when([this, state] { return text("state") == state; }, std::move(step));
  }
  void whenStateHasBeen(const std::string& state, double seconds, Step step) {
    whenStateIs(state, [this, seconds] { end_s_ = now_s() + seconds; });
    when([this] { return now_s() >= end_s_; }, std::move(step));
  }
  // Runs the tool through the steps, then to its end.
  void run() {
    tool = record_audio::AppDelegate::create(rig->environment());
    rig->surroundings().run(std::make_shared<Begin>(*this), tool, {});
    EXPECT_THAT(script_, IsEmpty()) << "the tool ended too early";
  }
  void TearDown() override { tool.reset(); }

  [[nodiscard]] std::string text(const std::string& key) const {
    const auto status = tool->status();
    const auto found = status.find(key);
    const auto* value = found == status.end() ? nullptr : found->second.as<std::string>();
    return value == nullptr ? "" : *value;
  }
  // The first line of that text, in the user's language.
  std::string line(const std::string& key) {
    const std::string text = host().mainBundle.localizedString(key);
    return text.substr(0, text.find('\n'));
  }
  bool isShown(const std::string& key) {
    const auto lines = rig->surroundings().shownNotifications();
    return std::ranges::count(lines, line(key)) > 0;
  }

  std::shared_ptr<record_audio::AppDelegate> tool;

 private:
  // The tool's delegate, with the script begun where the launch is over.
  class Begin : public platform::ApplicationDelegate {
   public:
    explicit Begin(ToolContract& test) : test_(test) {}
    void applicationWillFinishLaunching() override { test_.tool->applicationWillFinishLaunching(); }
    bool application(const std::string& path) override { return test_.tool->application(path); }
    void applicationDidFinishLaunching() override {
      test_.giveUpAt_s_ = test_.now_s() + kPatience_s;
      test_.timer_ = test_.host().runLoop.scheduledTimer(
          kPoll_s, {}, true, [&test = test_](const platform::TimerPtr&) { test.goOn(); });
      test_.tool->applicationDidFinishLaunching();
    }
    bool applicationShouldHandleReopen(bool hasVisibleWindows) override {
      return test_.tool->applicationShouldHandleReopen(hasVisibleWindows);
    }
    platform::TerminateReply applicationShouldTerminate() override {
      return test_.tool->applicationShouldTerminate();
    }
    void applicationWillTerminate() override {
      test_.timer_->invalidate();
      test_.tool->applicationWillTerminate();
    }

   private:
    ToolContract& test_;
  };

  static constexpr double kPoll_s = 0.01;
  static constexpr double kPatience_s = 9;

  void goOn() {
    if (now_s() > giveUpAt_s_ && !script_.empty()) {
      ADD_FAILURE() << "still waiting, " << script_.size() << " steps before the end, in state "
                    << text("state");
      script_.clear();
    }
    if (!script_.empty() && script_.front().condition()) {
      const Awaited awaited = std::move(script_.front());
      script_.pop_front();
      awaited.step();
    }
    if (!script_.empty()) return;
    // The tool stays as long as its notifications do, which is longer than a test.
    tool->removeAllPreviousNotifications();
    host().application.terminate();
  }

  std::deque<Awaited> script_;
  platform::TimerPtr timer_;
  double giveUpAt_s_ = 0;
  double end_s_ = 0;
};

class FormatContract : public ToolContract, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Formats, FormatContract, testing::Values(0, 1));

TEST_P(FormatContract, AStopSavesTheRecording) {
  useFormat(GetParam());
  rig->plugInMicrophone("mic");
  std::string recorded;
  whenStateHasBeen("recording", 0.3, [&] {
    EXPECT_THAT(tool->status(), Contains(Key("elapsedSeconds")));
    EXPECT_EQ(text("source"), "default");
    recorded = text("outputFile");
    EXPECT_TRUE(host().fileManager.fileExists(recorded));
    EXPECT_TRUE(tool->stop());
    EXPECT_EQ(text("state"), "idle");
    EXPECT_FALSE(tool->stop()) << "nothing is left to end";
    EXPECT_FALSE(tool->cancel());
  });
  when([&] { return isShown(kSavedText); },
       [&] {
         EXPECT_FALSE(host().fileManager.fileExists(recorded)) << "it has moved";
         recorded = text("outputFile");
       });
  run();
  EXPECT_THAT(recorded, HasSubstr("/" + line("Audio recording") + " "));
  EXPECT_THAT(rig->contents(recorded).value_or(""), Not(IsEmpty()));
  EXPECT_EQ(host().fileManager.removeItem(recorded), "");
}

TEST_F(ToolContract, ACancelDeletesTheRecording) {
  rig->plugInMicrophone("mic");
  std::string recorded;
  whenStateHasBeen("recording", 0.1, [&] {
    recorded = text("outputFile");
    EXPECT_TRUE(tool->cancel());
    EXPECT_EQ(text("state"), "idle");
    EXPECT_FALSE(tool->cancel());
  });
  run();
  EXPECT_THAT(recorded, Not(IsEmpty()));
  EXPECT_EQ(rig->contents(recorded), std::nullopt);
}

TEST_F(ToolContract, EachChangeOfTheStateIsTold) {
  rig->plugInMicrophone("mic");
  std::set<std::string> told;
  whenStateIs("recording", [&] {
    tool->setOnStateChange([&] { told.insert(text("state")); });
    EXPECT_TRUE(tool->stop());
  });
  whenStateIs("idle", [&] { EXPECT_THAT(told, Contains("idle")); });
  when([] { return true; },
       [&] {
         tool->setOnStateChange([&] { told.insert("second " + text("state")); });
         tool->applicationShouldHandleReopen(false);
       });
  whenStateIs("recording", [&] {
    EXPECT_THAT(told, Contains("second recording"));
    EXPECT_THAT(told, Not(Contains("recording"))) << "one at a time";
    EXPECT_TRUE(tool->cancel());
  });
  run();
}

TEST_F(ToolContract, WithoutASourceNothingIsRecordedAndThereIsNothingToEnd) {
  run();
  EXPECT_EQ(text("state"), "idle");
  EXPECT_FALSE(tool->stop());
  EXPECT_FALSE(tool->cancel());
  EXPECT_THAT(tool->status(), Not(Contains(Key("outputFile"))));
}

TEST_F(ToolContract, AClickEndsTheRecordingAndTheNextBeginsAnother) {
  rig->plugInMicrophone("mic");
  std::vector<std::string> recorded;
  whenStateHasBeen("recording", 0.1, [&] { rig->surroundings().startAgain({}); });
  whenStateIs("idle", [&] {
    recorded.push_back(text("outputFile"));
    rig->surroundings().startAgain({});
  });
  whenStateHasBeen("recording", 0.1, [&] { rig->surroundings().startAgain({}); });
  whenStateIs("idle", [&] { recorded.push_back(text("outputFile")); });
  run();
  ASSERT_EQ(recorded.size(), 2U);
  EXPECT_NE(recorded[0], recorded[1]);
  for (const std::string& path : recorded) {
    EXPECT_THAT(rig->contents(path).value_or(""), Not(IsEmpty())) << path;
    EXPECT_EQ(host().fileManager.removeItem(path), "");
  }
}

TEST_F(ToolContract, TheButtonOfTheFirstNotificationCancels) {
  rig->plugInMicrophone("mic");
  std::string recorded;
  when([&] { return isShown(kStartedText); },
       [&] {
         recorded = text("outputFile");
         EXPECT_TRUE(host().fileManager.fileExists(recorded));
         rig->surroundings().act(line(kStartedText), Surroundings::Act::kPressButton);
       });
  whenStateIs("idle", [&] { EXPECT_FALSE(host().fileManager.fileExists(recorded)); });
  run();
}

}  // namespace
}  // namespace contract
