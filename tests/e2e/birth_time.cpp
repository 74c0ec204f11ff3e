// SPDX-License-Identifier: MIT
#include "tests/e2e/birth_time.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace e2e {

std::optional<WallClock::time_point> birthOf(const std::string& path) {
  struct statx description {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &description) != 0 ||
      (description.stx_mask & STATX_BTIME) == 0) {
    return std::nullopt;
  }
  return WallClock::time_point(std::chrono::seconds(description.stx_btime.tv_sec) +
                               std::chrono::nanoseconds(description.stx_btime.tv_nsec));
}

}  // namespace e2e
