// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/recovery_report.h"
#include "platform/interrupted_recordings.h"
#include "platform/thread_role.h"
#include "suite/environment.h"

namespace record_audio {

// When an interrupted recording began. A file cannot hold more sound than fits between its creation
// and its last write. One that seems to is a copy: then the date inside it counts, or else its last
// write less its length.
platform::Date startOfRecording(const platform::RecordingFindings& findings);

// Recovers interrupted recordings, one after the other. Each is claimed, finished and moved into
// the output folder, under the name that a stop would have given it. One that cannot be finished
// for lack of space is finished in the output folder. One that cannot be moved stays where it is.
// Nothing is ever deleted.
//
// Created and called on the main thread; used once. start() works on files on its own queue and
// keeps the object alive until it has finished. The queue and the main thread take turns, so only
// one of them uses the object at a time; debug builds assert it.
class RecordingRecovery : public std::enable_shared_from_this<RecordingRecovery> {
 public:
  // `outputFolder` without a trailing slash.
  static std::shared_ptr<RecordingRecovery> create(suite::Environment environment,
                                                   std::string outputFolder);
  // Returns when all is done.
  RecoveryReport run();
  // Works in the background, then calls `onFinished` on the main thread.
  void start(std::function<void(const RecoveryReport&)> onFinished);

 private:
  RecordingRecovery(suite::Environment environment, std::string outputFolder);

  // On the queue, because they work on files.
  void search() RA_REQUIRES(turn_);
  // Claims the next recording that can be moved; false when none is left.
  bool takeNext() RA_REQUIRES(turn_);
  bool prepare(const std::string& path, std::unique_ptr<platform::InterruptedRecording> recording)
      RA_REQUIRES(turn_);
  // Moves the recording to target_. If that name was taken meanwhile, the recording stays current.
  void place() RA_REQUIRES(turn_);
  void finishMoved() RA_REQUIRES(turn_);
  void continueOnMainThread() RA_REQUIRES(turn_);
  // On the main thread.
  void continueOnQueue();
  // Chooses target_. Gives the recording up and returns false when no name is left for it.
  bool name() RA_REQUIRES(turn_);

  platform::ThreadRole turn_;
  suite::Environment environment_;
  const std::string outputFolder_;
  std::vector<std::string> waiting_ RA_GUARDED_BY(turn_);  // the next one is last
  RecoveryReport report_ RA_GUARDED_BY(turn_);

  // The current recording; null between two.
  std::unique_ptr<platform::InterruptedRecording> recording_ RA_GUARDED_BY(turn_);
  platform::RecordingFindings findings_ RA_GUARDED_BY(turn_);
  std::string target_ RA_GUARDED_BY(turn_);  // where it is to go; empty until it has a name
  std::string whyNotMoved_ RA_GUARDED_BY(turn_);
  std::string whyNotFinished_ RA_GUARDED_BY(turn_);  // before the move; empty when it is complete

  std::shared_ptr<platform::DispatchQueue> queue_;
  std::function<void(const RecoveryReport&)> onFinished_;
};

}  // namespace record_audio
