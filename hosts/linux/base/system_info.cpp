// SPDX-License-Identifier: MIT
#include "hosts/linux/base/system_info.h"

#include <glib.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "hosts/linux/base/glib_owners.h"

namespace linux_host {
namespace {

constexpr std::size_t kFirstRecordSize_bytes = 1024;
constexpr std::size_t kLargestRecordSize_bytes = std::size_t{1} << 20;
constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

platform::Date LinuxWallClock::now() const {
  return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

std::uint64_t LinuxHostClock::absoluteTime() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

std::string LinuxProcessInfo::globallyUniqueString() {
  const TextPtr uuid(g_uuid_string_random());
  return std::string(uuid.get()) + "-" + std::to_string(getpid()) + "-" +
         std::to_string(counter_.fetch_add(1, std::memory_order_relaxed));
}

std::optional<std::string> LinuxUserAccount::homeDirectory() const {
  passwd record{};
  passwd* found = nullptr;
  std::vector<char> buffer(kFirstRecordSize_bytes);
  while (true) {
    const int error = getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error == ERANGE && buffer.size() < kLargestRecordSize_bytes) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (error != 0 || found == nullptr || found->pw_dir == nullptr) return std::nullopt;
    return std::string(found->pw_dir);
  }
}

bool LinuxUserAccount::accessExists(const std::string& path) const {
  return access(path.c_str(), F_OK) == 0;
}

}  // namespace linux_host
