#include "hosts/linux/host/silence_watch.h"

#include <utility>

#include "hosts/linux/power/login_session.h"

namespace linux_host {

SilenceWatch::SilenceWatch(platform::RunLoop& loop, std::function<bool()> isSilent,
                           std::function<void(bool silent)> onChange)
    : loop_(loop), isSilentNow_(std::move(isSilent)), onChange_(std::move(onChange)) {}

SilenceWatch::~SilenceWatch() {
  if (timer_ != nullptr) timer_->invalidate();
}

void SilenceWatch::toolDataDidChange(const suite::ToolData& data) {
  const bool recording = isRecording(data);
  if (recording == (timer_ != nullptr)) return;
  if (recording) {
    timer_ = loop_.scheduledTimer(kLook_s, {}, true, [this](const platform::TimerPtr&) { look(); });
  } else {
    std::exchange(timer_, nullptr)->invalidate();
    set(false);
  }
}

void SilenceWatch::look() {
  set(isSilentNow_());
}

void SilenceWatch::set(bool silent) {
  if (std::exchange(silent_, silent) != silent) onChange_(silent);
}

platform::Dictionary SilenceInStatus::status() const {
  platform::Dictionary status = control_->status();
  if (watch_.isSilent()) status["silent"] = true;
  return status;
}

}  // namespace linux_host
