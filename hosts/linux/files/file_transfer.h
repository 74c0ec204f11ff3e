// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "hosts/linux/files/file_calls.h"

// The system's side of moving a file. Any thread; return errno, 0 on success.

namespace linux_host {

// Renames, and fails with EEXIST rather than replace a file, on file systems that cannot promise
// that in one step too. EXDEV: another file system.
int renameWithoutReplacing(const std::string& from, const std::string& to);

// A copy of a file in another folder. Until it is complete it has a hidden name there; nothing is
// left of one that never got its own. One thread at a time.
class HiddenCopy {
 public:
  // `to` must not exist; copying goes in steps, each a call of `calls` that ends on the disk, and
  // fails with ECANCELED when `isGivenUp` has become true. Both outlive the copy.
  HiddenCopy(std::string to, FileCalls& calls, const std::atomic<bool>& isGivenUp)
      : to_(std::move(to)), calls_(calls), isGivenUp_(isGivenUp) {}
  ~HiddenCopy();
  HiddenCopy(const HiddenCopy&) = delete;
  HiddenCopy& operator=(const HiddenCopy&) = delete;

  // Makes the empty file, with the permissions of the source. Must succeed before anything else.
  int create(int sourceFd);
  // Copies that part of the source, as far as the source has it meanwhile.
  int copy(int sourceFd, std::uint64_t begin_bytes, std::uint64_t end_bytes);
  // Drops what the source no longer has.
  int truncate(std::uint64_t size_bytes);
  // Gives it its name if it is as long as that, else EIO; *copyFd receives its descriptor, open for
  // reading and writing.
  int publish(std::uint64_t size_bytes, int* copyFd);

 private:
  const std::string to_;
  FileCalls& calls_;
  const std::atomic<bool>& isGivenUp_;
  std::string hidden_;  // empty before create() and after publish()
  int fd_ = -1;
};

}  // namespace linux_host
