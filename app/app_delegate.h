// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/recovery_report.h"
#include "app/session_state.h"
#include "capture/audio_recorder.h"
#include "platform/remote_control.h"
#include "platform/user_notifications.h"
#include "suite/environment.h"

namespace record_audio {

class AudioPlayThrough;
class AudioWaiter;
class PreferencesWindowController;
class RecordingRecovery;

// Does everything the application does: launch, the recording session from start to saved file,
// the running indicator, the notifications, and quitting. One object lives for the whole process.
//
// Main thread only, except updateMicStatus(). Once launched, the recorder's success callback keeps
// the delegate alive until applicationWillTerminate(). What belongs to a session or to the
// indicator does nothing before the launch, and nothing of it runs on while one of the session's
// alerts waits.
class AppDelegate : public platform::ApplicationDelegate,
                    public platform::UserNotificationCenterDelegate,
                    public platform::RemoteControl,
                    public suite::ClientProviderProtocol,
                    public std::enable_shared_from_this<AppDelegate> {
 public:
  static std::shared_ptr<AppDelegate> create(suite::Environment environment);
  // Leaves a play-through that still runs to the process, which is about to end.
  ~AppDelegate() override;
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // Launch and life of the application.
  void applicationWillFinishLaunching() override;
  // A request of the suite to open a path; one that ends with the tool identifier asks for the
  // preferences, any other is ignored. Always true.
  bool application(const std::string& openFile) override;
  void applicationDidFinishLaunching() override;
  // The user clicked the Dock icon or started the tool again. Always true.
  bool applicationShouldHandleReopen(bool hasVisibleWindows) override;
  platform::TerminateReply applicationShouldTerminate() override;
  void applicationWillTerminate() override;
  // Any thread: acts on the microphone permission later, on the main queue.
  void updateMicStatus();
  void updateMicStatusImp();
  void hideFromDock();
  void showInDock();
  // The user is done with the preferences window.
  void onQuit();

  // Recording session. One at a time: starting does nothing while one records or is being started.
  void startRecorder();
  // The answer to the wait under way; nothing without one.
  void onWaitFinished(bool success);
  void startRecorderContinue();
  // What the recorder calls. `timerTarget` is this delegate: the blink timer keeps it.
  void recordSuccessStarted(const std::shared_ptr<AppDelegate>& timerTarget);
  void recordError();
  // Saves, notifies and logs; does not try to quit.
  void stopRecord();
  // Deletes the file at the recorder's output path and tries to quit.
  void cancelRecord();
  void internalStop();
  // Ends the play-through and hides the loopback device; does nothing without a play-through.
  void deleteAudioPlayThrough();
  [[nodiscard]] bool canQuit() const;
  void tryToQuit();
  // Sends a usage event with the settings as they are now.
  void logCEP(const std::string& event, const std::optional<platform::Dictionary>& details);

  // Recording indicator.
  void changeDockIcon(bool on);
  void updateFinderIcon(bool on);
  void timerBlinkerMethod(const platform::TimerPtr& timer);

  // User notifications.
  // The play-through could not be set up: what is recorded is not played. Silent.
  void showNotificationNotHeard();
  void showNotification(const platform::UserNotificationPtr& notification);
  void showNotificationRecordStarted();
  void showNotificationRecordCompleated(const std::string& filePath);
  void showNotificationError();
  // One for all that came back; a click shows the file at that path.
  void showNotificationRecordingRecovered(const std::string& filePath);
  void removeAllPreviousNotifications();
  void timerNotificationQuitMethod(const platform::TimerPtr& timer);
  // Always true: shown even while the tool is the active application.
  bool userNotificationCenterShouldPresentNotification(
      platform::UserNotificationCenter& center,
      const platform::UserNotificationPtr& notification) override;
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter& center,
      const platform::UserNotificationPtr& notification) override;

  // Remote control. While a start is accepted and not yet confirmed there is nothing to save or to
  // delete yet: stop() and cancel() then answer true and take effect as soon as the recorder
  // confirms the start, or after kUnconfirmedStartGrace_s if it never does. If the start fails
  // meanwhile, its error ends the session. A click is such a stop; a further one takes it back.
  bool stop() override;
  // Unlike cancelRecord() it never touches the file of an earlier recording.
  bool cancel() override;
  // "source" is "none", "default", "microphone:<unique id>" or "system"; "format" is "m4a" or
  // "mp3"; both are those of the session under way, else those a new one would have. Where another
  // microphone is recorded because the chosen one is missing, "source" is the one recorded, with
  // its name as "sourceName", and "absentSource" the chosen one. "elapsedSeconds" is 0 unless
  // recording. "outputFile" is the temporary file while recording, the last recording's file while
  // idle, and absent otherwise. If that recording could not be saved, "unsavedFile" is there
  // instead, where it lies, and "problem" says why.
  [[nodiscard]] platform::Dictionary status() const override;
  void setOnStateChange(std::function<void()> onChange) override {
    onStateChange_ = std::move(onChange);
  }
  // Longer than a host takes to confirm a start or to give it up, second try included.
  static constexpr double kUnconfirmedStartGrace_s = 12.0;

