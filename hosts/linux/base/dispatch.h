// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "hosts/linux/base/main_queue.h"
#include "hosts/linux/base/pending_work.h"
#include "platform/dispatch.h"
#include "platform/mutex.h"
#include "platform/thread_role.h"

namespace linux_host {

// The queues of the process: one on the main loop, and serial ones, each with a named thread.
// Created and destroyed on the main thread; the destructor runs all queued items and joins the
// threads.
class DispatchThreads : public platform::Dispatch {
 public:
  DispatchThreads();
  ~DispatchThreads() override;
  DispatchThreads(const DispatchThreads&) = delete;
  DispatchThreads& operator=(const DispatchThreads&) = delete;

  std::shared_ptr<platform::DispatchQueue> mainQueue() override { return mainQueue_; }
  // Any thread.
  std::shared_ptr<platform::DispatchQueue> createSerialQueue(const std::string& label) override;

  // Work that must be done before the process ends. Items of serial queues are counted
  // automatically; other writers take a token.
  [[nodiscard]] PendingWork& pendingWork() { return pendingWork_; }
  // Calls `callback` once on the main queue when no serial queue has an item and no token exists.
  // Main thread; the callback is also destroyed there.
  void whenIdleOnMain(std::function<void()> callback);
  // Blocks until no serial queue has an item and no token exists.
  void waitUntilIdle() { pendingWork_.waitUntilIdle(); }

 private:
  class Worker;
  class SerialQueue;
  void joinFinished() RA_REQUIRES(mutex_);

  PendingWork pendingWork_;
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::shared_ptr<MainQueue> mainQueue_;
  platform::Mutex mutex_;
  std::vector<std::shared_ptr<Worker>> workers_ RA_GUARDED_BY(mutex_);
};

}  // namespace linux_host
