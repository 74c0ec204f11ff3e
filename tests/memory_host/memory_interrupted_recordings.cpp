// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_interrupted_recordings.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace memory_host {
namespace {

bool isUniqueText(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char letter) {
    return letter == '-' || (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= 'a' && letter <= 'z');
  });
}

}  // namespace

class MemoryInterruptedRecordings::Recording : public platform::InterruptedRecording {
 public:
  Recording(MemoryInterruptedRecordings& owner, std::string path, Leftover& leftover)
      : owner_(owner), original_(std::move(path)), path_(original_), leftover_(leftover) {
    leftover_.claimed = true;
  }
  ~Recording() override { leftover_.claimed = false; }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  platform::RecordingFindings examine() override { return leftover_.findings; }

  std::string finish() override {
    owner_.journal.push_back("finish " + path_);
    const bool isElsewhere = path_ != original_ && leftover_.finishesElsewhere;
    leftover_.finished = leftover_.finishProblem.empty() || isElsewhere;
    return leftover_.finished ? std::string() : leftover_.finishProblem;
  }

  Move moveTo(const std::string& path, std::string* error) override {
    owner_.journal.push_back("move " + path_ + " -> " + path);
    *error = owner_.files_.moveItem(path_, path);
    if (error->empty()) {
      path_ = path;
      return Move::kMoved;
    }
    return owner_.files_.fileExists(path) ? Move::kNameTaken : Move::kFailed;
  }

  std::string moveBack() override {
    owner_.journal.push_back("move " + path_ + " -> " + original_);
    std::string error = owner_.files_.moveItem(path_, original_);
    if (error.empty()) path_ = original_;
    return error;
  }

 private:
  MemoryInterruptedRecordings& owner_;
  const std::string original_;
  std::string path_;
  Leftover& leftover_;
};

std::vector<std::string> MemoryInterruptedRecordings::find(const std::string& namePrefix,
                                                           std::string* error) {
  journal.push_back("find");
  if (!findProblem.empty()) {
    *error = findProblem;
    return {};
  }
  std::vector<std::string> paths;
  const std::string begin = files_.temporaryDirectory() + "/" + namePrefix;
  for (const auto& [path, file] : files_.files) {
    if (!path.starts_with(begin)) continue;
    const std::string_view rest = std::string_view(path).substr(begin.size());
    if (leftovers.contains(path) || (isLive_ && isUniqueText(rest))) paths.push_back(path);
  }
  return paths;
}

platform::InterruptedRecordings::Claim MemoryInterruptedRecordings::claim(const std::string& path) {
  journal.push_back("claim " + path);
  Claim claim;
  if (isLive_ && !leftovers.contains(path)) leaveAsItLies(path);
  const auto found = leftovers.find(path);
  if (found == leftovers.end() || found->second.claimed) return claim;
  Leftover& leftover = found->second;
  claim.outcome = leftover.outcome;
  claim.problem = leftover.claimProblem;
  if (claim.outcome == Claim::Outcome::kClaimed) {
    claim.recording = std::make_unique<Recording>(*this, path, leftover);
  }
  return claim;
}

// A file that the test has not spoken of. Nothing is known of it while somebody writes it.
void MemoryInterruptedRecordings::leaveAsItLies(const std::string& path) {
  const auto file = files_.files.find(path);
  if (file == files_.files.end() || file->second->handles > 0) return;
  Leftover& leftover = leftovers[path];
  if (file->second->contents.empty()) leftover.outcome = Claim::Outcome::kEmpty;
  leftover.findings.problem = path + " contains no recording.";
}

MemoryInterruptedRecordings::Leftover& MemoryInterruptedRecordings::add(
    const std::string& name, const platform::RecordingFindings& findings) {
  const std::string path = files_.temporaryDirectory() + "/" + name;
  files_.addFile(path, "sound");
  Leftover& leftover = leftovers[path];
  leftover.findings = findings;
  return leftover;
}

}  // namespace memory_host
