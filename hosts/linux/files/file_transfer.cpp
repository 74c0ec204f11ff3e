#include "hosts/linux/files/file_transfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace linux_host {
namespace {

// So little that the slowest of sticks has taken it long before it is taken for one that hangs.
constexpr off_t kStep_bytes = off_t{4} << 20;
constexpr mode_t kPermissions = 0777;

bool hasNoSuchCall(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM;
}

// For file systems without RENAME_NOREPLACE: the name is first taken in one step, by a hard link
// or, where there are none, by an empty file.
int renameByReservation(const char* from, const char* to) {
  if (link(from, to) == 0) {
    if (unlink(from) == 0) return 0;
    const int error = errno;
    unlink(to);
    return error;
  }
  if (!hasNoSuchCall(errno) && errno != EMLINK) return errno;
  const int reserved = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (reserved < 0) return errno;
  close(reserved);
  if (rename(from, to) == 0) return 0;
  const int error = errno;
  unlink(to);
  return error;
}

int writeAll(int fd, const std::byte* data, std::size_t size_bytes, off_t offset_bytes) {
  while (size_bytes > 0) {
    const ssize_t count = pwrite(fd, data, size_bytes, offset_bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    data += count;
    size_bytes -= static_cast<std::size_t>(count);
    offset_bytes += count;
  }
  return 0;
}

// By way of this process; works between any two file systems. Adds to *copied_bytes.
int copyByHand(int source, int target, off_t end_bytes, off_t* copied_bytes) {
  std::vector<std::byte> buffer(static_cast<std::size_t>(end_bytes - *copied_bytes));
  while (*copied_bytes < end_bytes) {
    const ssize_t count = pread(source, buffer.data(),
                                static_cast<std::size_t>(end_bytes - *copied_bytes), *copied_bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    // Somebody cut the source short.
    if (count == 0) return EIO;
    if (const int error =
            writeAll(target, buffer.data(), static_cast<std::size_t>(count), *copied_bytes)) {
      return error;
    }
    *copied_bytes += count;
  }
  return 0;
}

int copyUpTo(int source, int target, off_t end_bytes, off_t* copied_bytes) {
  while (*copied_bytes < end_bytes) {
    off_t from_bytes = *copied_bytes;
    const ssize_t count = copy_file_range(source, &from_bytes, target, copied_bytes,
                                          static_cast<std::size_t>(end_bytes - from_bytes), 0);
    if (count < 0 && errno == EINTR) continue;
    // Kernels differ in which pairs of file systems they copy between, and in how they refuse.
    if (count == 0 || (count < 0 && (hasNoSuchCall(errno) || errno == EXDEV))) {
      return copyByHand(source, target, end_bytes, copied_bytes);
    }
    if (count < 0) return errno;
  }
  return 0;
}

int fillCopy(int source, int target, const std::string& to, FileCalls& calls,
             const std::atomic<bool>& isGivenUp) {
  struct stat status {};
  if (fstat(source, &status) != 0) return errno;
  // Some file systems know no permissions and refuse; the copy then has theirs.
  [[maybe_unused]] const int changed = fchmod(target, status.st_mode & kPermissions);
  off_t copied_bytes = 0;
  int error = 0;
  do {
    if (isGivenUp.load(std::memory_order_relaxed)) return ECANCELED;
    const FileCalls::Call call(calls, to);
    error = copyUpTo(source, target, std::min(copied_bytes + kStep_bytes, status.st_size),
                     &copied_bytes);
    if (error == 0 && fsync(target) != 0) error = errno;
  } while (error == 0 && copied_bytes < status.st_size);
  return error;
}

void flushFolder(const std::string& folder) {
  const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

int renameWithoutReplacing(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  return renameByReservation(from.c_str(), to.c_str());
}

int copyWithoutReplacing(int sourceFd, const std::string& to, FileCalls& calls,
                         const std::atomic<bool>& isGivenUp, int* copyFd) {
  // Said before the bytes are copied in vain; the renaming below is what decides.
  if (access(to.c_str(), F_OK) == 0) return EEXIST;
  const std::string folder = std::filesystem::path(to).parent_path().string();
  std::string hidden = folder + "/.record-audio-XXXXXX";
  const int copy = mkostemp(hidden.data(), O_CLOEXEC);
  if (copy < 0) return errno;
  int error = fillCopy(sourceFd, copy, to, calls, isGivenUp);
  if (error == 0 && isGivenUp.load(std::memory_order_relaxed)) error = ECANCELED;
  if (error == 0) error = renameWithoutReplacing(hidden, to);
  if (error != 0) {
    unlink(hidden.c_str());
    close(copy);
    return error;
  }
  flushFolder(folder);
  *copyFd = copy;
  return 0;
}

}  // namespace linux_host
