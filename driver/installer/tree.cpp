// SPDX-License-Identifier: MIT
#include "driver/installer/tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "driver/installer/installer.h"
#include "driver/unique_fd.h"

namespace loopback {
namespace {

constexpr off_t kLargestFile_bytes = 64 << 20;

UniqueFd openSubdirectory(int directory, const std::string& name) {
  return UniqueFd(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

struct DirectoryCloser {
  void operator()(DIR* stream) const { closedir(stream); }
};

std::vector<std::string> namesIn(int directory) {
  // The stream owns a descriptor of its own.
  const std::unique_ptr<DIR, DirectoryCloser> stream(
      fdopendir(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  if (stream == nullptr) fail("cannot list a folder");
  std::vector<std::string> names;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  return names;
}

bool isDirectory(int directory, const std::string& name) {
  struct stat status {};
  return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

void writeAll(int fd, const std::string& name, const std::string& content) {
  std::size_t written = 0;
  while (written < content.size()) {
    const ssize_t count = write(fd, content.data() + written, content.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) fail("cannot write " + name);
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace

void fail(const std::string& what) {
  throw InstallError(what + ": " + std::strerror(errno));
}

std::optional<std::string> readOpenFile(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (status.st_size > kLargestFile_bytes) return std::nullopt;
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t read_bytes = 0;
  while (read_bytes < content.size()) {
    const ssize_t count = pread(fd, content.data() + read_bytes, content.size() - read_bytes,
                                static_cast<off_t>(read_bytes));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    read_bytes += static_cast<std::size_t>(count);
  }
  return content;
}

std::optional<std::string> readFile(int directory, const std::string& path) {
  const UniqueFd file(
      openat(directory, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.valid()) return std::nullopt;
  return readOpenFile(file.get());
}

void writeNewFile(int directory, const std::string& name, const std::string& content, mode_t mode) {
  const UniqueFd file(
      openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file.valid()) fail("cannot create " + name);
  writeAll(file.get(), name, content);
  if (fchown(file.get(), geteuid(), getegid()) != 0 || fchmod(file.get(), mode) != 0) {
    fail("cannot set the mode of " + name);
  }
  if (fsync(file.get()) != 0) fail("cannot flush " + name + " to the disk");
  // A later read must come from the disk, not from the cache.
  posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
}

void makeDirectory(int directory, const std::string& name) {
  if (mkdirat(directory, name.c_str(), 0755) != 0) fail("cannot create the folder " + name);
  const UniqueFd made = openSubdirectory(directory, name);
  if (!made.valid() || fchown(made.get(), geteuid(), getegid()) != 0 ||
      fchmod(made.get(), 0755) != 0) {
    fail("cannot set the mode of " + name);
  }
}

void syncDirectory(int fd) {
  if (fsync(fd) != 0) fail("cannot flush a folder to the disk");
}

void removeTree(int directory, const std::string& name) {
  if (isDirectory(directory, name)) {
    const UniqueFd inner = openSubdirectory(directory, name);
    if (!inner.valid()) fail("cannot open " + name);
    for (const std::string& entry : namesIn(inner.get())) removeTree(inner.get(), entry);
    if (unlinkat(directory, name.c_str(), AT_REMOVEDIR) != 0) fail("cannot remove " + name);
  } else if (unlinkat(directory, name.c_str(), 0) != 0 && errno != ENOENT) {
    fail("cannot remove " + name);
  }
}

bool exists(int directory, const std::string& name) {
  struct stat status {};
  return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

std::optional<std::size_t> countTree(int directory, const std::string& name) {
  const UniqueFd inner = openSubdirectory(directory, name);
  if (!inner.valid()) return std::nullopt;
  std::size_t count = 0;
  for (const std::string& entry : namesIn(inner.get())) {
    count += 1 + countTree(inner.get(), entry).value_or(0);
  }
  return count;
}

}  // namespace loopback
