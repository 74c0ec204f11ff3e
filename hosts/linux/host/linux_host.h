// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/application/icons.h"
#include "hosts/linux/application/linux_application.h"
#include "hosts/linux/application/quit_signals.h"
#include "hosts/linux/application/request_router.h"
#include "hosts/linux/audio/device_clock_table.h"
#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "hosts/linux/audio/pipewire_capture.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio_units/pipewire_audio_units.h"
#include "hosts/linux/authorization/desktop_launch_services.h"
#include "hosts/linux/authorization/login_apple_events.h"
#include "hosts/linux/authorization/polkit_authorization.h"
#include "hosts/linux/base/activation_tokens.h"
#include "hosts/linux/base/bundle.h"
#include "hosts/linux/base/date_formatter.h"
#include "hosts/linux/base/dispatch.h"
#include "hosts/linux/base/notification_center.h"
#include "hosts/linux/base/run_loop.h"
#include "hosts/linux/base/system_info.h"
#include "hosts/linux/bus/instance.h"
#include "hosts/linux/bus/session_bus.h"
#include "hosts/linux/bus/tool_object.h"
#include "hosts/linux/files/file_manager.h"
#include "hosts/linux/files/free_space.h"
#include "hosts/linux/host/desktop_appearance.h"
#include "hosts/linux/host/recording_watch.h"
#include "hosts/linux/indicator/indicator.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "hosts/linux/notifications/notification_center.h"
#include "hosts/linux/notifications/recording_notice.h"
#include "hosts/linux/permission/desktop_permission.h"
#include "hosts/linux/power/login_session.h"
#include "hosts/linux/power/session_client.h"
#include "hosts/linux/power/session_names.h"
#include "hosts/linux/power/xsmp_client.h"
#include "hosts/linux/recovery/lost_recordings.h"
#include "hosts/linux/settings_store/settings_in_range.h"
#include "hosts/linux/settings_store/suite_storage.h"
#include "hosts/linux/settings_store/user_defaults.h"
#include "hosts/linux/shortcuts/global_shortcut.h"
#include "hosts/linux/shortcuts/shortcut_wish.h"
#include "hosts/linux/windows/windows_loader.h"
#include "hosts/linux/workspace/folder_chooser.h"
#include "hosts/linux/workspace/workspace.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"
#include "suite/environment.h"

namespace linux_host {

// Bundles of the system, wherever this system keeps them.
class SystemBundleLoader : public platform::BundleLoader {
 public:
  [[nodiscard]] std::unique_ptr<platform::Bundle> bundleWithPath(
      const std::string& path) const override;

 private:
  LinuxBundleLoader loader_;
};

// What the windows need from the program.
class HostWindowsServices : public WindowsServices {
 public:
  // All outlive this object.
  HostWindowsServices(const LinuxBundle& bundle, suite::Storage& storage, SessionBus& bus,
                      MainLoop& loop, ActivationTokens& activationTokens, GlobalShortcut& shortcut,
                      std::function<void()> goOn)
      : bundle_(bundle),
        storage_(storage),
        bus_(bus),
        loop_(loop),
        activationTokens_(activationTokens),
        shortcut_(shortcut),
        goOn_(std::move(goOn)),
        folderChooser_(bus.connection()),
        appearanceWatch_(bus.connection()) {}

  [[nodiscard]] std::string localizedString(const std::string& key) const override;
  [[nodiscard]] std::string textLanguage() const override { return bundle_.language(); }
  [[nodiscard]] std::optional<std::string> outputLocation() override;
  std::string setOutputLocation(const std::string& path) override;
  void chooseFolder(const std::string& parentWindow, const std::string& title,
                    const std::string& folder, std::function<void(FolderChoice)> done) override;
  void followShortcut(std::function<void(const Shortcut&)> onChange) override {
    shortcut_.follow(std::move(onChange));
  }
  void chooseShortcut(const std::string& parentWindow,
                      std::function<void(const ShortcutChoice&)> done) override {
    shortcut_.choose(parentWindow, std::move(done));
  }
  std::string takeActivationToken() override { return activationTokens_.take(); }
  void runLoopBy(std::function<void()> step, std::function<void()> endDialogs) override {
    loop_.runBy(std::move(step), std::move(endDialogs));
  }
  [[noreturn]] void goOnWithoutScreen() override;
  [[nodiscard]] Appearance appearance() const override;
  void followAppearance(std::function<void()> onChange) override {
    appearanceWatch_.follow(std::move(onChange));
  }

 private:
  const LinuxBundle& bundle_;
  suite::Storage& storage_;
  SessionBus& bus_;
  MainLoop& loop_;
  ActivationTokens& activationTokens_;
  GlobalShortcut& shortcut_;
  const std::function<void()> goOn_;
  FolderChooser folderChooser_;
  AppearanceWatch appearanceWatch_;
};

// The assembled Linux host: every port, the suite on this machine, and the ways in which other
// processes reach the program. One per process; created, used and destroyed on the main thread.
class LinuxHost {
 public:
  enum class Purpose {
    kRecording,
    kFiles,  // works on a machine without sound, and does not mention it
  };

  // Begins to connect to PipeWire before anything else, in the background.
  explicit LinuxHost(std::vector<std::string> arguments, Purpose purpose = Purpose::kRecording);
  ~LinuxHost();
  LinuxHost(const LinuxHost&) = delete;
  LinuxHost& operator=(const LinuxHost&) = delete;