  [[nodiscard]] bool runWithPreferences() const { return _runWithPreferences; }
  [[nodiscard]] bool running() const { return _running; }
  // Null before launch.
  [[nodiscard]] std::shared_ptr<suite::ToolDataClientProvider> provider() const override {
    return _provider;
  }
  // A recording of this process could not be saved when it was stopped.
  [[nodiscard]] bool hasUnsavedRecording() const { return hasUnsavedRecording_; }
  // Null before launch.
  [[nodiscard]] std::shared_ptr<PreferencesWindowController> preferences() const {
    return _preferences;
  }
  // The delegate's own; null unless system audio is recorded.
  [[nodiscard]] AudioPlayThrough* audioPlayThrough() const { return _audioPlayThrough.get(); }
  // Null unless waiting for the loopback device.
  [[nodiscard]] std::shared_ptr<AudioWaiter> audioWaiter() const { return _audioWaiter; }

 private:
  enum class Ending { kNone, kStop, kCancel };

  explicit AppDelegate(suite::Environment environment);

  [[nodiscard]] platform::Host& host() const { return environment_.host; }
  [[nodiscard]] std::string localized(const std::string& key) const;

  void createPreferences();
  void installRecorderCallbacks();
  void launchPreferencesMode();
  void launchRecordingMode();
  // The window, before all others.
  void showPreferences();
  [[nodiscard]] bool isPreferencesWindowVisible() const;

  // The one place where the session changes its state; session_state.h says what may follow what.
  void enter(SessionState next);
  // What becomes of the session is known: it records, or there will be none. Has time for what a
  // start must not wait for.
  void sessionIsDecided();
  // Brings back, in the background, what processes that died left behind. Once a process.
  void recoverInterruptedRecordings();
  void tellOfRecovery();
  [[nodiscard]] bool mayStart() const;
  [[nodiscard]] bool isUnderWay() const;

  // Takes them from the screen; their timers go on.
  void withdrawStartNotifications();

  [[nodiscard]] bool isRecording() const;
  [[nodiscard]] bool isRecordingOrWaiting() const;
  // Since the start was asked for.
  [[nodiscard]] std::int64_t elapsed_ms() const;
  [[nodiscard]] std::int64_t elapsed_s() const;
  void waitEnded(bool success);
  void startPlayThrough(platform::AudioDeviceID previousOutput);
  void noteSource(const platform::CaptureDevice& device);
  // Whether the user wants to see the preferences, to which the alert points.
  bool showNoSoundRecordedAlert();
  void logStopWithError();

  void clickedWhileStarting();
  [[nodiscard]] bool isStopDue() const;
  bool end(Ending how);
  void endNow(Ending how);
  void endUnconfirmed(Ending how);
  void giveUpStart(Ending how);
  void endConfirmedStart();
  void forgetPendingEnd();
  [[nodiscard]] std::string stateName() const;
  [[nodiscard]] std::string currentSource() const;
  [[nodiscard]] std::string currentFormat() const;

  suite::Environment environment_;

  SessionState session_ = SessionState::kLaunching;
  // While kStarting: what is to be done as soon as the start is confirmed, and the timer that
  // bounds the wait for that.
  Ending pendingEnd_ = Ending::kNone;
  platform::TimerPtr pendingEndTimer_;
  // Of the session under way.
  std::string sessionSource_;
  std::string sessionFormat_;
  // Of a session that records another microphone than the chosen one; else empty.
  std::string sourceName_;
  std::string absentSource_;
  SessionFile file_ = SessionFile::kNone;
  std::function<void()> onStateChange_ = [] {};
  // The temporary file of the recording last stopped; it is still there when the save failed.
  std::string unfinishedFile_;
  bool hasUnsavedRecording_ = false;
  std::shared_ptr<RecordingRecovery> recovery_;  // null until it begins
  RecoveryReport recovered_;                     // what the user has not been told of yet

  // The members whose names begin with m_ or _ bear the suite's names, and are released in the
  // reverse of this order; those that end in an underscore are this tool's own.
  std::shared_ptr<AudioRecorder> m_recorder;
  platform::TimerPtr m_blinkerTimer;
  bool m_bBlinker = false;
  std::vector<platform::TimerPtr> m_notificationTimers;
  std::uint64_t m_startTime = 0;  // host-clock ticks
  bool _runWithPreferences = false;
  bool _running = false;
  std::shared_ptr<suite::ToolDataClientProvider> _provider;
  std::shared_ptr<PreferencesWindowController> _preferences;
  std::unique_ptr<AudioPlayThrough> _audioPlayThrough;
  std::shared_ptr<AudioWaiter> _audioWaiter;
};

}  // namespace record_audio
