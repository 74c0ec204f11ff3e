// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "driver/default_guard.h"

namespace loopback {

// Keeps the user's choice of the default output in a file, so that a driver that starts after a
// crash or a power cut can put it back. A file that cannot be read or is damaged counts as missing;
// a failed write is reported on stderr.
class ChoiceFile : public ChoiceMemory {
 public:
  explicit ChoiceFile(std::string path) : path_(std::move(path)) {}
  [[nodiscard]] DefaultChoice load() override;
  // Atomic: at any moment the file contains one complete choice, the old or the new one.
  void store(const DefaultChoice& choice) override;

  // In the user's state folder, or else in the runtime folder; empty when the environment names
  // neither.
  [[nodiscard]] static std::string defaultPath();

 private:
  std::string path_;
};

}  // namespace loopback
