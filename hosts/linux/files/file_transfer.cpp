// SPDX-License-Identifier: MIT
#include "hosts/linux/files/file_transfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <utility>
#include <vector>

namespace linux_host {

using loopback::UniqueFd;

namespace {

// Small enough that even the slowest USB stick takes it long before it counts as hanging.
constexpr off_t kStep_bytes = off_t{4} << 20;
constexpr mode_t kPermissions = 0777;

bool hasNoSuchCall(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM;
}

// For file systems without RENAME_NOREPLACE: first takes the name in one step, with a hard link, or
// with an empty file where there are no links.
SystemStatus renameByReservation(const char* from, const char* to) {
  if (link(from, to) == 0) {
    if (unlink(from) == 0) return {};
    const auto error = systemError();
    unlink(to);
    return error;
  }
  if (!hasNoSuchCall(errno) && errno != EMLINK) return systemError();
  UniqueFd reserved(open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!reserved.valid()) return systemError();
  reserved.reset();
  if (rename(from, to) == 0) return {};
  const auto error = systemError();
  unlink(to);
  return error;
}

SystemStatus writeAll(int fd, const std::byte* data, std::size_t size_bytes, off_t offset_bytes) {
  while (size_bytes > 0) {
    const ssize_t count = pwrite(fd, data, size_bytes, offset_bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError();
    data += count;
    size_bytes -= static_cast<std::size_t>(count);
    offset_bytes += count;
  }
  return {};
}

// Copies through this process, which works between any two file systems. Adds to *copied_bytes, and
// ends where the source does.
SystemStatus copyByHand(int source, int target, off_t end_bytes, off_t* copied_bytes) {
  std::vector<std::byte> buffer(static_cast<std::size_t>(end_bytes - *copied_bytes));
  while (*copied_bytes < end_bytes) {
    const ssize_t count = pread(source, buffer.data(),
                                static_cast<std::size_t>(end_bytes - *copied_bytes), *copied_bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError();
    if (count == 0) return {};
    SystemStatus written =
        writeAll(target, buffer.data(), static_cast<std::size_t>(count), *copied_bytes);
    if (!written) return written;
    *copied_bytes += count;
  }
  return {};
}

SystemStatus copyUpTo(int source, int target, off_t end_bytes, off_t* copied_bytes) {
  while (*copied_bytes < end_bytes) {
    off_t from_bytes = *copied_bytes;
    const ssize_t count = copy_file_range(source, &from_bytes, target, copied_bytes,
                                          static_cast<std::size_t>(end_bytes - from_bytes), 0);
    if (count < 0 && errno == EINTR) continue;
    // Kernels differ in the pairs of file systems between which they copy, and in how they refuse.
    if (count == 0 || (count < 0 && (hasNoSuchCall(errno) || errno == EXDEV))) {
      return copyByHand(source, target, end_bytes, copied_bytes);
    }
    if (count < 0) return systemError();
  }
  return {};
}

Unexpected<std::errc> givenUp() {
  return Unexpected(std::errc::operation_canceled);
}

void flushFolder(const std::string& folder) {
  const UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.valid()) fsync(fd.get());
}

}  // namespace

SystemStatus renameWithoutReplacing(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL && errno != ENOSYS) return systemError();
  return renameByReservation(from.c_str(), to.c_str());
}

HiddenCopy::~HiddenCopy() {
  if (!hidden_.empty()) unlink(hidden_.c_str());
}

SystemStatus HiddenCopy::create(int sourceFd) {
  // An early check, so as not to copy in vain; the rename at the end decides.
  if (access(to_.c_str(), F_OK) == 0) return Unexpected(std::errc::file_exists);
  std::string name = std::filesystem::path(to_).parent_path().string() + "/.record-audio-XXXXXX";
  fd_ = UniqueFd(mkostemp(name.data(), O_CLOEXEC));
  if (!fd_.valid()) return systemError();
  hidden_ = name;
  struct stat status {};
  if (fstat(sourceFd, &status) != 0) return systemError();
  // File systems without permissions refuse this; the copy then has their defaults.
  [[maybe_unused]] const int changed = fchmod(fd_.get(), status.st_mode & kPermissions);
  return {};
}

SystemStatus HiddenCopy::copy(int sourceFd, std::uint64_t begin_bytes, std::uint64_t end_bytes) {
  if (begin_bytes >= end_bytes) return {};
  auto copied_bytes = static_cast<off_t>(begin_bytes);
  struct stat status {};
  if (fstat(sourceFd, &status) != 0) return systemError();
  const off_t last_bytes = std::min(static_cast<off_t>(end_bytes), status.st_size);
  while (copied_bytes < last_bytes) {
    if (isGivenUp_.load(std::memory_order_relaxed)) return givenUp();
    const FileCalls::Call call(calls_, to_);
    const off_t before_bytes = copied_bytes;
    SystemStatus copied = copyUpTo(sourceFd, fd_.get(),
                                   std::min(copied_bytes + kStep_bytes, last_bytes), &copied_bytes);
    if (!copied) return copied;
    if (fsync(fd_.get()) != 0) return systemError();
    if (copied_bytes == before_bytes) break;
  }
  return {};
}

SystemStatus HiddenCopy::truncate(std::uint64_t size_bytes) {
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) return systemError();
  if (status.st_size <= static_cast<off_t>(size_bytes)) return {};
  if (ftruncate(fd_.get(), static_cast<off_t>(size_bytes)) != 0) return systemError();
  return {};
}

Expected<UniqueFd, std::errc> HiddenCopy::publish(std::uint64_t size_bytes) {
  if (isGivenUp_.load(std::memory_order_relaxed)) return givenUp();
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) return systemError();
  // Another program has truncated the source.
  if (status.st_size != static_cast<off_t>(size_bytes)) return Unexpected(std::errc::io_error);
  const SystemStatus renamed = renameWithoutReplacing(hidden_, to_);
  if (!renamed) return Unexpected(renamed.error());
  hidden_.clear();
  flushFolder(std::filesystem::path(to_).parent_path().string());
  return std::move(fd_);
}

}  // namespace linux_host
