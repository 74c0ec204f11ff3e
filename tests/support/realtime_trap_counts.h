// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// Shared by the trap and its replacements of the system's functions: what was called while a thread
// was watched. Safe in a signal handler and within malloc.

namespace realtime_trap::detail {

enum Call : std::size_t {
  kMalloc,
  kFree,
  kMutexLock,
  kMutexTryLock,
  kMutexUnlock,
  kReadWriteLock,
  kConditionWait,
  kConditionSignal,
  kSemaphore,
  kCallCount,
};
inline constexpr std::array<const char*, kCallCount> kCallNames{
    "malloc",
    "free",
    "pthread_mutex_lock",
    "pthread_mutex_trylock",
    "pthread_mutex_unlock",
    "pthread_rwlock",
    "pthread_cond_wait",
    "pthread_cond_signal",
    "sem_wait or sem_post",
};

class Counts {
 public:
  static constexpr std::size_t kSystemCallsKept = 16;
  struct Snapshot {
    std::array<std::uint64_t, kCallCount> calls;
    std::array<std::int32_t, kSystemCallsKept> systemCalls;  // numbers, in order
    std::size_t systemCallCount;
  };

  void add(Call call) { calls_[call].fetch_add(1, std::memory_order_relaxed); }
  void addSystemCall(int number) {
    const std::size_t at = systemCallCount_.fetch_add(1, std::memory_order_relaxed);
    if (at < kSystemCallsKept) systemCalls_[at].store(number, std::memory_order_relaxed);
  }
  [[nodiscard]] Snapshot snapshot() const {
    Snapshot result{};
    for (std::size_t i = 0; i < kCallCount; ++i) {
      result.calls[i] = calls_[i].load(std::memory_order_relaxed);
    }
    const std::size_t count = systemCallCount_.load(std::memory_order_relaxed);
    result.systemCallCount = count < kSystemCallsKept ? count : kSystemCallsKept;
    for (std::size_t i = 0; i < kSystemCallsKept; ++i) {
      result.systemCalls[i] = systemCalls_[i].load(std::memory_order_relaxed);
    }
    return result;
  }
  void reset() {
    for (auto& call : calls_) call.store(0, std::memory_order_relaxed);
    systemCallCount_.store(0, std::memory_order_relaxed);
  }

 private:
  std::array<std::atomic<std::uint64_t>, kCallCount> calls_{};
  std::array<std::atomic<std::int32_t>, kSystemCallsKept> systemCalls_{};
  std::atomic<std::size_t> systemCallCount_{0};
};

Counts& counts();
// Whether the current thread is being watched.
bool watching();
void watch(int change);

inline void note(Call call) {
  if (watching()) counts().add(call);
}

}  // namespace realtime_trap::detail
