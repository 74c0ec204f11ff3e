// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "hosts/linux/files/file_calls.h"
#include "hosts/linux/files/free_space.h"
#include "tests/base/soon.h"

// Disks that do not answer and disks that are nearly full, as far as this can be tested without a
// disk.

namespace linux_host {
namespace {

using base_test::soon;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Blocks calls until it is opened, at the latest in its destructor.
class Gate {
 public:
  ~Gate() { open(); }
  void pass() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return isOpen_; });
  }
  void open() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    opened_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool isOpen_ = false;
};

class FileCallsTest : public testing::Test {
 protected:
  std::shared_ptr<FileCalls> calls_ = std::make_shared<FileCalls>();
  std::shared_ptr<Gate> gate_ = std::make_shared<Gate>();
};

TEST_F(FileCallsTest, ReturnsWhatTheCallReturns) {
  EXPECT_EQ(calls_->within([] { return 7; }), 7);
}

TEST_F(FileCallsTest, GivesUpACallThatDoesNotReturnAndLaterOnesSooner) {
  const auto isGivenUp = std::make_shared<std::atomic<bool>>(false);
  const auto isOver = std::make_shared<std::atomic<bool>>(false);
  const auto hang = [gate = gate_, calls = calls_, isOver] {
    const FileCalls::Call underWay(*calls, "/hangs");
    gate->pass();
    return isOver->exchange(true);
  };
  const auto begin = Clock::now();
  EXPECT_EQ(calls_->within(hang, isGivenUp), std::nullopt);
  EXPECT_GE(Clock::now() - begin, FileCalls::kPatience);
  EXPECT_TRUE(*isGivenUp);

  const auto next = Clock::now();
  EXPECT_EQ(calls_->within(hang), std::nullopt);
  EXPECT_LT(Clock::now() - next, FileCalls::kPatience - 1s);
  gate_->open();
  EXPECT_TRUE(soon([&] { return calls_->progress() == 2; })) << "they go on alone";
  EXPECT_EQ(calls_->within(hang), true);
}

TEST_F(FileCallsTest, WaitsAsLongAsACallMakesProgress) {
  const auto work = [calls = calls_] {
    const auto end = Clock::now() + FileCalls::kPatience + 1s;
    while (Clock::now() < end) {
      const FileCalls::Call step(*calls, "/slow");
      std::this_thread::yield();
    }
    return 1;
  };
  EXPECT_EQ(calls_->within(work), 1);
}

TEST_F(FileCallsTest, NamesTheOldestCallOfAKind) {
  EXPECT_FALSE(calls_->oldest(FileCalls::Kind::kContent));
  const FileCalls::Call name(*calls_, "/name");
  auto first = std::make_unique<FileCalls::Call>(*calls_, "/a", FileCalls::Kind::kContent);
  const FileCalls::Call second(*calls_, "/b", FileCalls::Kind::kContent);
  EXPECT_EQ(calls_->oldest(FileCalls::Kind::kContent)->path, "/a");
  first.reset();
  EXPECT_EQ(calls_->oldest(FileCalls::Kind::kContent)->path, "/b");
  EXPECT_EQ(calls_->progress(), 1U);
}

TEST_F(FileCallsTest, OnlyTheSameCallSeenAgainAndAgainIsAStall) {
  StallDetector detector(*calls_);
  for (int i = 0; i < 20; ++i) {
    const FileCalls::Call brief(*calls_, "/busy", FileCalls::Kind::kContent);
    EXPECT_FALSE(detector.look()) << "each is another";
  }
  const FileCalls::Call hanging(*calls_, "/hangs", FileCalls::Kind::kContent);
  for (int i = 0; i < StallDetector::kLooks; ++i) EXPECT_FALSE(detector.look());
  EXPECT_EQ(detector.look(), "/hangs");
}

TEST(FreeSpaceTest, ReportsAFolderThatRunsLowAndItsRecovery) {
  // A check may still be running when the test is over.
  struct Disk {
    std::atomic<std::uint64_t> free_bytes{FreeSpace::kLow_bytes};
    std::atomic<int> looks{0};
  };
  const auto disk = std::make_shared<Disk>();
  FreeSpace space(
      [disk](const std::string& folder) -> std::optional<std::uint64_t> {
        ++disk->looks;
        return folder == "/small" ? disk->free_bytes.load() : 1'000'000'000'000;
      },
      10ms);
  EXPECT_FALSE(space.isLow());
  space.begin({"/large", "/small"});
  EXPECT_TRUE(soon([&] { return disk->looks > 4; }));
  EXPECT_FALSE(space.isLow()) << "exactly as much is enough";
  disk->free_bytes = FreeSpace::kLow_bytes - 1;
  EXPECT_TRUE(soon([&] { return space.isLow(); }));
  disk->free_bytes = FreeSpace::kLow_bytes;
  EXPECT_TRUE(soon([&] { return !space.isLow(); }));
  disk->free_bytes = 0;
  EXPECT_TRUE(soon([&] { return space.isLow(); }));
  space.end();
  EXPECT_FALSE(space.isLow());
}

TEST(FreeSpaceTest, AFolderThatHangsHoldsUpNeitherTheOtherNorTheEnd) {
  const auto gate = std::make_shared<Gate>();
  {
    FreeSpace space(
        [gate](const std::string& folder) -> std::optional<std::uint64_t> {
          if (folder == "/hangs") gate->pass();
          return 1;
        },
        10ms);
    space.begin({"/hangs", "/small"});
    EXPECT_TRUE(soon([&] { return space.isLow(); }));
  }
  gate->open();
}

TEST(FreeSpaceTest, AnUnknownAmountIsNotLow) {
  EXPECT_EQ(freeSpace_bytes("/no/such/folder"), std::nullopt);
  EXPECT_EQ(freeSpace_bytes("/proc"), std::nullopt) << "it has no size";
  EXPECT_GT(freeSpace_bytes("/tmp"), 0U);
}

}  // namespace
}  // namespace linux_host
