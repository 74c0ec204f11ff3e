// SPDX-License-Identifier: MIT
#include "hosts/linux/host/recording_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/memory_host/memory_run_loop.h"

// When the user is told of silence and other problems, on the test's own clock.

namespace linux_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const suite::ToolData kRecording{1, "", "", "00:00"};
const suite::ToolData kResting{0, "", "", ""};

class FakeControl : public platform::RemoteControl {
 public:
  bool stop() override { return true; }
  bool cancel() override { return false; }
  void setOnStateChange(std::function<void()>) override {}
  [[nodiscard]] platform::Dictionary status() const override { return {{"state", "recording"}}; }
};

class RecordingWatchTest : public ::testing::Test {
 protected:
  memory_host::MemoryClock clock_;
  memory_host::MemoryDispatch dispatch_;
  memory_host::MemoryRunLoop loop_{clock_, dispatch_};
  bool sourceIsSilent_ = false;
  int looks_ = 0;
  std::vector<bool> changes_;
  bool isDiskFull_ = false;
  std::vector<bool> recordings_;
  RecordingWatch watch_{loop_,
                        {{"silent",
                          [this] {
                            ++looks_;
                            return sourceIsSilent_;
                          },
                          [this](bool silent) { changes_.push_back(silent); }},
                         {"", [] { return true; }, [](bool) {}},
                         {"lowSpace", [this] { return isDiskFull_; }, [](bool) {}}},
                        [this](bool begins) { recordings_.push_back(begins); }};
};

TEST_F(RecordingWatchTest, ChecksOnceASecondWhileRecordingAndNeverOtherwise) {
  loop_.advance(5);
  EXPECT_EQ(looks_, 0);
  watch_.toolDataDidChange(kRecording);
  loop_.advance(4.5);
  EXPECT_EQ(looks_, 4);
  watch_.toolDataDidChange(kResting);
  loop_.advance(5);
  EXPECT_EQ(looks_, 4);
  EXPECT_THAT(changes_, IsEmpty());
}

// The suite's data from the accepted start of a second recording to its confirmation, and after an
// error, which leaves the menu's text.
TEST_F(RecordingWatchTest, ARecordingBeginsWithItsAcceptedStartAlsoTheSecondTime) {
  watch_.toolDataDidChange({0, "KorvelIconOn", "MenuIconOn", "00:00"});
  EXPECT_THAT(recordings_, ElementsAre(true));
  watch_.toolDataDidChange({1, "", "MenuIconOn", "00:01"});
  watch_.toolDataDidChange({0, "", "MenuIconOn", "00:01"});
  EXPECT_THAT(recordings_, ElementsAre(true, false));
}

TEST_F(RecordingWatchTest, SilenceIsReportedOnceAndClearedWhenSoundComes) {
  watch_.toolDataDidChange(kRecording);
  sourceIsSilent_ = true;
  loop_.advance(10);
  EXPECT_THAT(changes_, ElementsAre(true));
  EXPECT_THAT(watch_.trueKeys(), ElementsAre("silent"));
  sourceIsSilent_ = false;
  loop_.advance(10);
  EXPECT_THAT(changes_, ElementsAre(true, false));
  EXPECT_THAT(watch_.trueKeys(), IsEmpty());
}

TEST_F(RecordingWatchTest, TheEndOfTheRecordingClearsIt) {
  watch_.toolDataDidChange(kRecording);
  sourceIsSilent_ = true;
  loop_.advance(2);
  watch_.toolDataDidChange(kResting);
  EXPECT_THAT(changes_, ElementsAre(true, false));
  watch_.toolDataDidChange(kRecording);
  loop_.advance(2);
  EXPECT_THAT(changes_, ElementsAre(true, false, true));
}

TEST_F(RecordingWatchTest, TheStartAndTheEndOfARecordingAreReportedOnce) {
  watch_.toolDataDidChange(kResting);
  EXPECT_THAT(recordings_, IsEmpty());
  watch_.toolDataDidChange(kRecording);
  watch_.toolDataDidChange(kRecording);
  watch_.toolDataDidChange(kResting);
  EXPECT_THAT(recordings_, ElementsAre(true, false));
}

TEST_F(RecordingWatchTest, EachFindingIsReportedSeparately) {
  watch_.toolDataDidChange(kRecording);
  isDiskFull_ = true;
  loop_.advance(1);
  EXPECT_THAT(watch_.trueKeys(), ElementsAre("lowSpace"));
  sourceIsSilent_ = true;
  loop_.advance(1);
  EXPECT_THAT(watch_.trueKeys(), ElementsAre("silent", "lowSpace"));
  EXPECT_THAT(changes_, ElementsAre(true));
  watch_.toolDataDidChange(kResting);
  EXPECT_THAT(watch_.trueKeys(), IsEmpty());
}

TEST_F(RecordingWatchTest, NothingMoreIsCheckedOnceAFindingHasEndedTheRecording) {
  int looks = 0;
  RecordingWatch* ending = nullptr;
  RecordingWatch watch(loop_,
                       {{"", [] { return true; },
                         [&](bool isSo) {
                           if (isSo) ending->toolDataDidChange(kResting);
                         }},
                        {"",
                         [&] {
                           ++looks;
                           return true;
                         },
                         [](bool) {}}},
                       [](bool) {});
  ending = &watch;
  watch.toolDataDidChange(kRecording);
  loop_.advance(3);
  EXPECT_EQ(looks, 0);
}

TEST_F(RecordingWatchTest, StatusSaysSilentWhileItIs) {
  std::uint64_t lost_frames = 0;
  FindingsInStatus control(std::make_shared<FakeControl>(), watch_, [&] { return lost_frames; });
  EXPECT_TRUE(control.stop());
  EXPECT_FALSE(control.cancel());
  EXPECT_EQ(control.status().count("silent"), 0U);
  watch_.toolDataDidChange(kRecording);
  sourceIsSilent_ = true;
  loop_.advance(1);
  EXPECT_EQ(control.status().at("silent"), platform::Value(true));
  EXPECT_EQ(control.status().at("state"), platform::Value("recording"));
  sourceIsSilent_ = false;
  loop_.advance(1);
  EXPECT_EQ(control.status().count("silent"), 0U);
}

TEST_F(RecordingWatchTest, StatusSaysHowMuchSoundWasLostOnceSomeWas) {
  std::uint64_t lost_frames = 0;
  FindingsInStatus control(std::make_shared<FakeControl>(), watch_, [&] { return lost_frames; });
  EXPECT_EQ(control.status().count("lostFrames"), 0U);
  lost_frames = 1024;
  EXPECT_EQ(control.status().at("lostFrames"), platform::Value(1024));
}

}  // namespace
}  // namespace linux_host
