// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

// What happens once per process can be tested only in a new process. The condition is evaluated in
// a fresh run of this program, in which nothing was called before.
#define EXPECT_IN_OWN_PROCESS(condition)                                           \
  do {                                                                             \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                \
    EXPECT_EXIT(std::exit((condition) ? 0 : 1), ::testing::ExitedWithCode(0), ""); \
  } while (false)
