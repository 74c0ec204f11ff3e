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

SystemStatus writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError();
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

SystemStatus writeNew(UniqueFd file, std::string_view bytes, mode_t mode) {
  if (fchmod(file.get(), mode) != 0) return systemError();
  if (SystemStatus written = writeAll(file.get(), bytes); !written) return written;
  if (fsync(file.get()) != 0) return systemError();
  if (const int error = file.closeNow()) return Unexpected(static_cast<std::errc>(error));
  return {};
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

Status writeSmallFile(const std::string& path, std::string_view bytes, mode_t mode) {
  const std::string folder = fs::path(path).parent_path().string();
  if (Status made = makeFolders(folder, 0700); !made) return made;
  std::string temporary = path + ".XXXXXX";
  UniqueFd file(mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.valid()) return Unexpected(errorText("create a file in", folder, errno));
  SystemStatus written = writeNew(std::move(file), bytes, mode);
  if (written && rename(temporary.c_str(), path.c_str()) != 0) written = systemError();
  if (!written) {
    unlink(temporary.c_str());
    return Unexpected(errorText("write", path, written.error()));
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

Status makeFolders(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return {};
  if (errno == ENOENT) {
    const std::string parent = fs::path(path).parent_path().string();
    if (!parent.empty() && parent != path) {
      if (Status made = makeFolders(parent, mode); !made) return made;
      if (mkdir(path.c_str(), mode) == 0) return {};
    }
  }
  const int reason = errno;
  std::error_code ignored;
  if (reason == EEXIST && fs::is_directory(path, ignored)) return {};
  return Unexpected(errorText("create the folder", path, reason));
}

std::string errorText(std::string_view doing, const std::string& path, int error) {
  std::string text = "Cannot ";
  text.append(doing).append(" ").append(path).append(": ");
  text += std::generic_category().message(error);
  return text.append(". ").append(advice(error));
}

std::string errorText(std::string_view doing, const std::string& path, std::errc error) {
  return errorText(doing, path, static_cast<int>(error));
}

Unexpected<std::errc> systemError() {
  return Unexpected(static_cast<std::errc>(errno));
}

}  // namespace linux_host
