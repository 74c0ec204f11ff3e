// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/interrupted_recordings.h"
#include "tests/memory_host/memory_foundation.h"

// Interrupted recordings in memory. Each step of their recovery can be made to fail.
// Single-threaded.

namespace memory_host {

class MemoryInterruptedRecordings : public platform::InterruptedRecordings {
 public:
  struct Leftover {
    Claim::Outcome outcome = Claim::Outcome::kClaimed;
    platform::RecordingFindings findings;
    std::string claimProblem;
    std::string finishProblem;
    bool finishesElsewhere = false;  // can be finished outside the temporary directory only
    bool claimed = false;            // and not released since
    bool finished = false;
  };

  explicit MemoryInterruptedRecordings(MemoryFileManager& files) : files_(files) {}

  [[nodiscard]] std::vector<std::string> find(const std::string& namePrefix,
                                              std::string* error) override;
  [[nodiscard]] Claim claim(const std::string& path) override;
  void yieldToOthers() override { journal.push_back("yield"); }

  // A file of that name in the temporary directory, and what will be found in it.
  Leftover& add(const std::string& name, const platform::RecordingFindings& findings = {});

  // From now on every file of the temporary directory counts, whether or not a test has added it.
  void goLive() { isLive_ = true; }

  std::map<std::string, Leftover> leftovers;  // by path
  std::string findProblem;
  // "yield", "find", "claim /a", "finish /a", "move /a -> /b".
  std::vector<std::string> journal;

 private:
  class Recording;

  void leaveAsItLies(const std::string& path);

  MemoryFileManager& files_;
  bool isLive_ = false;
};

}  // namespace memory_host
