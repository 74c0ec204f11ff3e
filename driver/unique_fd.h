// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace loopback {

// A descriptor that is closed together with its owner.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~UniqueFd() {
    if (fd_ >= 0) close(fd_);
  }
  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  void reset() { *this = UniqueFd(); }
  // Whoever calls it closes the descriptor.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  // 0 or errno: what is written late may fail here. The descriptor is gone whatever it says.
  [[nodiscard]] int closeNow() { return close(release()) == 0 || errno == EINTR ? 0 : errno; }

 private:
  int fd_ = -1;
};

}  // namespace loopback
