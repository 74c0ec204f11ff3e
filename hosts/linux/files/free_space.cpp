// SPDX-License-Identifier: MIT
#include "hosts/linux/files/free_space.h"

#include <pthread.h>
#include <sys/statvfs.h>

#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/mutex.h"

namespace linux_host {

std::optional<std::uint64_t> freeSpace_bytes(const std::string& folder) {
  struct statvfs space {};
  // A file system without a size does not report free space.
  if (statvfs(folder.c_str(), &space) != 0 || space.f_blocks == 0) return std::nullopt;
  return std::uint64_t{space.f_bavail} * space.f_frsize;
}

// Outlives the FreeSpace while a thread is stuck in a folder.
struct FreeSpace::Looks {
  Looks(Measure toAsk, std::chrono::milliseconds pause) : measure(std::move(toAsk)), look(pause) {}

  const Measure measure;
  const std::chrono::milliseconds look;
  platform::Mutex mutex;
  platform::Condition ended;
  bool isOver RA_GUARDED_BY(mutex) = false;
  std::set<std::string> low RA_GUARDED_BY(mutex);
};

FreeSpace::FreeSpace(Measure measure, std::chrono::milliseconds look)
    : measure_(std::move(measure)), look_(look) {}

void FreeSpace::begin(const std::vector<std::string>& folders) {
  end();
  looks_ = std::make_shared<Looks>(measure_, look_);
  try {
    for (const std::string& folder : folders) {
      std::thread([looks = looks_, folder] { run(looks, folder); }).detach();
    }
  } catch (const std::system_error&) {
    // If the disk fills up nevertheless, the failed write reports it.
  }
}

void FreeSpace::end() {
  if (looks_ == nullptr) return;
  {
    const platform::MutexLock lock(looks_->mutex);
    looks_->isOver = true;
    looks_->ended.notify_all();
  }
  looks_.reset();
}

bool FreeSpace::isLow() const {
  if (looks_ == nullptr) return false;
  const platform::MutexLock lock(looks_->mutex);
  return !looks_->low.empty();
}

void FreeSpace::run(const std::shared_ptr<Looks>& looks, const std::string& folder) {
  pthread_setname_np(pthread_self(), "free-space");
  for (;;) {
    const auto free_bytes = looks->measure(folder);
    platform::MutexLock lock(looks->mutex);
    if (free_bytes && *free_bytes < kLow_bytes) {
      looks->low.insert(folder);
    } else if (free_bytes) {
      looks->low.erase(folder);
    }
    if (looks->ended.wait_for(lock, looks->look,
                              [&]() RA_REQUIRES(looks->mutex) { return looks->isOver; }))
      return;
  }
}

}  // namespace linux_host
