#include "hosts/linux/host/silence_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/memory_host/memory_run_loop.h"

// When the user is told that no sound is coming in; on a clock of the test's own.

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
  [[nodiscard]] platform::Dictionary status() const override { return {{"state", "recording"}}; }
};

class SilenceWatchTest : public ::testing::Test {
 protected:
  memory_host::MemoryClock clock_;
  memory_host::MemoryDispatch dispatch_;
  memory_host::MemoryRunLoop loop_{clock_, dispatch_};
  bool sourceIsSilent_ = false;
  int looks_ = 0;
  std::vector<bool> changes_;
  SilenceWatch watch_{loop_,
                      [this] {
                        ++looks_;
                        return sourceIsSilent_;
                      },
                      [this](bool silent) { changes_.push_back(silent); }};
};

TEST_F(SilenceWatchTest, LooksOnceASecondWhileRecordingAndNeverElse) {
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

TEST_F(SilenceWatchTest, SilenceIsToldOnceAndClearedWhenSoundComes) {
  watch_.toolDataDidChange(kRecording);
  sourceIsSilent_ = true;
  loop_.advance(10);
  EXPECT_THAT(changes_, ElementsAre(true));
  EXPECT_TRUE(watch_.isSilent());
  sourceIsSilent_ = false;
  loop_.advance(10);
  EXPECT_THAT(changes_, ElementsAre(true, false));
  EXPECT_FALSE(watch_.isSilent());
}

TEST_F(SilenceWatchTest, TheEndOfTheRecordingClearsIt) {
  watch_.toolDataDidChange(kRecording);
  sourceIsSilent_ = true;
  loop_.advance(2);
  watch_.toolDataDidChange(kResting);
  EXPECT_THAT(changes_, ElementsAre(true, false));
  watch_.toolDataDidChange(kRecording);
  loop_.advance(2);
  EXPECT_THAT(changes_, ElementsAre(true, false, true));
}

TEST_F(SilenceWatchTest, StatusSaysSilentWhileItIs) {
  SilenceInStatus control(std::make_shared<FakeControl>(), watch_);
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

}  // namespace
}  // namespace linux_host
