// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_loop.h"

#include <pipewire/pipewire.h>
#include <pthread.h>

#include <utility>

#include "driver/pipewire_owners.h"

namespace linux_host {

PipeWireLoop::PipeWireLoop(std::string threadName)
    : thread_([this, name = std::move(threadName)] { run(name); }) {}

PipeWireLoop::~PipeWireLoop() {
  {
    const platform::MutexLock lock(mutex_);
    quit_ = true;
    wake();
  }
  thread_.join();
}

void PipeWireLoop::post(Work work) {
  const platform::MutexLock lock(mutex_);
  posted_.push_back(std::move(work));
  wake();
}

void PipeWireLoop::wake() {
  if (wakeSource_ != nullptr) pw_loop_signal_event(loop_, wakeSource_);
  changed_.notify_all();
}

void PipeWireLoop::onWake(void* self, std::uint64_t) {
  static_cast<PipeWireLoop*>(self)->runPosted();
}

void PipeWireLoop::runPosted() {
  for (;;) {
    std::vector<Work> work;
    pw_loop* loop = nullptr;
    bool quit = false;
    {
      const platform::MutexLock lock(mutex_);
      work.swap(posted_);
      loop = loop_;
      quit = quit_;
    }
    for (const Work& item : work) item(loop);
    if (!work.empty()) continue;
    isRunning_ = !quit;
    return;
  }
}

void PipeWireLoop::runWithoutLoop() {
  platform::MutexLock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this]() RA_REQUIRES(mutex_) { return quit_ || !posted_.empty(); });
    if (posted_.empty()) return;
    const std::vector<Work> work = std::exchange(posted_, {});
    lock.unlock();
    for (const Work& item : work) item(nullptr);
    lock.lock();
  }
}

void PipeWireLoop::run(const std::string& threadName) {
  pthread_setname_np(pthread_self(), threadName.c_str());
  static std::once_flag initialised;
  std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

  loopback::LoopPtr loop(pw_loop_new(nullptr));
  loopback::LoopSource wakeSource;
  if (loop) {
    wakeSource = loopback::LoopSource(loop.get(), pw_loop_add_event(loop.get(), onWake, this));
  }
  if (!wakeSource) {
    loop.reset();
    runWithoutLoop();
    return;
  }
  {
    const platform::MutexLock lock(mutex_);
    loop_ = loop.get();
    wakeSource_ = wakeSource.get();
    if (quit_ || !posted_.empty()) wake();
  }
  // Not the library's main loop: that takes a descriptor to be ended, and without one never ends.
  pw_loop_enter(loop.get());
  while (isRunning_) pw_loop_iterate(loop.get(), -1);
  pw_loop_leave(loop.get());
  const platform::MutexLock lock(mutex_);
  wakeSource_ = nullptr;
}

}  // namespace linux_host
