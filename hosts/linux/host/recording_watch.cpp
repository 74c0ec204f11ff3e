// SPDX-License-Identifier: MIT
#include "hosts/linux/host/recording_watch.h"

#include <utility>

#include "hosts/linux/power/login_session.h"

namespace linux_host {

RecordingWatch::RecordingWatch(platform::RunLoop& loop, std::vector<Finding> findings,
                               std::function<void(bool begins)> onRecording)
    : loop_(loop), onRecording_(std::move(onRecording)) {
  for (Finding& finding : findings) watched_.push_back({std::move(finding)});
}

RecordingWatch::~RecordingWatch() {
  if (timer_ != nullptr) timer_->invalidate();
}

void RecordingWatch::toolDataDidChange(const suite::ToolData& data) {
  mainThread_.assertHeld();
  const bool recording = isRecording(data);
  if (recording == (timer_ != nullptr)) return;
  if (recording) {
    timer_ = loop_.scheduledTimer(kLook_s, {}, true, [this](const platform::TimerPtr&) { look(); });
  } else {
    std::exchange(timer_, nullptr)->invalidate();
  }
  onRecording_(recording);
  if (recording) return;
  for (Watched& watched : watched_) set(watched, false);
}

void RecordingWatch::look() {
  mainThread_.assertHeld();
  for (Watched& watched : watched_) {
    // The handler of an earlier finding may have ended the recording.
    if (timer_ != nullptr) set(watched, watched.finding.isSo());
  }
}

void RecordingWatch::set(Watched& watched, bool isSo) {
  if (std::exchange(watched.isSo, isSo) != isSo) watched.finding.onChange(isSo);
}

std::vector<std::string> RecordingWatch::trueKeys() const {
  std::vector<std::string> keys;
  for (const Watched& watched : watched_) {
    if (watched.isSo && !watched.finding.statusKey.empty()) {
      keys.push_back(watched.finding.statusKey);
    }
  }
  return keys;
}

platform::Dictionary FindingsInStatus::status() const {
  platform::Dictionary status = control_->status();
  for (const std::string& key : watch_.trueKeys()) status[key] = true;
  if (const std::uint64_t lost_frames = lost_frames_(); lost_frames > 0) {
    status["lostFrames"] = static_cast<std::int64_t>(lost_frames);
  }
  return status;
}

}  // namespace linux_host
