// SPDX-License-Identifier: MIT
// Tests the trap itself: a trap that catches nothing would prove nothing.

#include "tests/support/realtime_trap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

void* volatile keep = nullptr;

TEST(RealtimeTrap, FindsNothingInAPureComputation) {
  volatile double sum = 0;
  const auto report = realtime_trap::runTrapped([&] {
    for (int i = 0; i < 1000; ++i) sum = sum + i;
    return true;
  });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
}

TEST(RealtimeTrap, CatchesAnAllocationAndAFree) {
  const auto report = realtime_trap::runTrapped([] {
    keep = std::malloc(64);
    std::free(keep);
    const auto viaNew = std::make_unique<int>(3);
    keep = viaNew.get();
    return true;
  });
  EXPECT_THAT(report.violations, Contains("malloc 2 times"));
  EXPECT_THAT(report.violations, Contains("free 2 times"));
}

TEST(RealtimeTrap, ReportsABodyThatFails) {
  EXPECT_EQ(realtime_trap::runTrapped([] { return false; }).abnormalEnd, "the body returned false");
}

TEST(RealtimeTrap, ReportsABodyThatCrashes) {
  const auto report = realtime_trap::runTrapped([]() -> bool { std::_Exit(5); });
  EXPECT_EQ(report.abnormalEnd, "exit status 5");
}

TEST(RealtimeTrap, WatchesLocksAndSystemCallsExceptUnderASanitizer) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  EXPECT_FALSE(realtime_trap::watchesLocksAndSystemCalls());
#else
  ASSERT_TRUE(realtime_trap::watchesLocksAndSystemCalls());
  std::mutex mutex;
  const auto report = realtime_trap::runTrapped([&] {
    const std::scoped_lock lock(mutex);
    return getppid() < 0;  // refused with an error
  });
  EXPECT_THAT(report.violations, Contains("pthread_mutex_lock 1 times"));
  EXPECT_THAT(report.violations, Contains("pthread_mutex_unlock 1 times"));
  EXPECT_THAT(report.violations, Contains(StartsWith("system call ")));
#endif
}

TEST(RealtimeTrap, AScopeWatchesOnlyItsOwnThread) {
  realtime_trap::takeScopeReport();
  std::thread([] {
    keep = std::malloc(8);
    std::free(keep);
  }).join();
  EXPECT_TRUE(realtime_trap::takeScopeReport().clean());
  std::thread([] {
    const realtime_trap::Scope scope;
    keep = std::malloc(8);
    std::free(keep);
  }).join();
  EXPECT_THAT(realtime_trap::takeScopeReport().violations, Contains(HasSubstr("malloc 1 times")));
}

}  // namespace