  [[nodiscard]] suite::Environment environment() { return {ports_, suite_}; }
  [[nodiscard]] SessionBus& sessionBus() { return sessionBus_; }
  [[nodiscard]] std::string temporaryDirectory() const { return fileManager_.temporaryDirectory(); }

  // Becomes the running instance, or hands the request (`uris`, or a click without any) over to the
  // instance that runs. Returns null if this is the instance, else the exit status.
  [[nodiscard]] std::optional<int> becomeInstance(const std::vector<std::string>& uris);

  struct Launch {
    std::vector<std::string> pathsToOpen;
    bool startedByBus = false;  // the request that started the program will follow
    // Whether a recording failed or could not be saved; asked at the end.
    std::function<bool()> hasFailedRecording = [] { return false; };
  };
  // Launches the delegate and runs until it has terminated and every file is closed. Returns the
  // exit status: kExitFailed if there is no folder for recordings; kExitNoScreen if something could
  // not be shown for lack of a screen since the last recording began; kExitFailed if a recording
  // failed or could not be saved; else 0. If the screen has gone meanwhile, ends the process with
  // that status and does not return.
  [[nodiscard]] int run(std::shared_ptr<platform::ApplicationDelegate> delegate,
                        std::shared_ptr<platform::RemoteControl> remote, const Launch& launch);

 private:
  void showInDesktop();
  void trayDidChange(bool present);
  [[nodiscard]] std::vector<RecordingWatch::Finding> findings();
  void reportSilence(bool silent);
  void reportEncoderBehind(bool behind);
  void reportLowSpace(bool low);
  void reportUnusableFolder(bool unusable);
  void reportStall(bool stalled);
  // Called when the session's state changes: the tray shows what can be stopped, and which
  // microphone is recorded if it is not the chosen one.
  void showSession(const platform::RemoteControl& remote);
  void refreshRemark();
  // Shows a notification that there is no folder; the main loop runs until the desktop has it.
  void tellThatThereIsNoFolder();
  [[nodiscard]] bool hasNoFolder() const {
    return storage_.lastOutputFolder().empty() && !storage_.outputFolderProblem().empty();
  }
  [[nodiscard]] int exitStatus() const;
  // Everything after the main loop; returns the exit status.
  int finish();
  // Runs the rest of the program from within the toolkit's exit. A recording goes on. If nothing is
  // being recorded, or an alert waits for its answer, the program saves and ends.
  [[noreturn]] void goOnWithoutScreen();
  // Waits until every file is complete; false when no call on a file has returned for so long that
  // none will.
  bool waitForFiles();
  // Called when the machine shuts down or the user logs out: `saved` is called when every file is
  // closed.
  void saveRecording(std::function<void()> saved);
  SessionEnd sessionEnd();

  // Declared in the order of their dependencies.
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string startupId_ = takeStartupId();
  const std::string executable_;
  ActivationTokens activationTokens_;
  DeviceClockTable deviceClocks_;
  PipeWireConnection pipeWire_;
  MainLoop mainLoop_;
  CoreRunLoop coreLoop_;
  LinuxFileManager fileManager_;
  LostRecordings lostRecordings_;
  DispatchThreads dispatch_;
  LinuxNotificationCenter notificationCenter_;
  LinuxWallClock wallClock_;
  LinuxHostClock hostClock_;
  LinuxProcessInfo processInfo_;
  LinuxUserAccount userAccount_;
  LinuxDateFormatter dateFormatter_;
  XdgFolders folders_;
  LinuxUserDefaults userDefaults_;
  SettingsInRange settings_{userDefaults_, {{"SoundFormat", 0, 1, 0}}};
  SuiteStorage storage_;
  suite::EmbeddedSuite embeddedSuite_;
  std::unique_ptr<LinuxBundle> bundle_;
  SystemBundleLoader bundleLoader_;
  Icons icons_;
  SessionBus sessionBus_;
  SystemBus systemBus_;
  M4aWriterFactory m4aWriters_;
  DesktopMicrophonePermission permission_;
  PipeWireAudioHardware audioHardware_;
  PipeWireAudioUnits audioUnits_;
  PipeWireCapture capture_;
  PolkitAuthorization authorization_;
  DesktopLaunchServices launchServices_;
  LoginAppleEvents appleEvents_;
  DesktopNotificationCenter userNotifications_;
  DesktopWorkspace workspace_;
  ShortcutWish shortcutWish_;
  GlobalShortcut shortcut_;
  HostWindowsServices windowsServices_;
  WindowsLoader windows_;
  LinuxApplication application_;
  platform::Host ports_;
  suite::Suite suite_;

  RequestRouter router_;
  ToolObject toolObject_;
  Instance instance_;
  QuitSignals quitSignals_;
  LoginSession loginSession_;
  XsmpClient xsmpClient_;
  SessionClient sessionClient_;
  SessionNames sessionNames_;
  FreeSpace freeSpace_;
  StallDetector stallDetector_;
  std::optional<std::string> stalledFile_;
  std::function<bool()> hasFailedRecording_;
  std::string sourceRemark_;
  std::string silenceRemark_;
  std::string encoderRemark_;
  std::string spaceRemark_;
  std::string folderRemark_;
  std::weak_ptr<platform::RemoteControl> remote_;
  RecordingWatch recordingWatch_;
  std::unique_ptr<Indicator> indicator_;
  std::unique_ptr<RecordingNotice> recordingNotice_;
};

}  // namespace linux_host
