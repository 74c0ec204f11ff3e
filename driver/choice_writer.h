// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>

#include "driver/default_guard.h"

namespace loopback {

// Writes another memory's choices on a separate thread, so that a disk that hangs delays nothing:
// the driver shows and hides the device on its single thread. If choices come faster than they are
// written, only the latest counts. Call from one thread.
class ChoiceWriter : public ChoiceMemory {
 public:
  explicit ChoiceWriter(std::unique_ptr<ChoiceMemory> memory,
                        std::chrono::milliseconds farewell = std::chrono::milliseconds(500));
  // Waits, at most for the farewell, until the latest choice is written; a thread that hangs is
  // abandoned.
  ~ChoiceWriter() override;
  ChoiceWriter(const ChoiceWriter&) = delete;
  ChoiceWriter& operator=(const ChoiceWriter&) = delete;

  // Reads on the calling thread. Call before the first store().
  [[nodiscard]] DefaultChoice load() override;
  // Returns at once.
  void store(const DefaultChoice& choice) override;

 private:
  struct Desk;  // shared with the thread, which may have to be abandoned

  std::shared_ptr<Desk> desk_;
  std::chrono::milliseconds farewell_;
};

}  // namespace loopback
