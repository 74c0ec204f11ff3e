// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/mutex.h"

namespace linux_host {

// Counts work that must be done before the process ends: queued items, files still being written.
// Any thread except an audio callback.
class PendingWork {
 public:
  // Work is pending as long as its token exists.
  class Token {
   public:
    explicit Token(PendingWork& owner) : owner_(&owner) { owner.begin(); }
    ~Token() {
      if (owner_ != nullptr) owner_->end();
    }
    Token(Token&& other) noexcept : owner_(other.owner_) { other.owner_ = nullptr; }
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;
    Token& operator=(Token&&) = delete;

   private:
    PendingWork* owner_;
  };

  void begin();
  void end();
  // Blocks until nothing is pending.
  void waitUntilIdle();
  // The same for at most `limit`; false when something is still pending.
  bool waitUntilIdle(std::chrono::milliseconds limit);
  // Grows each time that work begins or ends.
  [[nodiscard]] std::uint64_t changes();
  // Calls `callback` once as soon as nothing is pending: now, on this thread, or later on the
  // thread whose work ends last. It must not block.
  void whenIdle(std::function<void()> callback);

 private:
  platform::Mutex mutex_;
  platform::Condition idle_;
  std::uint64_t changes_ RA_GUARDED_BY(mutex_) = 0;
  std::size_t count_ RA_GUARDED_BY(mutex_) = 0;
  std::vector<std::function<void()>> callbacks_ RA_GUARDED_BY(mutex_);
};

}  // namespace linux_host
