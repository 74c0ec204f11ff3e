#include "app/app_delegate.h"
#include "platform/host.h"
#include "routing/audio_waiter.h"
#include "settings/preferences_window_controller.h"

// What scripts and other programs may ask of the running application.

namespace record_audio {

using platform::Dictionary;

bool AppDelegate::stop() {
  return end(Ending::kStop);
}

bool AppDelegate::cancel() {
  return end(Ending::kCancel);
}

bool AppDelegate::end(Ending how) {
  if (isRecordingOrWaiting()) {
    endNow(how);
    return true;
  }
  if (!starting_) return false;
  pendingEnd_ = how;
  if (pendingEndTimer_) return true;
  pendingEndTimer_ = host().runLoop.scheduledTimer(
      kUnconfirmedStartGrace_s, {}, false, [weak = weak_from_this()](const platform::TimerPtr&) {
        if (const auto self = weak.lock()) self->endNow(self->pendingEnd_);
      });
  return true;
}

void AppDelegate::endNow(Ending how) {
  if (how == Ending::kCancel) withdrawStartNotifications();
  if (how == Ending::kStop) {
    stopRecord();
    tryToQuit();
  } else if (isRecording()) {
    cancelRecord();
  } else {
    // The recorder's file, if it names one, is that of an earlier recording.
    internalStop();
    logCEP("Stop", Dictionary{{"Canceled", true}});
    tryToQuit();
  }
}

// Called from the recorder's confirmation. The samples that it announces are delivered when the
// confirmation has returned, so the end has to come after it.
void AppDelegate::endConfirmedStart() {
  host().dispatch.mainQueue()->async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || self->pendingEnd_ == Ending::kNone) return;
    const Ending how = self->pendingEnd_;
    self->forgetPendingEnd();
    if (self->isRecording()) self->endNow(how);
  });
}

void AppDelegate::forgetPendingEnd() {
  pendingEnd_ = Ending::kNone;
  if (!pendingEndTimer_) return;
  pendingEndTimer_->invalidate();
  pendingEndTimer_.reset();
}

std::string AppDelegate::currentSource() const {
  switch (_preferences->audioSourceType()) {
    case 1:
      return "default";
    case 2:
      return "microphone:" + _preferences->audioSourceID();
    case 3:
      return "system";
    default:
      return "none";
  }
}

std::string AppDelegate::currentFormat() const {
  return _preferences->soundFormat() == 0 ? "m4a" : "mp3";
}

Dictionary AppDelegate::status() const {
  const bool recording = isRecording();
  Dictionary status{{"state", "idle"}, {"elapsedSeconds", 0}};
  if (!_running) return status;

  if (recording) {
    status["state"] = "recording";
    status["elapsedSeconds"] = elapsed_ms() / 1000;
  } else if (_audioWaiter) {
    status["state"] = "waiting";
  } else if (starting_) {
    status["state"] = "starting";
  } else if (isPreferencesWindowVisible()) {
    status["state"] = "preferences";
  }
  const bool underWay = recording || (starting_ && !_audioWaiter);
  status["source"] = underWay ? sessionSource_ : currentSource();
  status["format"] = underWay ? sessionFormat_ : currentFormat();
  const bool fileKnown = recording || !(_audioWaiter || starting_);
  if (fileKnown && !m_recorder->outputFilePath().empty()) {
    status["outputFile"] = m_recorder->outputFilePath();
  }
  return status;
}

}  // namespace record_audio
