// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "driver/unique_fd.h"
#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/file_calls.h"

// The system calls for moving a file. Any thread.

namespace linux_host {

// Renames, but fails with EEXIST rather than replace a file, even on file systems that cannot
// guarantee that in one step. EXDEV: another file system.
SystemStatus renameWithoutReplacing(const std::string& from, const std::string& to);

// A copy of a file in another folder. It has a hidden name there until it is complete, and is
// removed if it never gets its own name. One thread at a time.
class HiddenCopy {
 public:
  // `to` must not exist. Copies in steps; each step is a call of `calls` and ends on the disk.
  // Fails with ECANCELED when `isGivenUp` has become true. Both outlive the copy.
  HiddenCopy(std::string to, FileCalls& calls, const std::atomic<bool>& isGivenUp)
      : to_(std::move(to)), calls_(calls), isGivenUp_(isGivenUp) {}
  ~HiddenCopy();
  HiddenCopy(const HiddenCopy&) = delete;
  HiddenCopy& operator=(const HiddenCopy&) = delete;

  // Creates the empty file with the permissions of the source. Must succeed before anything else.
  SystemStatus create(int sourceFd);
  // Copies that part of the source, as far as it exists.
  SystemStatus copy(int sourceFd, std::uint64_t begin_bytes, std::uint64_t end_bytes);
  // Drops what the source no longer has.
  SystemStatus truncate(std::uint64_t size_bytes);
  // Gives the copy its name if it has that size, else fails with EIO. Returns its descriptor, open
  // for reading and writing.
  Expected<loopback::UniqueFd, std::errc> publish(std::uint64_t size_bytes);

 private:
  const std::string to_;
  FileCalls& calls_;
  const std::atomic<bool>& isGivenUp_;
  std::string hidden_;  // empty before create() and after publish()
  loopback::UniqueFd fd_;
};

}  // namespace linux_host
