// SPDX-License-Identifier: MIT
#include "hosts/linux/base/main_queue.h"

#include <glib-unix.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace linux_host {

MainQueue::MainQueue() : eventFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!eventFd_.valid()) {
    throw std::system_error(errno, std::generic_category(),
                            "Cannot create the main queue's eventfd");
  }
  source_.reset(g_unix_fd_source_new(eventFd_.get(), G_IO_IN));
  g_source_set_callback(source_.get(), G_SOURCE_FUNC(&MainQueue::onWake), this, nullptr);
  g_source_set_can_recurse(source_.get(), TRUE);
  g_source_attach(source_.get(), nullptr);
}

void MainQueue::async(std::function<void()> work) {
  if (work == nullptr) return;
  {
    const platform::MutexLock lock(mutex_);
    items_.push_back(std::move(work));
  }
  wake();
}

void MainQueue::wake() {
  // This fails only when the counter is at its limit, and then the loop is awake anyway.
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(eventFd_.get(), &one, sizeof one);
}

gboolean MainQueue::onWake(gint fd, GIOCondition, gpointer self) {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t taken = read(fd, &count, sizeof count);
  static_cast<MainQueue*>(self)->runNext();
  return G_SOURCE_CONTINUE;
}

// One item per iteration, with the loop already woken for the next: a loop that runs inside the
// item (a modal alert) goes on with the items behind it.
void MainQueue::runNext() {
  mainThread_.assertHeld();
  std::function<void()> item;
  bool more = false;
  {
    const platform::MutexLock lock(mutex_);
    if (items_.empty()) return;
    item = std::move(items_.front());
    items_.pop_front();
    more = !items_.empty();
  }
  if (more) wake();
  item();
}

}  // namespace linux_host
