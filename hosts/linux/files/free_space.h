// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace linux_host {

// What a user may still write to the file system of the folder, bytes; null when it cannot be told.
// Waits where a network folder hangs. Any thread.
std::optional<std::uint64_t> freeSpace_bytes(const std::string& folder);

// Looks now and then whether folders run out of room, each on a thread of its own, as a network
// folder that hangs may hold it for ever. One thread at a time; no call waits.
class FreeSpace {
 public:
  static constexpr std::uint64_t kLow_bytes = 100'000'000;
  static constexpr std::chrono::milliseconds kLook{3000};

  using Measure = std::function<std::optional<std::uint64_t>(const std::string& folder)>;
  // `measure` is called on the threads, and may still be after the end.
  explicit FreeSpace(Measure measure = freeSpace_bytes, std::chrono::milliseconds look = kLook);
  ~FreeSpace() { end(); }
  FreeSpace(const FreeSpace&) = delete;
  FreeSpace& operator=(const FreeSpace&) = delete;

  // Looks at once and then every `look`, at these folders instead of earlier ones.
  void begin(const std::vector<std::string>& folders);
  void end();
  // Less than kLow_bytes were free in one of the folders when last looked; false before the first
  // look and after end().
  [[nodiscard]] bool isLow() const;

 private:
  struct Looks;
  static void run(const std::shared_ptr<Looks>& looks, const std::string& folder);

  const Measure measure_;
  const std::chrono::milliseconds look_;
  std::shared_ptr<Looks> looks_;  // null while nobody looks
};

}  // namespace linux_host
