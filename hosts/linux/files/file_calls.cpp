// SPDX-License-Identifier: MIT
#include "hosts/linux/files/file_calls.h"

namespace linux_host {
namespace {

// Waits in steps and counts them: a process that was stopped for an hour has not waited for an
// hour.
constexpr std::chrono::milliseconds kWaitStep{100};

}  // namespace

std::uint64_t FileCalls::begin(const std::string& path, Kind kind) {
  const platform::MutexLock lock(mutex_);
  underWay_.emplace(++begun_, Entry{path, kind, Clock::now()});
  return begun_;
}

void FileCalls::end(std::uint64_t number) {
  const platform::MutexLock lock(mutex_);
  underWay_.erase(number);
}

std::optional<FileCalls::UnderWay> FileCalls::oldest(Kind kind) const {
  const platform::MutexLock lock(mutex_);
  for (const auto& [number, entry] : underWay_) {
    if (entry.kind == kind) return UnderWay{number, entry.path};
  }
  return std::nullopt;
}

std::uint64_t FileCalls::progress() const {
  const platform::MutexLock lock(mutex_);
  return begun_ - underWay_.size();
}

std::chrono::milliseconds FileCalls::patience() const {
  const platform::MutexLock lock(mutex_);
  const bool isHeld =
      !underWay_.empty() && Clock::now() - underWay_.begin()->second.begin > kShortPatience;
  return isHeld ? kShortPatience : kPatience;
}

bool FileCalls::awaitProgress(platform::MutexLock& lock, platform::Condition& changed,
                              const bool& isDone) const {
  const std::chrono::milliseconds limit = patience();
  std::chrono::milliseconds waited{0};
  for (std::uint64_t seen = progress(); waited < limit;) {
    if (changed.wait_for(lock, kWaitStep, [&isDone] { return isDone; })) return true;
    waited += kWaitStep;
    if (const std::uint64_t now = progress(); now != seen) {
      seen = now;
      waited = {};
    }
  }
  return false;
}

std::optional<std::string> StallDetector::look() {
  const auto oldest = calls_.oldest(FileCalls::Kind::kContent);
  const std::uint64_t number = oldest ? oldest->number : 0;
  looks_ = number == seen_ ? looks_ + 1 : 0;
  seen_ = number;
  if (!oldest || looks_ < kLooks) return std::nullopt;
  return oldest->path;
}

std::string noAnswerText(std::string_view doing, const std::string& path) {
  std::string text = "Cannot ";
  text.append(doing).append(" ").append(path);
  return text.append(
      ": the disk or network folder does not answer. Check whether it is connected and switched "
      "on.");
}

}  // namespace linux_host
