// SPDX-License-Identifier: MIT
#include "hosts/linux/base/dispatch.h"

#include <pthread.h>

#include <deque>
#include <system_error>
#include <thread>
#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

// The kernel keeps 15 bytes of a thread's name: uses the label's last part, which says most.
std::string threadName(const std::string& label) {
  const std::size_t dot = label.rfind('.');
  return (dot == std::string::npos ? label : label.substr(dot + 1)).substr(0, 15);
}

}  // namespace

// One thread and its items. The queue object may be destroyed before the items have run, even from
// within one of them; the worker lives until the thread has ended and been joined.
class DispatchThreads::Worker {
 public:
  Worker(const std::string& label, PendingWork& pending)
      : pending_(pending), thread_([this] { run(); }) {
    pthread_setname_np(thread_.native_handle(), threadName(label).c_str());
  }

  void add(std::function<void()> item) {
    {
      const platform::MutexLock lock(mutex_);
      if (phase_ != Phase::kOpen || item == nullptr) return;
      pending_.begin();
      items_.push_back(std::move(item));
    }
    // Under the lock the thread would wake up only to wait for that.
    changed_.notify_one();
  }

  // The thread ends after the remaining items.
  void close() {
    const platform::MutexLock lock(mutex_);
    if (phase_ == Phase::kOpen) phase_ = Phase::kClosed;
    changed_.notify_one();
  }

  [[nodiscard]] bool isFinished() {
    const platform::MutexLock lock(mutex_);
    return phase_ == Phase::kFinished;
  }

  void join() { thread_.join(); }

 private:
  //   kOpen      takes items                     -> kClosed
  //   kClosed    runs those that it still has    -> kFinished
  //   kFinished  the thread ends and can be joined
  enum class Phase { kOpen, kClosed, kFinished };

  void run() {
    while (auto item = next()) {
      item();
      // What the item holds is released before the work counts as done.
      item = nullptr;
      pending_.end();
    }
  }

  std::function<void()> next() {
    platform::MutexLock lock(mutex_);
    changed_.wait(
        lock, [this]() RA_REQUIRES(mutex_) { return phase_ != Phase::kOpen || !items_.empty(); });
    if (items_.empty()) {
      phase_ = Phase::kFinished;
      return nullptr;
    }
    auto item = std::move(items_.front());
    items_.pop_front();
    return item;
  }

  PendingWork& pending_;
  platform::Mutex mutex_;
  platform::Condition changed_;
  std::deque<std::function<void()>> items_ RA_GUARDED_BY(mutex_);
  Phase phase_ RA_GUARDED_BY(mutex_) = Phase::kOpen;
  std::thread thread_;
};

class DispatchThreads::SerialQueue : public platform::DispatchQueue {
 public:
  SerialQueue(std::string label, std::shared_ptr<Worker> worker)
      : label_(std::move(label)), worker_(std::move(worker)) {}
  ~SerialQueue() override { worker_->close(); }
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void async(std::function<void()> work) override { worker_->add(std::move(work)); }
  [[nodiscard]] const std::string& label() const override { return label_; }

 private:
  const std::string label_;
  const std::shared_ptr<Worker> worker_;
};

DispatchThreads::DispatchThreads() : mainQueue_(std::make_shared<MainQueue>()) {}

DispatchThreads::~DispatchThreads() {
  // Closing a queue that its owner still has is harmless: later items never run.
  waitUntilIdle();
  const platform::MutexLock lock(mutex_);
  for (const auto& worker : workers_) worker->close();
  for (const auto& worker : workers_) worker->join();
}

std::shared_ptr<platform::DispatchQueue> DispatchThreads::createSerialQueue(
    const std::string& label) {
  const platform::MutexLock lock(mutex_);
  joinFinished();
  try {
    auto worker = std::make_shared<Worker>(label, pendingWork_);
    workers_.push_back(worker);
    return std::make_shared<SerialQueue>(label, std::move(worker));
  } catch (const std::system_error& error) {
    logMessage(LogLevel::kError, "Cannot start a thread for " + label + " (" +
                                     error.code().message() + "). Close other programs.");
    return nullptr;
  }
}

void DispatchThreads::whenIdleOnMain(std::function<void()> callback) {
  mainThread_.assertHeld();
  pendingWork_.whenIdle([callback = std::move(callback), queue = mainQueue_]() mutable {
    queue->async(std::move(callback));
  });
}

void DispatchThreads::joinFinished() {
  std::erase_if(workers_, [](const std::shared_ptr<Worker>& worker) {
    if (!worker->isFinished()) return false;
    worker->join();
    return true;
  });
}

}  // namespace linux_host
