// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/recovery_report.h"
#include "platform/interrupted_recordings.h"
#include "suite/environment.h"

namespace record_audio {

// When a recording began of which nothing but its file is left. A file cannot hold more sound than
// fits between its making and its last byte: one that seems to is a copy, and what it says of
// itself, or else its length, counts.
platform::Date startOfRecording(const platform::RecordingFindings& findings);

// Brings interrupted recordings back: one after the other, each is claimed, finished and moved into
// the output folder, under the name that it would have had. What cannot be finished for want of
// room is finished in the output folder. What cannot be moved stays as it is; nothing is ever
// deleted.
//
// Made and called on the main thread. Used once. With start(), the work on files is done on a queue
// of its own, and the object lives until it is through; the queue and the main thread take turns,
// so that only one of them touches the object at a time.
class RecordingRecovery : public std::enable_shared_from_this<RecordingRecovery> {
 public:
  // `outputFolder` without a trailing slash.
  static std::shared_ptr<RecordingRecovery> create(suite::Environment environment,
                                                   std::string outputFolder);
  // Does it all before it returns.
  RecoveryReport run();
  // Does it in the background, then calls `onFinished` on the main thread.
  void start(std::function<void(const RecoveryReport&)> onFinished);

 private:
  RecordingRecovery(suite::Environment environment, std::string outputFolder);

  // What works on files: on the queue.
  void search();
  // The next recording there is something to be moved of; false when none is left.
  bool takeNext();
  bool prepare(const std::string& path, std::unique_ptr<platform::InterruptedRecording> recording);
  // Keeps the recording when the name was taken meanwhile.
  void place();
  void finishMoved();
  void goOn();
  // On the main thread. False, and the recording given up, when no name is left for it.
  bool name();
  void nameAndGoOn();

  suite::Environment environment_;
  const std::string outputFolder_;
  std::vector<std::string> waiting_;  // the next one last
  RecoveryReport report_;

  // The recording under way; null between two.
  std::unique_ptr<platform::InterruptedRecording> recording_;
  platform::RecordingFindings findings_;
  std::string target_;  // its path-to-be; empty before it has been named
  std::string whyNotMoved_;
  std::string whyNotFinished_;  // where it was found; empty when it is complete

  std::shared_ptr<platform::DispatchQueue> queue_;
  std::function<void(const RecoveryReport&)> onFinished_;
};

}  // namespace record_audio
