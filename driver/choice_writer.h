// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>

#include "driver/default_guard.h"

namespace loopback {

// Writes another memory's choices on a thread of its own, so that a disk that hangs delays nobody:
// the driver has one thread, and the device is shown and hidden on it. Of choices that come faster
// than they are written only the latest counts. One thread.
class ChoiceWriter : public ChoiceMemory {
 public:
  explicit ChoiceWriter(std::unique_ptr<ChoiceMemory> memory);
  // Waits, at most kFarewell, until the latest choice is written; a write that hangs is left
  // behind.
  ~ChoiceWriter() override;
  ChoiceWriter(const ChoiceWriter&) = delete;
  ChoiceWriter& operator=(const ChoiceWriter&) = delete;

  // Reads at once. To be called before the first store().
  [[nodiscard]] DefaultChoice load() override;
  // Returns at once.
  void store(const DefaultChoice& choice) override;

  static constexpr std::chrono::milliseconds kFarewell{500};

 private:
  struct Desk;  // shared with the thread, which may have to be left behind

  std::shared_ptr<Desk> desk_;
};

}  // namespace loopback
