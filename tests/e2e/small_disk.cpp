// SPDX-License-Identifier: MIT
#include "tests/e2e/small_disk.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace e2e {

SmallDisk::SmallDisk(std::string folder) : folder_(std::move(folder)) {
  mounted_ = mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=16m,mode=0700") == 0;
}

SmallDisk::~SmallDisk() {
  detach();
}

void SmallDisk::detach() {
  if (std::exchange(mounted_, false)) umount2(folder_.c_str(), MNT_DETACH);
}

void SmallDisk::fillUp(pid_t process, const std::string& file, std::uint64_t left_bytes) const {
  if (!mounted_) {
    const rlimit limit{std::filesystem::file_size(file) + left_bytes, RLIM_INFINITY};
    if (prlimit(process, RLIMIT_FSIZE, &limit, nullptr) != 0) {
      throw std::runtime_error("cannot limit the files of the process");
    }
    return;
  }
  fill(left_bytes);
}

void SmallDisk::fill(std::uint64_t left_bytes) const {
  struct statvfs space {};
  statvfs(folder_.c_str(), &space);
  const std::uint64_t free_bytes = space.f_bavail * space.f_frsize;
  const std::string filler = folder_ + "/filler";
  const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const int error = posix_fallocate(fd, 0, static_cast<off_t>(free_bytes - left_bytes));
  close(fd);
  if (error != 0) throw std::runtime_error("cannot fill " + folder_);
}

void SmallDisk::resize(const std::string& size) const {
  if (mount("tmpfs", folder_.c_str(), "tmpfs", MS_REMOUNT, ("size=" + size).c_str()) != 0) {
    throw std::runtime_error("cannot resize " + folder_);
  }
}

}  // namespace e2e
