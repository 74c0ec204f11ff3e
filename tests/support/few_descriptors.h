// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace test_support {

// While it lives, the process can get only so many new descriptors.
class FewDescriptors {
 public:
  explicit FewDescriptors(int left) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
    const int lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(lowestFree, 0);
    close(lowestFree);
    const rlimit few{static_cast<rlim_t>(lowestFree + left), before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  ~FewDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace test_support
