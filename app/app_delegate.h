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
#include "platform/thread_role.h"
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
// Main thread only, except updateMicStatus(); debug builds assert it. After the launch the
// recorder's success callback keeps the delegate alive until applicationWillTerminate(). The
// session's and the indicator's methods do nothing before the launch. While one of the session's
// alerts is open, the session cannot be started, stopped or canceled, and the program does not
// quit.
class AppDelegate : public platform::ApplicationDelegate,
                    public platform::UserNotificationCenterDelegate,
                    public platform::RemoteControl,
                    public suite::ClientProviderProtocol,
                    public std::enable_shared_from_this<AppDelegate> {
 public:
  static std::shared_ptr<AppDelegate> create(suite::Environment environment);
  // Does not end a play-through that still runs: the process is about to end.
  ~AppDelegate() override;
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // Launch and life of the application.
  void applicationWillFinishLaunching() override;
  // The suite asks to open a path. One that ends with the tool identifier asks for the preferences;
  // any other is ignored. Always true.
  bool application(const std::string& openFile) override;
  void applicationDidFinishLaunching() override;
  // The user clicked the Dock icon or started the tool again. Always true.
  bool applicationShouldHandleReopen(bool hasVisibleWindows) override;
  platform::TerminateReply applicationShouldTerminate() override;
  void applicationWillTerminate() override;
  // Any thread. Has updateMicStatusImp() run on the main queue.
  void updateMicStatus();
  // Acts on the microphone permission.
  void updateMicStatusImp();
  void hideFromDock();
  void showInDock();
  // The user is done with the preferences window.
  void onQuit();

  // Recording session. One at a time: starting does nothing while one records or is being started.
  void startRecorder();
  // The waiter's answer. Does nothing without a waiter.
  void onWaitFinished(bool success);
  void startRecorderContinue();
  // The recorder's callbacks. `timerTarget` is this delegate; the blink timer keeps it alive.
  void recordSuccessStarted(const std::shared_ptr<AppDelegate>& timerTarget);
  void recordError();
  // Saves, notifies and logs; does not try to quit.
  void stopRecord();
  // Deletes the recording's file and tries to quit.
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
  // The play-through could not be set up, so what is recorded is not heard. Makes no sound.
  void showNotificationNotHeard();
  void showNotification(const platform::UserNotificationPtr& notification);
  void showNotificationRecordStarted();
  void showNotificationRecordCompleated(const std::string& filePath);
  void showNotificationError();
  // One for all recovered recordings. A click shows the file at `filePath`.
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

  // Remote control. A start that is accepted but not yet confirmed has nothing to save or to
  // delete. stop() and cancel() then return true and take effect when the recorder confirms the
  // start, or after kUnconfirmedStartGrace_s if it never does. If the start fails first, its error
  // ends the session. A click counts as stop(); the next click takes it back.
  bool stop() override;
  // Unlike cancelRecord() it never touches the file of an earlier recording.
  bool cancel() override;
  // "source" is "none", "default", "microphone:<unique id>" or "system"; "format" is "m4a" or
  // "mp3". Both are the current session's, or those that a new one would have. If the chosen
  // microphone is missing and another one is recorded, "source" is the recorded one, "sourceName"
  // its name, and "absentSource" the chosen one. "elapsedSeconds" is 0 unless recording.
  // "outputFile" is the temporary file while recording and the last recording's file while idle;
  // otherwise it is absent. If that recording could not be saved, "unsavedFile" takes its place and
  // says where the recording is, and "problem" says why.
  [[nodiscard]] platform::Dictionary status() const override;
  void setOnStateChange(std::function<void()> onChange) override {
    onStateChange_ = std::move(onChange);
  }
  // Longer than a host needs to confirm a start or to give it up, its second try included.
  static constexpr double kUnconfirmedStartGrace_s = 12.0;

  [[nodiscard]] bool runWithPreferences() const { return _runWithPreferences; }
  [[nodiscard]] bool running() const { return _running; }
  // Null before launch.
  [[nodiscard]] std::shared_ptr<suite::ToolDataClientProvider> provider() const override {
    return _provider;
  }
  // Whether a recording of this process ended in an error or could not be saved, or the last start
  // has failed.
  [[nodiscard]] bool hasFailedRecording() const { return hasFailedRecording_ || hasFailedStart_; }
  // Null before launch.
  [[nodiscard]] std::shared_ptr<PreferencesWindowController> preferences() const {
    return _preferences;
  }
  // Owned by the delegate. Null unless system audio is recorded.
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
  void launchPreferencesMode() RA_REQUIRES(mainThread_);
  void launchRecordingMode();
  // Brings the window to the front.
  void showPreferences();
  [[nodiscard]] bool isPreferencesWindowVisible() const;

  // The only function that changes the session's state; session_state.h has the table.
  void enter(SessionState next) RA_REQUIRES(mainThread_);
  // The session records, or there will be none. Does what a start must not wait for.
  void sessionIsDecided() RA_REQUIRES(mainThread_);
  // Recovers the recordings of processes that died, in the background. Once per process.
  void recoverInterruptedRecordings() RA_REQUIRES(mainThread_);
  void tellOfRecovery() RA_REQUIRES(mainThread_);
  [[nodiscard]] bool mayStart() const RA_REQUIRES(mainThread_);
  [[nodiscard]] bool isUnderWay() const RA_REQUIRES(mainThread_);

  // Removes them from the screen. Their timers keep running.
  void withdrawStartNotifications() RA_REQUIRES(mainThread_);

  [[nodiscard]] bool isRecording() const;
  [[nodiscard]] bool isRecordingOrWaiting() const;
  // Since the recorder was asked to start.
  [[nodiscard]] std::int64_t elapsed_ms() const;
  [[nodiscard]] std::int64_t elapsed_s() const;
  void waitEnded(bool success);
  void startPlayThrough(platform::AudioDeviceID previousOutput);
  void noteSource(const platform::CaptureDevice& device);
  void endBlinking();
  // True when the user wants to see the preferences, which the alert mentions.
  bool showNoSoundRecordedAlert();
  void logStopWithError();

  void clickedWhileStarting() RA_REQUIRES(mainThread_);
  [[nodiscard]] bool isStopDue() const RA_REQUIRES(mainThread_);
  bool end(Ending how) RA_REQUIRES(mainThread_);
  void endNow(Ending how) RA_REQUIRES(mainThread_);
  void endUnconfirmed(Ending how) RA_REQUIRES(mainThread_);
  void giveUpStart(Ending how) RA_REQUIRES(mainThread_);
  void endConfirmedStart() RA_REQUIRES(mainThread_);
  void forgetPendingEnd() RA_REQUIRES(mainThread_);
  [[nodiscard]] std::string stateName() const RA_REQUIRES(mainThread_);
  [[nodiscard]] std::string currentSource() const;
  [[nodiscard]] std::string currentFormat() const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  suite::Environment environment_;

  SessionState session_ RA_GUARDED_BY(mainThread_) = SessionState::kLaunching;
  // How the session is to end once its start is confirmed, and the timer that limits the wait for
  // the confirmation.
  Ending pendingEnd_ RA_GUARDED_BY(mainThread_) = Ending::kNone;
  platform::TimerPtr pendingEndTimer_ RA_GUARDED_BY(mainThread_);
  // Of the current session.
  std::string sessionSource_;
  std::string sessionFormat_;
  // Empty unless the session records another microphone than the chosen one. Then the other's name
  // is beside it.
  std::string absentSource_;
  std::string sourceName_;
  SessionFile file_ RA_GUARDED_BY(mainThread_) = SessionFile::kNone;
  std::function<void()> onStateChange_ = [] {};
  // The temporary file of the last stopped recording. If it could not be saved, it is still there.
  std::string unfinishedFile_;
  bool hasFailedRecording_ = false;
  bool hasFailedStart_ = false;                  // since the last recording began
  std::shared_ptr<RecordingRecovery> recovery_;  // null until it begins
  RecoveryReport recovered_;                     // not yet told to the user

  // Members that begin with m_ or _ have the suite's names and are released in reverse order. Those
  // that end in an underscore are this tool's own.
  std::shared_ptr<AudioRecorder> m_recorder;
  platform::TimerPtr m_blinkerTimer;
  bool m_bBlinker = false;
  std::vector<platform::TimerPtr> m_notificationTimers RA_GUARDED_BY(mainThread_);
  std::uint64_t m_startTime = 0;  // host-clock ticks
  bool _runWithPreferences = false;
  bool _running = false;
  std::shared_ptr<suite::ToolDataClientProvider> _provider;
  std::shared_ptr<PreferencesWindowController> _preferences;
  std::unique_ptr<AudioPlayThrough> _audioPlayThrough;
  std::shared_ptr<AudioWaiter> _audioWaiter;
};

}  // namespace record_audio
