// SPDX-License-Identifier: MIT
#include "hosts/linux/files/background_flush.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>

#include "hosts/linux/files/open_file.h"
#include "tests/base/open_descriptors.h"
#include "tests/base/soon.h"
#include "tests/base/temporary_folder.h"

namespace linux_host {
namespace {

using base_test::soon;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::atomic<int> begun{0};
std::atomic<int> flushes{0};
std::atomic<int> answer{0};  // errno
std::atomic<bool> isHeld{false};

// A disk controlled by the test.
int flushAsTold(int fd) {
  ++begun;
  const bool isOpen = fcntl(fd, F_GETFD) >= 0;
  while (isHeld) std::this_thread::yield();
  errno = isOpen ? answer.load() : EBADF;
  ++flushes;
  return errno == 0 ? 0 : -1;
}

class BackgroundFlushTest : public testing::Test {
 protected:
  BackgroundFlushTest() {
    begun = 0;
    flushes = 0;
    answer = 0;
    isHeld = false;
  }
  ~BackgroundFlushTest() override {
    isHeld = false;
    // A flush that is still running would count in the next test.
    closeFile();
    EXPECT_TRUE(soon([this] { return base_test::openDescriptors(folder_ / "a") == 0; }));
  }

  void closeFile() {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

  const base_test::TemporaryFolder folder_;
  int fd_ = open((folder_ / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
};

TEST_F(BackgroundFlushTest, FlushesAgainAndAgainButNotAtEachWrite) {
  BackgroundFlush flush(&flushAsTold, 20ms);
  const auto begin = Clock::now();
  std::int64_t writes = 0;
  EXPECT_TRUE(soon([&] {
    ++writes;
    flush.nowAndThen(fd_);
    return flushes >= 5;
  }));
  EXPECT_GE(Clock::now() - begin, 5 * 20ms);
  EXPECT_GT(writes, 5);
  EXPECT_TRUE(flush.takeResult());
}

TEST_F(BackgroundFlushTest, NobodyWaitsForOneThatHangsAndNoOtherIsStarted) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  isHeld = true;
  for (int i = 0; i < 1000; ++i) flush.nowAndThen(fd_);
  EXPECT_EQ(flushes, 0);
  isHeld = false;
  EXPECT_TRUE(soon([] { return flushes == 1; }));
}

TEST_F(BackgroundFlushTest, SlowDiskGetsAPauseInProportionToItsSlowness) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  isHeld = true;
  flush.nowAndThen(fd_);
  EXPECT_TRUE(soon([] { return begun == 1; }));
  const auto begin = Clock::now();
  while (Clock::now() - begin < 50ms) std::this_thread::yield();
  isHeld = false;
  EXPECT_TRUE(soon([] { return flushes == 1; }));
  EXPECT_TRUE(soon([&] {
    flush.nowAndThen(fd_);
    return flushes >= 2;
  }));
  EXPECT_GE(Clock::now() - begin, (1 + BackgroundFlush::kPauseFactor) * 50ms);
}

TEST_F(BackgroundFlushTest, TheLastOneIsDoneEvenWhileAnotherIsUnderWayAndTheFileIsClosed) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  isHeld = true;
  flush.nowAndThen(fd_);
  flush.now(fd_);
  closeFile();
  isHeld = false;
  EXPECT_TRUE(soon([] { return flushes >= 2; }));
  EXPECT_TRUE(flush.takeResult());
}

TEST_F(BackgroundFlushTest, FailureIsReportedOnce) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  answer = EIO;
  flush.now(fd_);
  SystemStatus result;
  EXPECT_TRUE(soon([&] { return !(result = flush.takeResult()); }));
  EXPECT_EQ(result.error(), std::errc::io_error);
  EXPECT_TRUE(flush.takeResult());
}

TEST_F(BackgroundFlushTest, FileSystemWithNothingToFlushHasNotFailed) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  answer = EINVAL;
  flush.now(fd_);
  EXPECT_TRUE(soon([] { return flushes == 1; }));
  answer = EIO;
  flush.now(fd_);
  SystemStatus result;
  EXPECT_TRUE(soon([&] { return !(result = flush.takeResult()); }));
  EXPECT_EQ(result.error(), std::errc::io_error) << "and nothing before it";
}

TEST_F(BackgroundFlushTest, FailureOfTheLastOneIsReportedUnasked) {
  BackgroundFlush flush(&flushAsTold, 0ms);
  std::atomic<int> told{0};
  answer = EROFS;
  flush.now(fd_, [&](std::errc error) { told = static_cast<int>(error); });
  EXPECT_TRUE(soon([] { return flushes == 1; }));
  answer = EIO;
  flush.now(fd_, [&](std::errc error) { told = static_cast<int>(error); });
  EXPECT_TRUE(soon([&] { return told != 0; }));
  EXPECT_EQ(told, EIO) << "a file system that has nothing to flush has not failed";
}

}  // namespace
}  // namespace linux_host
