// SPDX-License-Identifier: MIT
#include "hosts/linux/recovery/lost_recordings.h"

#include <linux/ioprio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "hosts/linux/base/small_files.h"
#include "hosts/linux/m4a/m4a_open_file.h"
#include "hosts/linux/recovery/mp3_stream.h"

namespace linux_host {
namespace {

using platform::Date;
using platform::InterruptedRecording;
using platform::RecordingFindings;
using Contents = RecordingFindings::Contents;

constexpr int kLowestPriority = 19;

// The rest of the name is the unique part. A user's own "…interview.mp3" is not ours.
bool isTemporaryName(std::string_view name, std::string_view prefix) {
  constexpr std::string_view kUniqueText =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-";
  if (!name.starts_with(prefix) || name == prefix) return false;
  return name.find_first_not_of(kUniqueText, prefix.size()) == std::string_view::npos;
}

Date dateOf(const struct statx_timestamp& time) {
  return Date(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

// As the core is told of it: empty means success.
std::string textOf(const Status& status) {
  return status ? std::string() : status.error();
}

class LostRecording : public InterruptedRecording {
 public:
  LostRecording(OpenFiles& files, std::shared_ptr<OpenFile> file)
      : files_(files), file_(std::move(file)), foundAt_(file_->path()) {}

  RecordingFindings examine() override {
    RecordingFindings findings;
    const auto description = file_->describe();
    if (!description) {
      findings.problem = description.error();
      return findings;
    }
    findings.lastWritten = dateOf(description->stx_mtime);
    if (description->stx_mask & STATX_BTIME) findings.created = dateOf(description->stx_btime);
    lookInto(&findings);
    contents_ = findings.contents;
    return findings;
  }

  std::string finish() override {
    if (contents_ == Contents::kMp3) {
      // Players complain of an incomplete frame and do not play it.
      const auto torn_bytes = tornMp3Frame_bytes(*file_);
      return torn_bytes ? textOf(file_->truncate(*torn_bytes)) : std::string();
    }
    const auto recovery = recoverInterruptedM4a(file_);
    return recovery ? std::string() : recovery.error();
  }

  Move moveTo(const std::string& path, std::string* error) override {
    const Status moved = files_.move(file_->path(), path);
    if (moved) return Move::kMoved;
    *error = moved.error();
    struct stat taken {};
    return lstat(path.c_str(), &taken) == 0 ? Move::kNameTaken : Move::kFailed;
  }

  std::string moveBack() override {
    const Status moved = files_.move(file_->path(), foundAt_);
    if (!moved) return moved.error();
    // In a folder shared with others, the recording must stay private.
    if (chmod(foundAt_.c_str(), S_IRUSR | S_IWUSR) == 0) return {};
    return errorText("close to others", foundAt_, errno);
  }

 private:
  void lookInto(RecordingFindings* findings) const {
    if (const auto m4a = findM4aPackets(file_)) {
      findings->contents =
          m4a->packets.packetSizes_bytes().empty() ? Contents::kNoSound : Contents::kM4a;
      findings->duration_s = static_cast<double>(m4a->track.frames) / m4a->track.sampleRate_hz;
      if (m4a->track.creationTime_s > kMp4Epoch_s) {
        findings->stated = Date(std::chrono::seconds(m4a->track.creationTime_s - kMp4Epoch_s));
      }
    } else if (const auto duration_s = mp3Duration_s(*file_)) {
      findings->contents = *duration_s > 0 ? Contents::kMp3 : Contents::kNoSound;
      findings->duration_s = *duration_s;
    } else {
      findings->problem =
          file_->path() +
          " is left alone: it contains no readable recording. Examine it, and keep or "
          "delete it yourself.";
    }
  }

  OpenFiles& files_;
  const std::shared_ptr<OpenFile> file_;
  const std::string foundAt_;
  Contents contents_ = Contents::kUnknown;
};

}  // namespace

std::vector<std::string> LostRecordings::find(const std::string& namePrefix, std::string* error) {
  const std::string folder = folder_();
  std::vector<std::string> paths;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (isTemporaryName(entry->path().filename().string(), namePrefix)) {
      paths.push_back(entry->path().string());
    }
  }
  if (failure) *error = errorText("look for recordings in", folder, failure.value());
  std::ranges::sort(paths);
  return paths;
}

LostRecordings::Claim LostRecordings::claim(const std::string& path) {
  Claim claim;
  struct stat status {};
  // Other users have their recordings here, too.
  if (lstat(path.c_str(), &status) != 0 || status.st_uid != geteuid()) return claim;
  if (S_ISREG(status.st_mode) && status.st_size == 0) {
    claim.outcome = Claim::Outcome::kEmpty;
    return claim;
  }
  auto file = files_.claim(path);
  if (!file) {
    claim.outcome = Claim::Outcome::kRefused;
    claim.problem = file.error();
  } else if (*file != nullptr) {
    claim.outcome = Claim::Outcome::kClaimed;
    claim.recording = std::make_unique<LostRecording>(files_, *std::move(file));
  }
  return claim;
}

void LostRecordings::yieldToOthers() {
  // If the system refuses, this work runs at normal priority.
  setpriority(PRIO_PROCESS, 0, kLowestPriority);
  syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 0));
}

}  // namespace linux_host
