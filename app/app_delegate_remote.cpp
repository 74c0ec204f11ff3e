// SPDX-License-Identifier: MIT
#include <utility>

#include "app/app_delegate.h"
#include "platform/host.h"
#include "settings/preference_keys.h"
#include "settings/preferences_window_controller.h"

// What scripts and other programs may ask of the running application.

namespace record_audio {

using platform::Dictionary;

bool AppDelegate::stop() {
  mainThread_.assertHeld();
  return end(Ending::kStop);
}

bool AppDelegate::cancel() {
  mainThread_.assertHeld();
  return end(Ending::kCancel);
}

// Clicks start and stop by turns. While a start is unconfirmed, a stop is only noted, and the next
// click takes it back.
void AppDelegate::clickedWhileStarting() {
  if (pendingEnd_ == Ending::kNone) {
    end(Ending::kStop);
  } else {
    forgetPendingEnd();
  }
}

// True between a confirmation and the end that was asked for before it.
bool AppDelegate::isStopDue() const {
  return session_ == SessionState::kRecording && pendingEnd_ != Ending::kNone;
}

bool AppDelegate::end(Ending how) {
  if (session_ == SessionState::kRecording || session_ == SessionState::kWaiting) {
    endNow(how);
    return true;
  }
  if (session_ != SessionState::kStarting) return false;
  pendingEnd_ = how;
  if (pendingEndTimer_) return true;
  pendingEndTimer_ = host().runLoop.scheduledTimer(
      kUnconfirmedStartGrace_s, {}, false, [weak = weak_from_this()](const platform::TimerPtr&) {
        const auto self = weak.lock();
        if (!self) return;
        self->mainThread_.assertHeld();
        self->giveUpStart(self->pendingEnd_);
      });
  return true;
}

void AppDelegate::endNow(Ending how) {
  if (how == Ending::kCancel) withdrawStartNotifications();
  if (session_ == SessionState::kStarting) {
    endUnconfirmed(how);
  } else if (how == Ending::kStop) {
    stopRecord();
    tryToQuit();
  } else if (session_ == SessionState::kRecording) {
    cancelRecord();
  } else {
    // If the recorder names a file, it is an earlier recording's.
    internalStop();
    logCEP("Stop", Dictionary{{"Canceled", true}});
    tryToQuit();
  }
}

// If the recorder names a file, it is an earlier recording's, and neither deleted nor reported.
void AppDelegate::endUnconfirmed(Ending how) {
  internalStop();
  unfinishedFile_.clear();
  if (how == Ending::kStop) {
    showNotificationRecordCompleated({});
    logCEP("Stop", Dictionary{{"Duration", elapsed_ms()}});
  } else {
    logCEP("Stop", Dictionary{{"Canceled", true}});
  }
  tryToQuit();
}

// pendingEnd_ stays set, so that a late confirmation is still followed by the end.
void AppDelegate::giveUpStart(Ending how) {
  if (session_ == SessionState::kStarting) endNow(how);
}

// Called from the recorder's confirmation. The first samples are delivered only after it has
// returned, so the end has to come later.
void AppDelegate::endConfirmedStart() {
  host().dispatch.mainQueue()->async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->mainThread_.assertHeld();
    if (self->pendingEnd_ == Ending::kNone) return;
    const Ending how = self->pendingEnd_;
    self->forgetPendingEnd();
    if (self->session_ == SessionState::kRecording) self->endNow(how);
  });
}

void AppDelegate::forgetPendingEnd() {
  pendingEnd_ = Ending::kNone;
  if (const auto timer = std::exchange(pendingEndTimer_, nullptr)) timer->invalidate();
}

std::string AppDelegate::currentSource() const {
  switch (_preferences->audioSourceType()) {
    case kSameAsSystemSource:
      return "default";
    case kMicrophoneSource:
      return kMicrophonePrefix + _preferences->audioSourceID();
    case kSystemAudioSource:
      return "system";
    default:
      return "none";
  }
}

std::string AppDelegate::currentFormat() const {
  return _preferences->soundFormat() == kM4aFormat ? "m4a" : "mp3";
}

std::string AppDelegate::stateName() const {
  switch (session_) {
    case SessionState::kLaunching:
    case SessionState::kIdle:
      return isPreferencesWindowVisible() ? "preferences" : "idle";
    case SessionState::kWaiting:
      return "waiting";
    case SessionState::kNoDevice:
      return "no device";
    case SessionState::kAsking:
      // Other code runs now only while an alert is open, and the recorder shows one only to refuse.
      return "refused";
    case SessionState::kStarting:
      return "starting";
    case SessionState::kRecording:
      return "recording";
  }
  return {};
}

Dictionary AppDelegate::status() const {
  mainThread_.assertHeld();
  if (!_running) return {{"state", "idle"}, {"elapsedSeconds", 0}};

  const bool recording = session_ == SessionState::kRecording;
  const bool underWay = recording || session_ == SessionState::kStarting;
  Dictionary status{{"state", stateName()}, {"elapsedSeconds", recording ? elapsed_s() : 0}};
  status["source"] = underWay ? sessionSource_ : currentSource();
  status["format"] = underWay ? sessionFormat_ : currentFormat();
  if (underWay && !absentSource_.empty()) {
    status["sourceName"] = sourceName_;
    status["absentSource"] = absentSource_;
  }
  if (const std::int64_t behind_s = m_recorder->encoderBehind_s(); recording && behind_s != 0) {
    status["behindSeconds"] = behind_s;
  }
  // Does not look whether the file exists: its folder may hang, and the tool has to answer.
  const std::string& whyNotSaved = m_recorder->whyNotSaved();
  const std::string& file = m_recorder->outputFilePath();
  const bool hasEnded = !isUnderWay() && file_ == SessionFile::kKept;
  if (hasEnded && !whyNotSaved.empty()) {
    status["unsavedFile"] = m_recorder->recordedFile();
    status["problem"] = whyNotSaved;
  } else if ((recording || hasEnded) && !file.empty()) {
    status["outputFile"] = file;
  }
  return status;
}

}  // namespace record_audio
