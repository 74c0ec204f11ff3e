// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation.h"

// Temporary recordings whose process ended before it could save them. Any thread, one at a time.
// Free for the host: what of a damaged file it can save.

namespace platform {

struct RecordingFindings {
  enum class Contents {
    kNoSound,  // begun, and ended before the first sound was written
    kM4a,
    kMp3,
    kUnknown,  // nothing that this program writes, or damaged beyond use
  };
  Contents contents = Contents::kUnknown;
  std::string problem;  // with kUnknown: for the user
  double duration_s = 0;
  Date lastWritten{};
  std::optional<Date> created;  // as the file system remembers it; of a copied file, the copy's
  std::optional<Date> stated;   // as the file itself says, in whole seconds
};

// One such recording. While the object lives, nobody else takes it, in this process or another.
class InterruptedRecording {
 public:
  enum class Move { kMoved, kNameTaken, kFailed };

  virtual ~InterruptedRecording() = default;
  // Only reads.
  virtual RecordingFindings examine() = 0;
  // Makes the file one that every player opens, where it lies. Returns an error text, empty on
  // success; after an error, or an end of the process in its middle, the file plays as before. May
  // be tried again where it has been moved to.
  [[nodiscard]] virtual std::string finish() = 0;
  // Moves the file, to another file system too, and never replaces one. Unless moved, the file is
  // whole where it was, and *error says why.
  virtual Move moveTo(const std::string& path, std::string* error) = 0;
  // Moves it back to where it was found. Returns an error text, empty on success.
  [[nodiscard]] virtual std::string moveBack() = 0;
};

class InterruptedRecordings {
 public:
  struct Claim {
    enum class Outcome {
      kClaimed,
      kNotOurs,  // another user's, still being written, claimed by another process, or gone
      kEmpty,    // holds nothing at all
      kRefused,  // `problem` says why, for the user
    };
    Outcome outcome = Outcome::kNotOurs;
    std::unique_ptr<InterruptedRecording> recording;  // with kClaimed
    std::string problem;
  };

  virtual ~InterruptedRecordings() = default;
  // The files of the temporary directory whose names are the prefix and a globally unique string,
  // whoever owns them, sorted by name. *error is set when the directory cannot be read.
  [[nodiscard]] virtual std::vector<std::string> find(const std::string& namePrefix,
                                                      std::string* error) = 0;
  // Claimed recordings must be destroyed before this object.
  [[nodiscard]] virtual Claim claim(const std::string& path) = 0;
  // From now on the calling thread's work yields to everybody else's, as far as the system can.
  virtual void yieldToOthers() = 0;
};

}  // namespace platform
