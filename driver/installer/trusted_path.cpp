// SPDX-License-Identifier: MIT
#include "driver/installer/trusted_path.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace loopback {
namespace {

constexpr int kOpenFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr uid_t kRootUser = 0;

TrustedFile refused(std::string why) {
  return {UniqueFd(), std::move(why)};
}

}  // namespace

std::string refusalOf(int fd, const std::string& path, uid_t owner) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return path + ": " + std::strerror(errno);
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    return path + " is neither a file nor a folder";
  }
  if (status.st_uid != owner) {
    return path + " belongs to user " + std::to_string(status.st_uid) + ", not to user " +
           std::to_string(owner);
  }
  // An access list that lets anybody else write also shows in the group's bits.
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return path + " may be written by others than its owner";
  }
  return {};
}

TrustedFile openTrusted(int root, const std::string& path, uid_t owner) {
  if (path.empty() || path.front() != '/') return refused(path + " is not an absolute path");
  TrustedFile current{UniqueFd(openat(root, ".", kOpenFlags | O_DIRECTORY)), {}};
  std::string walked = "/";
  for (std::size_t begin = 1;;) {
    if (!current.fd.valid()) {
      const bool link = errno == ELOOP;
      return refused(walked + (link ? " is a symbolic link" : std::string(": ") + strerror(errno)));
    }
    if (std::string why = refusalOf(current.fd.get(), walked, owner); !why.empty()) {
      return refused(std::move(why));
    }
    if (begin > path.size()) return current;
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    if (name.empty() || name == "." || name == "..") return refused(path + " is not a plain path");
    walked = path.substr(0, end);
    current.fd = UniqueFd(openat(current.fd.get(), name.c_str(), kOpenFlags));
    begin = end + 1;
  }
}

TrustedFile openTrustedBySystem(const std::string& path) {
  const UniqueFd root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  return openTrusted(root.get(), path, kRootUser);
}

}  // namespace loopback
