#pragma once

#include <functional>
#include <memory>

#include "platform/foundation.h"
#include "platform/remote_control.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Looks, while a recording runs, whether its source has sent nothing but digital silence since the
// start: a muted or wrong microphone, which the user should hear of before the end. Main thread.
class SilenceWatch : public suite::ToolDataObserver {
 public:
  static constexpr double kLook_s = 1.0;

  // `isSilent` answers for what is being recorded. `onChange` is called at each change of the
  // finding, which is "not silent" whenever nothing is recorded. The loop outlives the watch.
  SilenceWatch(platform::RunLoop& loop, std::function<bool()> isSilent,
               std::function<void(bool silent)> onChange);
  ~SilenceWatch() override;
  SilenceWatch(const SilenceWatch&) = delete;
  SilenceWatch& operator=(const SilenceWatch&) = delete;

  void toolDataDidChange(const suite::ToolData& data) override;
  [[nodiscard]] bool isSilent() const { return silent_; }

 private:
  void look();
  void set(bool silent);

  platform::RunLoop& loop_;
  const std::function<bool()> isSilentNow_;
  const std::function<void(bool silent)> onChange_;
  platform::TimerPtr timer_;  // null while nothing is recorded
  bool silent_ = false;
};

// Adds "silent": true to the status while the watch says so. Main thread.
class SilenceInStatus : public platform::RemoteControl {
 public:
  // The watch outlives it.
  SilenceInStatus(std::shared_ptr<platform::RemoteControl> control, const SilenceWatch& watch)
      : control_(std::move(control)), watch_(watch) {}

  bool stop() override { return control_->stop(); }
  bool cancel() override { return control_->cancel(); }
  [[nodiscard]] platform::Dictionary status() const override;

 private:
  const std::shared_ptr<platform::RemoteControl> control_;
  const SilenceWatch& watch_;
};

}  // namespace linux_host
