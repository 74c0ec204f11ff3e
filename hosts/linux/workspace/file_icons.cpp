// SPDX-License-Identifier: MIT
#include "hosts/linux/workspace/file_icons.h"

#include <gio/gio.h>
#include <pthread.h>

#include <chrono>
#include <system_error>
#include <utility>

#include "hosts/linux/base/glib_owners.h"

namespace linux_host {
namespace {

constexpr const char* kCustomIcon = "metadata::custom-icon";

}  // namespace

FileIcons::~FileIcons() {
  if (!thread_.joinable()) return;
  bool busy = false;
  {
    const platform::MutexLock lock(shared_->mutex);
    shared_->over = true;
    shared_->changed.notify_all();
    busy = shared_->busy;
  }
  if (busy) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void FileIcons::set(const std::string& file, const std::string& iconFile) {
  mainThread_.assertHeld();
  {
    const platform::MutexLock lock(shared_->mutex);
    shared_->changes.push_back({file, iconFile});
    shared_->changed.notify_all();
  }
  if (thread_.joinable()) return;
  try {
    thread_ = std::thread([shared = shared_] { run(*shared); });
  } catch (const std::system_error&) {
    // A file without an icon is still complete.
    const platform::MutexLock lock(shared_->mutex);
    shared_->changes.clear();
    return;
  }
  pthread_setname_np(thread_.native_handle(), "file-icons");
}

void FileIcons::run(Shared& shared) {
  platform::MutexLock lock(shared.mutex);
  while (true) {
    shared.changed.wait(
        lock, [&]() RA_REQUIRES(shared.mutex) { return shared.over || !shared.changes.empty(); });
    if (shared.over) return;
    const Change change = std::move(shared.changes.front());
    shared.changes.pop_front();
    shared.busy = true;
    lock.unlock();
    apply(change);
    lock.lock();
    shared.busy = false;
    shared.changed.notify_all();
  }
}

void FileIcons::apply(const Change& change) {
  const ObjectPtr<GFile> file(g_file_new_for_path(change.file.c_str()));
  const TextPtr icon(change.iconFile.empty()
                         ? nullptr
                         : g_filename_to_uri(change.iconFile.c_str(), nullptr, nullptr));
  const GFileAttributeType type =
      icon == nullptr ? G_FILE_ATTRIBUTE_TYPE_INVALID : G_FILE_ATTRIBUTE_TYPE_STRING;
  g_file_set_attribute(file.get(), kCustomIcon, type, icon.get(), G_FILE_QUERY_INFO_NONE, nullptr,
                       nullptr);
}

void FileIcons::finish(int timeout_ms) {
  mainThread_.assertHeld();
  platform::MutexLock lock(shared_->mutex);
  shared_->changed.wait_for(
      lock, std::chrono::milliseconds(timeout_ms),
      [this]() RA_REQUIRES(shared_->mutex) { return !shared_->busy && shared_->changes.empty(); });
}

}  // namespace linux_host
