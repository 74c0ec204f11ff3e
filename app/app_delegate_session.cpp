#include "app/app_delegate.h"
#include "app/placeholder.h"
#include "platform/host.h"
#include "routing/audio_driver.h"
#include "routing/audio_play_through.h"
#include "routing/audio_waiter.h"
#include "settings/auxiliary.h"
#include "settings/preference_keys.h"
#include "settings/preferences_window_controller.h"

// One recording session at a time: start, the recorder's callbacks, stop, cancel, usage events,
// and quitting when nothing is left to show.

namespace record_audio {
namespace {

using platform::Dictionary;

constexpr double kBlinkInterval_s = 1.0;
constexpr int kToolInactive = 0;

constexpr const char* kNoSoundRecorded = "No sound recorded";
constexpr const char* kNoSoundRecordedFormat =
    "Either the \"Don\u2019t record audio\" option is selected in the \"%@\" preferences or no "
    "microphone is connected to the computer.";
constexpr const char* kMicrophoneMuted = "Microphone muted";
constexpr const char* kMicrophoneMutedAdvice =
    "Computer microphone is muted. Un-mute microphone to record sound.";

std::string displayName(const platform::Bundle& bundle) {
  std::string name;
  const auto info = bundle.localizedInfoDictionary();
  if (!info) return name;
  const auto entry = info->find("CFBundleDisplayName");
  if (entry != info->end()) platform::stringValue(entry->second, &name);
  return name;
}

void showMutedAlert(const platform::Host& host) {
  platform::Alert alert;
  alert.style = platform::AlertStyle::kCritical;
  alert.messageText = host.mainBundle.localizedString(kMicrophoneMuted);
  alert.informativeText = host.mainBundle.localizedString(kMicrophoneMutedAdvice);
  host.alerts.runModal(alert);
}

}  // namespace

void AppDelegate::startRecorder() {
  showInDock();
  if (_preferences->audioSourceType() != kSystemAudioSource) {
    startRecorderContinue();
    return;
  }
  const std::uint64_t wait = ++waitCount_;
  _audioWaiter = AudioWaiter::initWithObject(
      environment_, {}, [weak = weak_from_this(), wait](bool success, const std::any&) {
        if (const auto self = weak.lock()) self->waitEnded(wait, success);
      });
}

void AppDelegate::waitEnded(std::uint64_t wait, bool success) {
  if (_audioWaiter && wait == waitCount_) {
    onWaitFinished(success);
    return;
  }
  // The user has ended this wait; a waiter goes on all the same and has just made the loopback
  // device the default output. Nothing may be recorded any more, so the device goes again, unless
  // a newer session uses it.
  const bool inUse = _audioWaiter || _audioPlayThrough != nullptr;
  if (success && !inUse) AudioDriver::showLoopbackDevice(environment_, false);
}

void AppDelegate::onWaitFinished(bool success) {
  if (!success) {
    showNotificationError();
    logStopWithError();
    _audioWaiter.reset();
    tryToQuit();
    recoverInterruptedRecordings();
    return;
  }
  // One may be left of a session that found no capture device.
  delete _audioPlayThrough;
  _audioPlayThrough = new AudioPlayThrough(host());
  const platform::AudioDeviceID output = _audioWaiter ? _audioWaiter->output() : 0;
  _audioPlayThrough->initDevices(output);
  // Played back into itself, the loopback signal would howl.
  if (output != AudioDriver::getLoopbackDeviceID(environment_)) _audioPlayThrough->start();
  _audioWaiter.reset();
  startRecorderContinue();
}

void AppDelegate::startRecorderContinue() {
  const platform::CaptureDevicePtr device = _preferences->audioCaptureDevice();
  if (!device) {
    recoverInterruptedRecordings();
    showNoSoundRecordedAlert();
    tryToQuit();
    return;
  }
  forgetPendingEnd();
  sessionSource_ = currentSource();
  sessionFormat_ = currentFormat();
  m_startTime = host().hostClock.absoluteTime();
  logCEP("Start", std::nullopt);
  if (!m_recorder->startRecord(device, _preferences->quality(), _preferences->soundFormat())) {
    deleteAudioPlayThrough();
    showNotificationError();
    logStopWithError();
    tryToQuit();
    recoverInterruptedRecordings();
    return;
  }
  starting_ = !m_recorder->isRecording();
  changeDockIcon(true);
  _provider->setMenuIcon(host().application.imageNamed("MenuIconOn"));
  _provider->setMenuText("00:00");
}

void AppDelegate::showNoSoundRecordedAlert() {
  platform::Alert alert;
  alert.style = platform::AlertStyle::kCritical;
  alert.messageText = localized(kNoSoundRecorded);
  alert.informativeText =
      withFirstPlaceholder(localized(kNoSoundRecordedFormat), displayName(host().mainBundle));
  host().alerts.runModal(alert);
}

void AppDelegate::installRecorderCallbacks() {
  const std::weak_ptr<AppDelegate> weak = weak_from_this();
  m_recorder->setOnRecordSuccessStarted([weak, timerTarget = shared_from_this()] {
    if (const auto self = weak.lock()) self->recordSuccessStarted(timerTarget);
  });
  m_recorder->setOnRecordError([weak] {
    if (const auto self = weak.lock()) self->recordError();
  });
  m_recorder->setOnMuted([environment = environment_] { showMutedAlert(environment.host); });
}

void AppDelegate::recordSuccessStarted(const std::shared_ptr<AppDelegate>& timerTarget) {
  starting_ = false;
  // A timer that is still there is only let go of: the run loop keeps firing it.
  m_blinkerTimer = host().runLoop.scheduledTimer(
      kBlinkInterval_s, {}, true,
      [timerTarget](const platform::TimerPtr& timer) { timerTarget->timerBlinkerMethod(timer); });
  showNotificationRecordStarted();
  updateFinderIcon(true);
  recoverInterruptedRecordings();
  if (pendingEnd_ != Ending::kNone) endConfirmedStart();
}

void AppDelegate::recordError() {
  starting_ = false;
  forgetPendingEnd();
  if (m_blinkerTimer) {
    m_blinkerTimer->invalidate();
    m_blinkerTimer.reset();
  }
  updateFinderIcon(false);
  showNotificationError();
  logStopWithError();
  changeDockIcon(false);
  tryToQuit();
  recoverInterruptedRecordings();
}

void AppDelegate::internalStop() {
  if (_audioWaiter) {
    _audioWaiter.reset();
    return;
  }
  starting_ = false;
  if (m_blinkerTimer) {
    m_blinkerTimer->invalidate();
    m_blinkerTimer.reset();
  }
  m_recorder->stopRecord();
  changeDockIcon(false);
  updateFinderIcon(false);
  _provider->setMenuIcon(host().application.imageNamed("MenuIcon"));
  _provider->setMenuText("");
  deleteAudioPlayThrough();
}

void AppDelegate::deleteAudioPlayThrough() {
  if (_audioPlayThrough == nullptr) return;
  delete _audioPlayThrough;
  _audioPlayThrough = nullptr;
  AudioDriver::showLoopbackDevice(environment_, false);
}

void AppDelegate::stopRecord() {
  unfinishedFile_ = isRecording() ? m_recorder->outputFilePath() : "";
  internalStop();
  showNotificationRecordCompleated(m_recorder->outputFilePath());
  logCEP("Stop", Dictionary{{"Duration", elapsed_ms()}});
}

void AppDelegate::cancelRecord() {
  internalStop();
  host().fileManager.removeItem(m_recorder->outputFilePath());
  logCEP("Stop", Dictionary{{"Canceled", true}});
  tryToQuit();
}

std::int64_t AppDelegate::elapsed_ms() const {
  const auto ticks = static_cast<std::int64_t>(host().hostClock.absoluteTime() - m_startTime);
  return Auxiliary::tickToMsecs(host(), ticks);
}

bool AppDelegate::isRecording() const {
  return m_recorder && m_recorder->isRecording();
}

bool AppDelegate::isRecordingOrWaiting() const {
  return isRecording() || _audioWaiter;
}

bool AppDelegate::canQuit() const {
  return !isRecordingOrWaiting() && !isPreferencesWindowVisible();
}

void AppDelegate::tryToQuit() {
  if (canQuit()) hideFromDock();
  if (m_notificationTimers.empty() && canQuit()) host().application.terminate();
}

platform::TerminateReply AppDelegate::applicationShouldTerminate() {
  using platform::TerminateReply;
  if (isRecordingOrWaiting()) stopRecord();
  // A window that was never loaded is not loaded to be hidden.
  if (_preferences && _preferences->isWindowLoaded()) _preferences->window()->orderOut();
  if (canQuit()) hideFromDock();
  if (!m_notificationTimers.empty()) return TerminateReply::kCancel;
  return canQuit() ? TerminateReply::kNow : TerminateReply::kCancel;
}

void AppDelegate::applicationWillTerminate() {
  if (_provider) _provider->setToolStatus(kToolInactive);
  // Without a launch there is no event to end it, nor settings to put into one.
  if (!_running) return;
  logCEP("Quit", std::nullopt);
  // Breaks the circle of the recorder's callback and the delegate.
  m_recorder->setOnRecordSuccessStarted(nullptr);
}

void AppDelegate::logCEP(const std::string& event, const std::optional<Dictionary>& details) {
  // The quality stands under "Size": the suite's log knows it by that name.
  const Dictionary settings{{"AudioSourceType", _preferences->audioSourceType()},
                            {"AudioSourceID", _preferences->audioSourceID()},
                            {"Size", _preferences->quality()}};
  environment_.suite.korvelCommon.CEP().log(event, settings, details);
}

void AppDelegate::logStopWithError() {
  logCEP("Stop", Dictionary{{"Error", true}});
}

}  // namespace record_audio
