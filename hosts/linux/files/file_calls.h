// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

// A network folder that hangs, or a disk that has stopped, holds every call to it for as long as it
// likes. Here is known which calls are under way, and here calls are made whose caller cannot wait
// that long.

namespace linux_host {

// The calls to the file system of one owner. Any thread, except audio callbacks. Owned by shared
// pointers, as calls that nobody waits for any more go on.
class FileCalls : public std::enable_shared_from_this<FileCalls> {
 public:
  // The longest that the caller of within() waits for a call that makes no progress.
  static constexpr std::chrono::milliseconds kPatience{5000};
  // The same while another call has been held for longer than this: they have the same reason.
  static constexpr std::chrono::milliseconds kShortPatience{500};

  enum class Kind {
    kName,     // of a file's name
    kContent,  // of an open file's bytes
  };

  // One call, or a few that belong together, from its making to its end.
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
    std::uint64_t number;  // no other call ever has it
    std::string path;
  };
  // The call of that kind that has been under way the longest.
  [[nodiscard]] std::optional<UnderWay> oldest(Kind kind) const;
  // Grows with each call that ends.
  [[nodiscard]] std::uint64_t progress() const;

  // Does `work` on a thread of its own and returns what it returns, or null when for kPatience no
  // call has ended. `work` then goes on alone and must own all that it uses; *isGivenUp becomes
  // true, for it to look at, if that is given. Without a thread to spare the caller does it, for as
  // long as it takes.
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
  // Waits until `isDone`, which is guarded by `mutex`, or until patience has run out.
  bool awaitProgress(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                     const bool& isDone) const;

  mutable std::mutex mutex_;
  std::map<std::uint64_t, Entry> underWay_;  // guarded by mutex_
  std::uint64_t begun_ = 0;                  // guarded by mutex_
};

// Tells a file that cannot be written any more from one that waits a little. Looks are counted
// rather than time: a process that was stopped for an hour has waited for none. One thread at a
// time.
class StallDetector {
 public:
  static constexpr int kLooks = 5;

  // The calls outlive the detector.
  explicit StallDetector(const FileCalls& calls) : calls_(calls) {}

  // To be called at even intervals: the path of a file of which the same call has been under way at
  // this look and at kLooks before it.
  std::optional<std::string> look();

 private:
  const FileCalls& calls_;
  std::uint64_t seen_ = 0;
  int looks_ = 0;
};

// "Cannot <doing> <path>: …", of a call that did not come back.
std::string noAnswerText(std::string_view doing, const std::string& path);

template <typename Work>
auto FileCalls::within(Work work, const std::shared_ptr<std::atomic<bool>>& isGivenUp)
    -> std::optional<decltype(work())> {
  struct Shared {
    explicit Shared(Work toDo) : work(std::move(toDo)) {}
    Work work;  // of the one thread that does it
    std::mutex mutex;
    std::condition_variable changed;
    bool isDone = false;                     // guarded by mutex
    std::optional<decltype(work())> result;  // guarded by mutex
  };
  const auto shared = std::make_shared<Shared>(std::move(work));
  try {
    std::thread([shared, self = shared_from_this()] {
      auto result = shared->work();
      const std::lock_guard lock(shared->mutex);
      shared->result.emplace(std::move(result));
      shared->isDone = true;
      shared->changed.notify_all();
    }).detach();
  } catch (const std::system_error&) {
    return shared->work();
  }
  std::unique_lock lock(shared->mutex);
  if (awaitProgress(lock, shared->changed, shared->isDone)) return std::move(shared->result);
  if (isGivenUp != nullptr) isGivenUp->store(true, std::memory_order_relaxed);
  return std::nullopt;
}

}  // namespace linux_host
