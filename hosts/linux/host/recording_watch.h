// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation.h"
#include "platform/remote_control.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Checks during a recording for problems that the user should know of before its end, such as a
// muted microphone or a disk that is nearly full. Main thread.
class RecordingWatch : public suite::ToolDataObserver {
 public:
  static constexpr double kLook_s = 1.0;

  struct Finding {
    // The status has "<key>": true while the finding is true; empty: not in the status.
    std::string statusKey;
    // Called at each check.
    std::function<bool()> isSo;
    // Called at each change; every finding is false when nothing is recorded.
    std::function<void(bool isSo)> onChange;
  };

  // `onRecording` is called when a recording begins and when it is over. The loop outlives the
  // watch.
  RecordingWatch(platform::RunLoop& loop, std::vector<Finding> findings,
                 std::function<void(bool begins)> onRecording);
  ~RecordingWatch() override;
  RecordingWatch(const RecordingWatch&) = delete;
  RecordingWatch& operator=(const RecordingWatch&) = delete;

  void toolDataDidChange(const suite::ToolData& data) override;
  // The keys of the findings that are true.
  [[nodiscard]] std::vector<std::string> trueKeys() const;

 private:
  struct Watched {
    Finding finding;
    bool isSo = false;
  };
  void look();
  static void set(Watched& watched, bool isSo);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  platform::RunLoop& loop_;
  std::vector<Watched> watched_;
  const std::function<void(bool begins)> onRecording_;
  platform::TimerPtr timer_;  // null while nothing is recorded
};

// Adds the watch's findings and the amount of lost sound to the status. Main thread.
class FindingsInStatus : public platform::RemoteControl {
 public:
  // The watch outlives this object. `lost_frames`: of the current recording.
  FindingsInStatus(std::shared_ptr<platform::RemoteControl> control, const RecordingWatch& watch,
                   std::function<std::uint64_t()> lost_frames)
      : control_(std::move(control)), watch_(watch), lost_frames_(std::move(lost_frames)) {}

  bool stop() override { return control_->stop(); }
  bool cancel() override { return control_->cancel(); }
  void setOnStateChange(std::function<void()> onChange) override {
    control_->setOnStateChange(std::move(onChange));
  }
  [[nodiscard]] platform::Dictionary status() const override;

 private:
  const std::shared_ptr<platform::RemoteControl> control_;
  const RecordingWatch& watch_;
  const std::function<std::uint64_t()> lost_frames_;
};

}  // namespace linux_host
