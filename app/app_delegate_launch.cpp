// SPDX-License-Identifier: MIT
#include <utility>

#include "app/app_delegate.h"
#include "app/recording_recovery.h"
#include "app/tool_status.h"
#include "platform/host.h"
#include "routing/audio_driver.h"
#include "routing/audio_play_through.h"
#include "routing/audio_waiter.h"
#include "settings/preference_keys.h"
#include "settings/preferences_window_controller.h"
#include "shared/auxiliary.h"

// The launch and its two modes, the Dock icon, and requests to the running application.

namespace record_audio {
namespace {

constexpr const char* kPreferencesNib = "AudioPreferencesWindow";

}  // namespace

std::shared_ptr<AppDelegate> AppDelegate::create(suite::Environment environment) {
  return std::shared_ptr<AppDelegate>(new AppDelegate(environment));
}

AppDelegate::AppDelegate(suite::Environment environment) : environment_(environment) {}

AppDelegate::~AppDelegate() {
  // The one deliberate leak. The process ends now, and the sound with it. Taking the graph apart
  // node by node would only keep the user waiting.
  static_cast<void>(_audioPlayThrough.release());
}

std::string AppDelegate::localized(const std::string& key) const {
  return host().mainBundle.localizedString(key);
}

void AppDelegate::applicationWillFinishLaunching() {
  hideFromDock();
}

void AppDelegate::applicationDidFinishLaunching() {
  mainThread_.assertHeld();
  host().application.disableRelaunchOnLogin();

  _provider = environment_.suite.korvelCommon.createToolDataClientProvider();
  _provider->setToolStatus(kToolActive);

  const auto location = environment_.suite.locationManager.locationForCurrentTool();
  if (!location) {
    host().application.terminate();
    return;
  }
  _running = true;

  createPreferences();
  showInDock();
  m_recorder = AudioRecorder::initWithDesktopPath(environment_, *location);
  installRecorderCallbacks();

  const bool driverMissing =
      _preferences->audioSourceType() == kSystemAudioSource && !AudioDriver::isLoaded(environment_);
  if (_runWithPreferences || driverMissing) {
    launchPreferencesMode();
  } else {
    launchRecordingMode();
  }
}

void AppDelegate::createPreferences() {
  const auto self = shared_from_this();
  _preferences = PreferencesWindowController::initWithWindowNibName(
      environment_, kPreferencesNib, self, [weak = std::weak_ptr<AppDelegate>(self)] {
        if (const auto delegate = weak.lock()) delegate->onQuit();
      });
  _preferences->setRecordingProbe([weak = std::weak_ptr<AppDelegate>(self)] {
    const auto delegate = weak.lock();
    if (!delegate) return false;
    delegate->mainThread_.assertHeld();
    return delegate->isUnderWay();
  });
}

void AppDelegate::launchPreferencesMode() {
  logCEP("Launch", platform::Dictionary{{"Preferences", true}});
  showPreferences();
  enter(SessionState::kIdle);
  // Without a screen there is no window, and nobody could ever click Done.
  host().runLoop.performAfterDelay(0, [weak = weak_from_this()] {
    if (const auto delegate = weak.lock()) delegate->tryToQuit();
  });
}

void AppDelegate::showPreferences() {
  showInDock();
  _preferences->showWindow();
  host().application.activateIgnoringOtherApps(true);
}

void AppDelegate::launchRecordingMode() {
  logCEP("Launch", std::nullopt);
  m_bBlinker = false;
  if (!Auxiliary::isStatusOfMediaTypeDetermind(host(), platform::MediaType::kAudio)) {
    Auxiliary::requestRightsForMediaType(host(), platform::MediaType::kAudio,
                                         [weak = weak_from_this()](bool) {
                                           if (const auto self = weak.lock()) {
                                             self->updateMicStatus();
                                           }
                                         });
    return;
  }
  updateMicStatusImp();
}

void AppDelegate::updateMicStatus() {
  host().dispatch.mainQueue()->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updateMicStatusImp();
  });
}

void AppDelegate::updateMicStatusImp() {
  mainThread_.assertHeld();
  if (!_running) return;
  if (Auxiliary::getStatusOfMediaType(host(), platform::MediaType::kAudio)) {
    startRecorder();
    return;
  }
  // The user may have clicked before answering, and so have started a session already.
  if (session_ == SessionState::kLaunching) enter(SessionState::kIdle);
  showNotificationError();
  tryToQuit();
}

void AppDelegate::recoverInterruptedRecordings() {
  if (recovery_) return;
  recovery_ = RecordingRecovery::create(environment_, m_recorder->desktopPath());
  // Not within the current event, which a recorder that confirms its start waits for.
  host().dispatch.mainQueue()->async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->recovery_->start([weak](const RecoveryReport& report) {
      const auto delegate = weak.lock();
      if (!delegate) return;
      delegate->mainThread_.assertHeld();
      delegate->recovered_ = report;
      delegate->tellOfRecovery();
    });
  });
}

void AppDelegate::tellOfRecovery() {
  if (isAlerting(session_)) return;
  const RecoveryReport report = std::exchange(recovered_, {});
  for (const std::string& problem : report.problems) {
    environment_.suite.logging.VKLogVariadic("%@", {problem});
  }
  for (const std::string& path : report.recovered) {
    environment_.suite.logging.VKLogVariadic("An interrupted recording was recovered: %@", {path});
  }
  if (!report.recovered.empty()) showNotificationRecordingRecovered(report.recovered.back());
}

bool AppDelegate::application(const std::string& openFile) {
  mainThread_.assertHeld();
  if (!openFile.ends_with(suite::kToolIdentifier)) return true;
  if (!_running) {
    _runWithPreferences = true;
    return true;
  }
  if (isRecordingOrWaiting()) {
    stopRecord();
  } else {
    showInDock();
  }
  if (const auto window = _preferences->window()) window->orderFront();
  return true;
}

bool AppDelegate::applicationShouldHandleReopen(bool) {
  mainThread_.assertHeld();
  if (isPreferencesWindowVisible()) {
    _preferences->window()->orderFrontRegardless();
  } else if (session_ == SessionState::kStarting || isStopDue()) {
    clickedWhileStarting();
  } else if (!isRecordingOrWaiting()) {
    startRecorder();
  } else {
    stopRecord();
    tryToQuit();
  }
  return true;
}

void AppDelegate::hideFromDock() {
  host().application.setActivationPolicy(platform::ActivationPolicy::kProhibited);
}

void AppDelegate::showInDock() {
  host().application.setActivationPolicy(platform::ActivationPolicy::kRegular);
}

void AppDelegate::onQuit() {
  tryToQuit();
}

bool AppDelegate::isPreferencesWindowVisible() const {
  return _preferences && _preferences->isWindowVisible();
}

}  // namespace record_audio
