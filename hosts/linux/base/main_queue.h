// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "driver/unique_fd.h"
#include "hosts/linux/base/glib_owners.h"
#include "platform/dispatch.h"
#include "platform/mutex.h"
#include "platform/thread_role.h"

namespace linux_host {

// Work for the main loop, from any thread: a queue under a mutex, and an eventfd that wakes GLib's
// default main context. Items run one at a time in the order in which they came; an item queued by
// an item runs after the other sources have had their turn.
//
// Created and destroyed on the main thread; items still queued at the end are dropped without
// running.
class MainQueue : public platform::DispatchQueue {
 public:
  MainQueue();
  ~MainQueue() override = default;
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;

  void async(std::function<void()> work) override;
  [[nodiscard]] const std::string& label() const override { return label_; }

 private:
  static gboolean onWake(gint fd, GIOCondition condition, gpointer self);
  void wake();
  void runNext();

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string label_ = "main";
  const loopback::UniqueFd eventFd_;
  SourcePtr source_;
  platform::Mutex mutex_;
  std::deque<std::function<void()>> items_ RA_GUARDED_BY(mutex_);
};

}  // namespace linux_host
