// SPDX-License-Identifier: MIT
#include "tests/empty_host/empty_host.h"

#include <gtest/gtest.h>

#include <sstream>

#include "app/app_delegate.h"
#include "app/entry_point.h"

// The core on a host on which nothing exists: it finds no folder for recordings, and ends.

namespace empty_host {
namespace {

TEST(EmptyHostTest, TheToolEndsWhereItFindsNoFolder) {
  EmptyHost host;
  const auto delegate = record_audio::AppDelegate::create(host.environment());
  delegate->applicationWillFinishLaunching();
  EXPECT_TRUE(delegate->application("/a path"));
  delegate->applicationDidFinishLaunching();
  EXPECT_TRUE(host.hasEnded());
  EXPECT_FALSE(delegate->stop());
  EXPECT_FALSE(delegate->cancel());
  EXPECT_FALSE(delegate->hasFailedRecording());
  delegate->applicationWillTerminate();
}

TEST(EmptyHostTest, NothingIsRecovered) {
  EmptyHost host;
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(record_audio::recoverRecordings(host.environment(), out, err),
            record_audio::kExitFailed);
  EXPECT_EQ(out.str() + err.str(), "");
}

}  // namespace
}  // namespace empty_host
