// SPDX-License-Identifier: MIT
#include "routing/audio_waiter.h"

#include <utility>

#include "routing/audio_driver.h"
#include "shared/loopback_device.h"

namespace record_audio {

namespace {

constexpr double kPollInterval_s = 0.01;
constexpr std::int32_t kMostUnsuccessfulPolls = 200;

}  // namespace

AudioWaiter::AudioWaiter(suite::Environment environment, WaitFinished onWaitFinished)
    : environment_(environment), _onWaitFinished(std::move(onWaitFinished)) {}

std::shared_ptr<AudioWaiter> AudioWaiter::initWithObject(suite::Environment environment,
                                                         std::any object,
                                                         WaitFinished onWaitFinished) {
  std::shared_ptr<AudioWaiter> waiter(new AudioWaiter(environment, std::move(onWaitFinished)));
  waiter->_output = AudioDriver::getCurrentOutputAudioDevice(environment);
  AudioDriver::showLoopbackDevice(environment, true);
  waiter->_timerCheck = environment.host.runLoop.scheduledTimer(
      kPollInterval_s, std::move(object), true,
      [waiter](const platform::TimerPtr& timer) { waiter->timerFireCheck(timer); });
  return waiter;
}

AudioWaiter::~AudioWaiter() {
  if (_timerCheck == nullptr) return;
  endPolling();
  AudioDriver::showLoopbackDevice(environment_, false);
}

void AudioWaiter::endPolling() {
  const platform::TimerPtr timer = std::exchange(_timerCheck, nullptr);
  if (timer != nullptr) timer->invalidate();
}

void AudioWaiter::timerFireCheck(const platform::TimerPtr& timer) {
  mainThread_.assertHeld();
  // Invalidating the timer may release the last reference, and so may the callback.
  const std::shared_ptr<AudioWaiter> self = shared_from_this();
  const std::any object = timer->userInfo();
  if (environment_.host.capture.deviceWithUniqueID(kLoopbackDeviceUID) != nullptr) {
    endPolling();
    const platform::AudioDeviceID loopback = AudioDriver::getLoopbackDeviceID(environment_);
    if (loopback != platform::kAudioObjectUnknown)
      AudioDriver::setDeviceAsDefault(environment_, loopback);
    if (_onWaitFinished) _onWaitFinished(true, object);
  } else if (_counter != kMostUnsuccessfulPolls) {
    ++_counter;
  } else {
    endPolling();
    AudioDriver::showLoopbackDevice(environment_, false);
    if (_onWaitFinished) _onWaitFinished(false, object);
  }
}

}  // namespace record_audio
