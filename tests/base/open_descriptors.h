// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace base_test {

// The number of this process's descriptors of files whose path has that ending; the system appends
// " (deleted)" for a file without a name.
inline std::size_t openDescriptors(std::string_view end) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closedMeanwhile;
    const std::string path = std::filesystem::read_symlink(entry.path(), closedMeanwhile).string();
    if (path.ends_with(end)) ++count;
  }
  return count;
}

}  // namespace base_test
