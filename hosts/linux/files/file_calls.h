// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/mutex.h"

// A network folder that hangs, or a disk that has stopped, can block every call indefinitely. This
// file keeps track of the pending calls, and makes calls for callers that cannot wait that long.

namespace linux_host {

// The file system calls of one owner. Any thread, except audio callbacks. Owned by shared pointers,
// because abandoned calls go on.
class FileCalls : public std::enable_shared_from_this<FileCalls> {
 public:
  // How long the caller of within() waits for a call that makes no progress.
  static constexpr std::chrono::milliseconds kPatience{5000};
  // The same while another call has been blocked for longer than this, because the reason is the
  // same.
  static constexpr std::chrono::milliseconds kShortPatience{500};

  enum class Kind {
    kName,     // of a file's name
    kContent,  // of an open file's bytes
  };

  // One call, or a few that belong together, from construction to destruction.
  class Call {
   public:
    Call(FileCalls& owner, const std::string& path, Kind kind = Kind::kName)
        : owner_(owner), number_(owner.begin(path, kind)) {}
    ~Call() { owner_.end(number_); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

   private:
    FileCalls& owner_;
    const std::uint64_t number_;
  };

  struct UnderWay {
    std::uint64_t number;  // unique
    std::string path;
  };
  // The call of that kind that has been pending the longest.
  [[nodiscard]] std::optional<UnderWay> oldest(Kind kind) const;
  // Grows with each call that ends.
  [[nodiscard]] std::uint64_t progress() const;

  // Runs `work` on a separate thread and returns its result, or null when no call has ended for
  // kPatience. `work` then goes on alone, so it must own everything that it uses. If `isGivenUp` is
  // given, it becomes true at that moment, so that `work` can check it. If no thread can be
  // started, the caller runs `work` itself, for as long as it takes.
  template <typename Work>
  auto within(Work work, const std::shared_ptr<std::atomic<bool>>& isGivenUp = nullptr)
      -> std::optional<decltype(work())>;

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    std::string path;
    Kind kind;
    Clock::time_point begin;
  };

  std::uint64_t begin(const std::string& path, Kind kind);
  void end(std::uint64_t number);
  [[nodiscard]] std::chrono::milliseconds patience() const;
  // Waits until `isDone`, which the lock guards, or until kPatience runs out.
  bool awaitProgress(platform::MutexLock& lock, platform::Condition& changed,
                     const bool& isDone) const;

  mutable platform::Mutex mutex_;
  std::map<std::uint64_t, Entry> underWay_ RA_GUARDED_BY(mutex_);
  std::uint64_t begun_ RA_GUARDED_BY(mutex_) = 0;
};

// Distinguishes a file that can no longer be written from one whose write is merely slow. Counts
// checks rather than time, because a process that was stopped for an hour has not waited for an
// hour. One thread at a time.
class StallDetector {
 public:
  static constexpr int kLooks = 5;

  // `calls` outlives the detector.
  explicit StallDetector(const FileCalls& calls) : calls_(calls) {}

  // Call at regular intervals. Returns the path of a file whose same call has been pending at this
  // check and at the kLooks checks before it.
  std::optional<std::string> look();

 private:
  const FileCalls& calls_;
  std::uint64_t seen_ = 0;
  int looks_ = 0;
};

// "Cannot <doing> <path>: …", for a call that did not return.
std::string noAnswerText(std::string_view doing, const std::string& path);

template <typename Work>
auto FileCalls::within(Work work, const std::shared_ptr<std::atomic<bool>>& isGivenUp)
    -> std::optional<decltype(work())> {
  struct Shared {
    explicit Shared(Work toDo) : work(std::move(toDo)) {}
    Work work;  // used only by the thread that runs it
    platform::Mutex mutex;
    platform::Condition changed;
    bool isDone RA_GUARDED_BY(mutex) = false;
    std::optional<decltype(work())> result RA_GUARDED_BY(mutex);
  };
  const auto shared = std::make_shared<Shared>(std::move(work));
  try {
    std::thread([shared, self = shared_from_this()] {
      auto result = shared->work();
      const platform::MutexLock lock(shared->mutex);
      shared->result.emplace(std::move(result));
      shared->isDone = true;
      shared->changed.notify_all();
    }).detach();
  } catch (const std::system_error&) {
    return shared->work();
  }
  platform::MutexLock lock(shared->mutex);
  if (awaitProgress(lock, shared->changed, shared->isDone)) return std::move(shared->result);
  if (isGivenUp != nullptr) isGivenUp->store(true, std::memory_order_relaxed);
  return std::nullopt;
}

}  // namespace linux_host
