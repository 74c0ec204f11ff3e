// SPDX-License-Identifier: MIT
#include <cassert>
#include <utility>

#include "app/app_delegate.h"
#include "app/placeholder.h"
#include "app/tool_status.h"
#include "platform/host.h"
#include "routing/audio_driver.h"
#include "routing/audio_play_through.h"
#include "routing/audio_waiter.h"
#include "settings/preference_keys.h"
#include "settings/preferences_window_controller.h"
#include "shared/auxiliary.h"

// One recording session at a time: start, the recorder's callbacks, stop, cancel, usage events,
// and quitting when nothing is left to show.

namespace record_audio {
namespace {

using platform::Dictionary;

constexpr double kBlinkInterval_s = 1.0;
constexpr double kMillisecondsPerSecond = 1000.0;

constexpr const char* kNoSoundRecorded = "No sound recorded";
constexpr const char* kNoSoundRecordedFormat =
    "Either the \"Don\u2019t record audio\" option is selected in the \"%@\" preferences or no "
    "microphone is connected to the computer.";
constexpr const char* kOpenPreferences = "Preferences\u2026";
constexpr const char* kMicrophoneMuted = "Microphone muted";
constexpr const char* kMicrophoneMutedAdvice =
    "Computer microphone is muted. Un-mute microphone to record sound.";

std::string displayName(const platform::Bundle& bundle) {
  std::string name;
  const Dictionary info = bundle.localizedInfoDictionary().value_or(Dictionary());
  const auto entry = info.find("CFBundleDisplayName");
  if (entry != info.end()) platform::stringValue(entry->second, &name);
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

void AppDelegate::enter(SessionState next) {
  assert(next == session_ || mayBecome(session_, next));
  session_ = next;
  if (isDecided(next)) sessionIsDecided();
  // A start that is neither accepted nor refused yet is not announced.
  if (next != SessionState::kAsking) onStateChange_();
}

void AppDelegate::sessionIsDecided() {
  recoverInterruptedRecordings();
  tellOfRecovery();
}

bool AppDelegate::mayStart() const {
  return _running && (session_ == SessionState::kLaunching || session_ == SessionState::kIdle ||
                      session_ == SessionState::kWaiting);
}

bool AppDelegate::isUnderWay() const {
  return session_ != SessionState::kLaunching && session_ != SessionState::kIdle;
}

void AppDelegate::startRecorder() {
  mainThread_.assertHeld();
  if (!mayStart()) return;
  showInDock();
  file_ = SessionFile::kNone;
  if (_preferences->audioSourceType() != kSystemAudioSource) {
    startRecorderContinue();
    return;
  }
  _audioWaiter = AudioWaiter::initWithObject(
      environment_, {}, [weak = weak_from_this()](bool success, const std::any&) {
        if (const auto self = weak.lock()) self->waitEnded(success);
      });
  enter(SessionState::kWaiting);
}

void AppDelegate::waitEnded(bool success) {
  // A waiter that answers has no timer any more. One that has belongs to a newer wait.
  if (_audioWaiter && !_audioWaiter->timerCheck()) {
    onWaitFinished(success);
    return;
  }
  // The user ended this wait, but its waiter went on and has now made the loopback device the
  // default output. Nothing will be recorded, so the device is hidden again, unless a newer session
  // uses it.
  const bool inUse = _audioWaiter || _audioPlayThrough;
  if (success && !inUse) AudioDriver::showLoopbackDevice(environment_, false);
}

void AppDelegate::onWaitFinished(bool success) {
  mainThread_.assertHeld();
  if (!_audioWaiter) return;
  if (!success) {
    showNotificationError();
    logStopWithError();
    _audioWaiter.reset();
    enter(SessionState::kIdle);
    tryToQuit();
    return;
  }
  startPlayThrough(_audioWaiter->output());
  _audioWaiter.reset();
  startRecorderContinue();
}

void AppDelegate::startPlayThrough(platform::AudioDeviceID previousOutput) {
  const platform::AudioDeviceID loopback = AudioDriver::getLoopbackDeviceID(environment_);
  platform::AudioDeviceID output = previousOutput;
  // A session that ended in an error leaves the loopback as the default output. It leaves its
  // play-through, too, which knows the real device.
  if (output == loopback && _audioPlayThrough) output = _audioPlayThrough->outputDevice.deviceID;
  _audioPlayThrough = std::make_unique<AudioPlayThrough>(host());
  const bool isConfigured = _audioPlayThrough->initDevices(output);
  // Played into itself, the loopback would feed back.
  if (output == loopback) return;
  const platform::OSStatus status = _audioPlayThrough->start();
  if (isConfigured && status == platform::noErr) return;
  if (status != platform::noErr) {
    environment_.suite.logging.VKLogVariadic(
        "The computer's sound is recorded, but it cannot be played on the device %@ (status %@).",
        {std::to_string(output), std::to_string(status)});
  } else {
    environment_.suite.logging.VKLogVariadic(
        "The computer's sound is recorded, but it may not be heard on the device %@: a property of "
        "that device or of the loopback device cannot be read.",
        {std::to_string(output)});
  }
  showNotificationNotHeard();
}

// The chosen microphone may be missing; the preferences then return another one.
void AppDelegate::noteSource(const platform::CaptureDevice& device) {
  sessionSource_ = currentSource();
  sessionFormat_ = currentFormat();
  absentSource_.clear();
  if (_preferences->audioSourceType() != kMicrophoneSource ||
      device.uniqueID() == _preferences->audioSourceID()) {
    return;
  }
  absentSource_ = std::exchange(sessionSource_, kMicrophonePrefix + device.uniqueID());
  sourceName_ = device.localizedName();
  environment_.suite.logging.VKLogVariadic(
      "The chosen microphone %@ is missing; %@ (%@) is recorded instead.",
      {_preferences->audioSourceID(), sourceName_, device.uniqueID()});
}

void AppDelegate::startRecorderContinue() {
  mainThread_.assertHeld();
  if (!mayStart()) return;
  const platform::CaptureDevicePtr device = _preferences->audioCaptureDevice();
  if (!device) {
    enter(SessionState::kNoDevice);
    const bool wantsPreferences = showNoSoundRecordedAlert();
    enter(SessionState::kIdle);
    if (wantsPreferences) showPreferences();
    tryToQuit();
    return;
  }
  enter(SessionState::kAsking);
  forgetPendingEnd();
  noteSource(*device);
  m_startTime = host().hostClock.absoluteTime();
  logCEP("Start", std::nullopt);
  if (!m_recorder->startRecord(device, _preferences->quality(), _preferences->soundFormat())) {
    deleteAudioPlayThrough();
    showNotificationError();
    logStopWithError();
    enter(SessionState::kIdle);
    tryToQuit();
    return;
  }
  if (session_ == SessionState::kAsking) enter(SessionState::kStarting);
  changeDockIcon(true);
  _provider->setMenuIcon(host().application.imageNamed("MenuIconOn"));
  _provider->setMenuText("00:00");
}

bool AppDelegate::showNoSoundRecordedAlert() {
  platform::Alert alert;
  alert.style = platform::AlertStyle::kCritical;
  alert.messageText = localized(kNoSoundRecorded);
  alert.informativeText =
      withFirstPlaceholder(localized(kNoSoundRecordedFormat), displayName(host().mainBundle));
  alert.extraButton = localized(kOpenPreferences);
  return host().alerts.runModal(alert) == platform::kAlertExtraButtonReturn;
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
  mainThread_.assertHeld();
  if (!_running) return;
  // Set only if this start was given up and another one waits.
  _audioWaiter.reset();
  file_ = SessionFile::kKept;
  hasFailedStart_ = false;
  enter(SessionState::kRecording);
  // An earlier timer is released but not invalidated: the run loop keeps firing it.
  m_blinkerTimer = host().runLoop.scheduledTimer(
      kBlinkInterval_s, {}, true,
      [timerTarget](const platform::TimerPtr& timer) { timerTarget->timerBlinkerMethod(timer); });
  showNotificationRecordStarted();
  updateFinderIcon(true);
  if (pendingEnd_ != Ending::kNone) endConfirmedStart();
}

void AppDelegate::recordError() {
  mainThread_.assertHeld();
  // The end of a start that was given up has already been reported.
  if (!isUnderWay() || _audioWaiter) return;
  hasFailedRecording_ |= session_ == SessionState::kRecording;
  forgetPendingEnd();
  endBlinking();
  updateFinderIcon(false);
  showNotificationError();
  logStopWithError();
  changeDockIcon(false);
  enter(SessionState::kIdle);
  tryToQuit();
}

void AppDelegate::endBlinking() {
  if (const auto timer = std::exchange(m_blinkerTimer, nullptr)) timer->invalidate();
}

void AppDelegate::internalStop() {
  mainThread_.assertHeld();
  if (!_running || isAlerting(session_)) return;
  if (_audioWaiter) {
    _audioWaiter.reset();
    enter(SessionState::kIdle);
    return;
  }
  endBlinking();
  m_recorder->stopRecord();
  changeDockIcon(false);
  updateFinderIcon(false);
  _provider->setMenuIcon(host().application.imageNamed("MenuIcon"));
  _provider->setMenuText("");
  deleteAudioPlayThrough();
  enter(SessionState::kIdle);
}

void AppDelegate::deleteAudioPlayThrough() {
  if (!_audioPlayThrough) return;
  _audioPlayThrough.reset();
  AudioDriver::showLoopbackDevice(environment_, false);
}

void AppDelegate::stopRecord() {
  mainThread_.assertHeld();
  if (!_running || isAlerting(session_)) return;
  unfinishedFile_ = isRecording() ? m_recorder->outputFilePath() : "";
  internalStop();
  const bool isSaved = m_recorder->whyNotSaved().empty();
  hasFailedRecording_ |= !isSaved;
  // If the recording could not be saved, a file at its final path is somebody else's.
  showNotificationRecordCompleated(isSaved ? m_recorder->outputFilePath() : std::string());
  logCEP("Stop", Dictionary{{"Duration", elapsed_ms()}});
}

void AppDelegate::cancelRecord() {
  mainThread_.assertHeld();
  if (!_running || isAlerting(session_)) return;
  internalStop();
  file_ = SessionFile::kDeleted;
  host().fileManager.removeItem(m_recorder->recordedFile());
  logCEP("Stop", Dictionary{{"Canceled", true}});
  tryToQuit();
}

std::int64_t AppDelegate::elapsed_ms() const {
  const auto ticks = static_cast<std::int64_t>(host().hostClock.absoluteTime() - m_startTime);
  return Auxiliary::tickToMsecs(host(), ticks);
}

std::int64_t AppDelegate::elapsed_s() const {
  return static_cast<std::int64_t>(static_cast<double>(elapsed_ms()) / kMillisecondsPerSecond);
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
  mainThread_.assertHeld();
  if (!_running || isAlerting(session_)) return;
  // The last recording's notification must not end the program while the next recording starts. If
  // that start fails, it calls this again.
  const bool startsAnew =
      session_ == SessionState::kStarting && !m_recorder->outputFilePath().empty();
  if (startsAnew) return;
  if (canQuit()) hideFromDock();
  if (m_notificationTimers.empty() && canQuit()) host().application.terminate();
}

platform::TerminateReply AppDelegate::applicationShouldTerminate() {
  mainThread_.assertHeld();
  using platform::TerminateReply;
  // The host dismisses the alert, which ends the start behind it, and then asks again.
  if (isAlerting(session_)) return TerminateReply::kCancel;
  if (isRecordingOrWaiting()) stopRecord();
  // Does not load a window just to hide it.
  if (_preferences && _preferences->isWindowLoaded()) _preferences->window()->orderOut();
  if (canQuit()) hideFromDock();
  if (!m_notificationTimers.empty()) return TerminateReply::kCancel;
  return canQuit() ? TerminateReply::kNow : TerminateReply::kCancel;
}

void AppDelegate::applicationWillTerminate() {
  mainThread_.assertHeld();
  if (_provider) _provider->setToolStatus(kToolInactive);
  // Without a launch there are no settings to log, and no event to be followed by "Quit".
  if (!_running) return;
  logCEP("Quit", std::nullopt);
  // Breaks the reference cycle between the recorder's callback and the delegate.
  m_recorder->setOnRecordSuccessStarted(nullptr);
}

void AppDelegate::logCEP(const std::string& event, const std::optional<Dictionary>& details) {
  if (!_running) return;
  // The quality's key is "Size", because the suite's log expects that.
  const Dictionary settings{{"AudioSourceType", _preferences->audioSourceType()},
                            {"AudioSourceID", _preferences->audioSourceID()},
                            {"Size", _preferences->quality()}};
  environment_.suite.korvelCommon.CEP().log(event, settings, details);
}

void AppDelegate::logStopWithError() {
  logCEP("Stop", Dictionary{{"Error", true}});
}

}  // namespace record_audio
