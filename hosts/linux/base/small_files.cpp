// SPDX-License-Identifier: MIT
#include "hosts/linux/base/small_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "driver/unique_fd.h"

namespace linux_host {
namespace {

namespace fs = std::filesystem;
using loopback::UniqueFd;

constexpr off_t kLargestFile_bytes = off_t{16} << 20;
constexpr int kMostLinks = 40;

int readAll(int fd, std::string* bytes) {
  char buffer[16384];
  while (true) {
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count == 0) return 0;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes->append(buffer, static_cast<std::size_t>(count));
    if (bytes->size() > static_cast<std::size_t>(kLargestFile_bytes)) return EFBIG;
  }
}

int writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

int writeNew(int fd, std::string_view bytes, mode_t mode) {
  UniqueFd file(fd);
  if (fchmod(fd, mode) != 0) return errno;
  if (const int error = writeAll(fd, bytes)) return error;
  if (fsync(fd) != 0) return errno;
  return file.closeNow();
}

// A rename is on the disk only once its folder is. On a file system that cannot flush folders the
// new file is no less safe than the old one was.
void flushFolder(const std::string& folder) {
  const UniqueFd directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.valid()) fsync(directory.get());
}

const char* advice(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return "Free some space or choose another folder.";
    case EACCES:
    case EPERM:
      return "Change its permissions or choose another folder.";
    case EROFS:
      return "Mount the disk for writing or choose another folder.";
    case ENOENT:
    case ENOTDIR:
      return "Create the folder or choose another one.";
    case EEXIST:
      return "Rename or move the file that is there.";
    case EIO:
      return "Check the disk.";
    case EFBIG:
      return "Use a disk whose file system allows larger files.";
    case ECONNABORTED:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENODEV:
    case ENOTCONN:
    case ENXIO:
    case EREMOTEIO:
    case ESTALE:
    case ETIMEDOUT:
      return "Check whether the disk or network folder is connected and switched on.";
    case EMFILE:
    case ENFILE:
      return "Close some programs.";
    default:
      return "Try another folder.";
  }
}

}  // namespace

FileContents readSmallFile(const std::string& path) {
  FileContents contents;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    contents.error = errno;
    return contents;
  }
  contents.isNoFile = !S_ISREG(status.st_mode);
  if (contents.isNoFile) {
    contents.error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return contents;
  }
  // Something that replaces the file at this moment must not keep the program waiting.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    contents.error = errno;
    return contents;
  }
  contents.isNoFile = !S_ISREG(status.st_mode);
  contents.error = contents.isNoFile ? EINVAL : 0;
  if (contents.isNoFile) return contents;
  contents.error = readAll(file.get(), &contents.bytes);
  if (contents.error != 0) contents.bytes.clear();
  return contents;
}

std::string writeSmallFile(const std::string& path, std::string_view bytes, mode_t mode) {
  const std::string folder = fs::path(path).parent_path().string();
  if (std::string error = makeFolders(folder, 0700); !error.empty()) return error;
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return errorText("create a file in", folder, errno);
  int error = writeNew(fd, bytes, mode);
  if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    unlink(temporary.c_str());
    return errorText("write", path, error);
  }
  flushFolder(folder);
  return {};
}

std::string behindLinks(const std::string& path) {
  fs::path at = path;
  for (int i = 0; i < kMostLinks; ++i) {
    std::error_code error;
    const fs::path target = fs::read_symlink(at, error);
    if (error) break;
    at = target.is_absolute() ? target : at.parent_path() / target;
  }
  return at.string();
}

std::string makeFolders(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return {};
  if (errno == ENOENT) {
    const std::string parent = fs::path(path).parent_path().string();
    if (!parent.empty() && parent != path) {
      if (std::string error = makeFolders(parent, mode); !error.empty()) return error;
      if (mkdir(path.c_str(), mode) == 0) return {};
    }
  }
  const int reason = errno;
  std::error_code ignored;
  if (reason == EEXIST && fs::is_directory(path, ignored)) return {};
  return errorText("create the folder", path, reason);
}

std::string errorText(std::string_view doing, const std::string& path, int error) {
  std::string text = "Cannot ";
  text.append(doing).append(" ").append(path).append(": ");
  text += std::generic_category().message(error);
  return text.append(". ").append(advice(error));
}

}  // namespace linux_host
