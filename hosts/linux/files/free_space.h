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

// The free space for the user in the folder's file system, bytes; null when unknown. Blocks while a
// network folder hangs. Any thread.
std::optional<std::uint64_t> freeSpace_bytes(const std::string& folder);

// Periodically checks whether folders run out of space, each on a separate thread, because a
// network folder that hangs may block it forever. One thread at a time; no call waits.
class FreeSpace {
 public:
  static constexpr std::uint64_t kLow_bytes = 100'000'000;
  static constexpr std::chrono::milliseconds kLook{3000};

  using Measure = std::function<std::optional<std::uint64_t>(const std::string& folder)>;
  // `measure` is called on those threads, possibly even after the destructor.
  explicit FreeSpace(Measure measure = freeSpace_bytes, std::chrono::milliseconds look = kLook);
  ~FreeSpace() { end(); }
  FreeSpace(const FreeSpace&) = delete;
  FreeSpace& operator=(const FreeSpace&) = delete;

  // Checks these folders, instead of earlier ones, at once and then every `look`.
  void begin(const std::vector<std::string>& folders);
  void end();
  // Whether less than kLow_bytes were free in one of the folders at the last check; false before
  // the first check and after end().
  [[nodiscard]] bool isLow() const;

 private:
  struct Looks;
  static void run(const std::shared_ptr<Looks>& looks, const std::string& folder);

  const Measure measure_;
  const std::chrono::milliseconds look_;
  std::shared_ptr<Looks> looks_;  // null while not checking
};

}  // namespace linux_host
