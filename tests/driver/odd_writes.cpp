// SPDX-License-Identifier: MIT
#include "tests/driver/odd_writes.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

extern "C" {
ssize_t __real_write(int fd, const void* data, std::size_t size_bytes);
}

namespace {

std::vector<ssize_t> next;

}  // namespace

extern "C" ssize_t __wrap_write(int fd, const void* data, std::size_t size_bytes) {
  if (next.empty()) return __real_write(fd, data, size_bytes);
  const ssize_t outcome = next.front();
  next.erase(next.begin());
  if (outcome >= 0) {
    return __real_write(fd, data, std::min(size_bytes, static_cast<std::size_t>(outcome)));
  }
  errno = static_cast<int>(-outcome);
  return -1;
}

namespace driver_test {

void letWrites(std::vector<ssize_t> outcomes) {
  next = std::move(outcomes);
}

}  // namespace driver_test
