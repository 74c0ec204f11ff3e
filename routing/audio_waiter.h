// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/thread_role.h"
#include "suite/environment.h"

namespace record_audio {

// Shows the loopback device, polls until the capture framework lists it, and then makes it the
// default output. Main thread, asserted in debug builds. While it polls, its timer keeps it alive,
// even if nobody else does.
class AudioWaiter : public std::enable_shared_from_this<AudioWaiter> {
 public:
  using WaitFinished = std::function<void(bool success, const std::any& object)>;

  // The result is already polling. `onWaitFinished` is called once, from the timer: with true when
  // the device is there and is the default output, with false after about two seconds without it.
  static std::shared_ptr<AudioWaiter> initWithObject(suite::Environment environment,
                                                     std::any object, WaitFinished onWaitFinished);
  ~AudioWaiter();
  AudioWaiter(const AudioWaiter&) = delete;
  AudioWaiter& operator=(const AudioWaiter&) = delete;

  void timerFireCheck(const platform::TimerPtr& timer);

  // The suite's accessors. This tool calls only timerCheck() and output().
  // Null once the wait has ended.
  [[nodiscard]] const platform::TimerPtr& timerCheck() const { return _timerCheck; }
  void setTimerCheck(platform::TimerPtr timer) { _timerCheck = std::move(timer); }
  // The device that was the default output before anything was switched.
  [[nodiscard]] platform::AudioDeviceID output() const { return _output; }
  void setOutput(platform::AudioDeviceID output) { _output = output; }
  // Unsuccessful polls so far.
  [[nodiscard]] std::int32_t counter() const { return _counter; }
  void setCounter(std::int32_t counter) { _counter = counter; }
  [[nodiscard]] const WaitFinished& onWaitFinished() const { return _onWaitFinished; }
  void setOnWaitFinished(WaitFinished callback) { _onWaitFinished = std::move(callback); }

 private:
  AudioWaiter(suite::Environment environment, WaitFinished onWaitFinished);
  void endPolling();

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  suite::Environment environment_;
  platform::TimerPtr _timerCheck;
  platform::AudioDeviceID _output = 0;
  std::int32_t _counter = 0;
  WaitFinished _onWaitFinished;
};

}  // namespace record_audio
