// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/service_start.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace linux_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ServiceStartTest, TheOptionIsRemovedInAnyPosition) {
  std::vector<std::string> arguments{"--gapplication-service", "/a", "--gapplication-service"};
  EXPECT_TRUE(takeServiceStart(&arguments));
  EXPECT_THAT(arguments, ElementsAre("/a"));
}

TEST(ServiceStartTest, OtherArgumentsStayUnchanged) {
  std::vector<std::string> none;
  EXPECT_FALSE(takeServiceStart(&none));
  EXPECT_THAT(none, IsEmpty());
  std::vector<std::string> others{"--stop", "b"};
  EXPECT_FALSE(takeServiceStart(&others));
  EXPECT_THAT(others, ElementsAre("--stop", "b"));
}

TEST(ServiceStartTest, BehindTheEndOfOptionsItIsAPath) {
  std::vector<std::string> arguments{"--", "--gapplication-service"};
  EXPECT_FALSE(takeServiceStart(&arguments));
  EXPECT_THAT(arguments, ElementsAre("--", "--gapplication-service"));
}

}  // namespace
}  // namespace linux_host
