// SPDX-License-Identifier: MIT
#include "hosts/linux/host/linux_host.h"

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "hosts/linux/authorization/system_paths.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/bus/client_commands.h"

namespace linux_host {
namespace {

// How long the last messages may take to be sent.
constexpr int kLastWords_ms = 1000;
// How long the process waits at the end for a disk that does not answer.
constexpr std::chrono::milliseconds kFilesPatience{10'000};
constexpr std::chrono::milliseconds kFilesStep{100};

PipeWireConnection::Callbacks pipeWireCallbacks(LinuxHost::Purpose purpose) {
  PipeWireConnection::Callbacks callbacks;
  if (purpose == LinuxHost::Purpose::kFiles) return callbacks;
  callbacks.onLost = [](const std::string& message) { logMessage(LogLevel::kError, message); };
  callbacks.onRegained = [] { logMessage(LogLevel::kInfo, "PipeWire is back."); };
  return callbacks;
}

}  // namespace

std::unique_ptr<platform::Bundle> SystemBundleLoader::bundleWithPath(
    const std::string& path) const {
  return loader_.bundleWithPath(mappedSystemPath(path));
}

std::string HostWindowsServices::localizedString(const std::string& key) const {
  return bundle_.localizedString(key);
}

std::optional<std::string> HostWindowsServices::outputLocation() {
  return storage_.outputFolder(suite::kToolIdentifier);
}

std::string HostWindowsServices::setOutputLocation(const std::string& path) {
  return storage_.setOutputFolder(suite::kToolIdentifier, path);
}

void HostWindowsServices::chooseFolder(const std::string& parentWindow, const std::string& title,
                                       const std::string& folder,
                                       std::function<void(FolderChoice)> done) {
  using Outcome = FolderChooser::Outcome;
  folderChooser_.choose(parentWindow, title, folder,
                        [done = std::move(done)](Outcome outcome, const std::string& path) {
                          FolderChoice choice;
                          choice.offered = outcome != Outcome::kUnavailable;
                          if (outcome == Outcome::kChosen) choice.path = path;
                          done(std::move(choice));
                        });
}

void HostWindowsServices::goOnWithoutScreen() {
  goOn_();
  std::abort();  // goOn_() does not return
}

Appearance HostWindowsServices::appearance() const {
  return desktopAppearance(bus_.connection());
}

LinuxHost::LinuxHost(std::vector<std::string> arguments, Purpose purpose)
    : executable_(executablePath()),
      pipeWire_(pipeWireCallbacks(purpose)),
      lostRecordings_([this] { return fileManager_.temporaryDirectory(); }),
      processInfo_(std::move(arguments)),
      folders_(XdgFolders::fromEnvironment()),
      userDefaults_(folders_.config + "/" + kApplicationId + "/defaults.json", &mainLoop_),
      storage_(folders_),
      embeddedSuite_(storage_, wallClock_),
      bundle_(LinuxBundle::mainBundle(BundlePaths::ofExecutable(executable_))),
      icons_(Icons::ofExecutable(executable_, bundle_->bundlePath())),
      m4aWriters_([](const char* line) { logMessage(LogLevel::kWarning, line); }),
      permission_([this] { return sessionBus_.connection(); }),
      audioHardware_(pipeWire_, deviceClocks_),
      audioUnits_(pipeWire_, audioHardware_, deviceClocks_),
      capture_(
          {pipeWire_, notificationCenter_,
           [this](std::function<void()> work) { dispatch_.mainQueue()->async(std::move(work)); },
           dispatch_.pendingWork(), fileManager_.openFiles(), m4aWriters_, permission_}),
      authorization_(systemBus_),
      appleEvents_(systemBus_),
      userNotifications_(sessionBus_.connection(), *bundle_,
                         [this](const std::string& token) { activationTokens_.give(token); }),
      workspace_(
          sessionBus_.connection(),
          [this](const platform::ImagePtr& image) { return icons_.file(image); },
          [this] { return activationTokens_.take(); }),
      shortcutWish_(folders_.config + "/" + kApplicationId + "/desktop.json"),
      shortcut_(sessionBus_.connection(), bundle_->localizedString("Start or stop recording"),
                shortcutWish_,
                [this](const std::string& token) {
                  if (!token.empty()) router_.useActivationToken(token);
                  router_.activate();
                }),
      windowsServices_(*bundle_, storage_, sessionBus_, mainLoop_, activationTokens_, shortcut_,
                       [this] { goOnWithoutScreen(); }),
      windows_(windowsServices_, M4aWriterFactory::defaultFolders()),
      application_(mainLoop_),
      ports_{
          .application = application_,
          .alerts = windows_,
          .workspace = workspace_,
          .interfaceLoader = windows_,
          .cursor = windows_,
          .systemColors = windows_,
          .userNotificationCenter = userNotifications_,
          .wallClock = wallClock_,
          .userDefaults = settings_,
          .fileManager = fileManager_,
          .mainBundle = *bundle_,
          .bundleLoader = bundleLoader_,
          .processInfo = processInfo_,
          .runLoop = coreLoop_,
          .notificationCenter = notificationCenter_,
          .dateFormatter = dateFormatter_,
          .userAccount = userAccount_,
          .hostClock = hostClock_,
          .dispatch = dispatch_,
          .capture = capture_,
          .audioHardware = audioHardware_,
          .audioUnits = audioUnits_,
          .authorization = authorization_,
          .launchServices = launchServices_,
          .appleEvents = appleEvents_,
          .interruptedRecordings = lostRecordings_,
      },
      suite_(embeddedSuite_.interfaces()),
      router_(application_, mainLoop_, dispatch_),
      toolObject_(router_),
      instance_(sessionBus_, [this] { return fileManager_.temporaryDirectory(); }),
      quitSignals_(application_),
      loginSession_(
          bundle_->localizedString("Audio recording"),
          [this] { saveRecording([this] { loginSession_.releaseShutdown(); }); },
          sessionEnd().quit),
      xsmpClient_(sessionEnd(), dispatch_.mainQueue(), M4aWriterFactory::defaultFolders()),
      sessionClient_(sessionBus_.connection(), startupId_, sessionEnd(),
                     [this] { xsmpClient_.connect(); }),
      sessionNames_(sessionBus_.connection(), sessionEnd().quit),
      stallDetector_(fileManager_.openFiles().calls()),
      recordingWatch_(mainLoop_, findings(), [this](bool begins) {
        if (begins) {
          windows_.forgetUnseen();
          freeSpace_.begin({fileManager_.temporaryDirectory(), storage_.lastOutputFolder()});
        } else {
          freeSpace_.end();
        }
      }) {
  // A client that disconnects during an answer must not end the program.
  std::signal(SIGPIPE, SIG_IGN);
  router_.setWindows([this] { return windows_.hasVisibleWindows(); },
                     [this] { return windows_.isAlertShowing(); },
                     [this] { windows_.raiseWindows(); });
  router_.setOnNothingRecorded([this] {
    const auto notification = std::make_shared<platform::UserNotification>();
    notification->informativeText = bundle_->localizedString("Nothing is being recorded.");
    userNotifications_.deliverNotification(notification);
  });
  router_.setOnActivationToken([this](const std::string& token) { activationTokens_.give(token); });
  application_.setOnActivate([this] { windows_.raiseWindows(); });
  application_.setAlerts({[this] { return windows_.isAlertShowing(); },
                          [this] { windows_.dismissAlerts(); },
                          [this](auto work) { coreLoop_.performAfterDelay(0, std::move(work)); }});
  windows_.setOnAlert([this](bool waits) {
    if (waits) {
      coreLoop_.hold();
    } else {
      coreLoop_.release();
    }
  });
  audioHardware_.setRunningRate(
      [this](const std::string& uid) { return capture_.runningRate_Hz(uid); });
  embeddedSuite_.addObserver(toolObject_);
  embeddedSuite_.addObserver(loginSession_);
  embeddedSuite_.addObserver(sessionClient_);
  embeddedSuite_.addObserver(sessionNames_);
  embeddedSuite_.addObserver(recordingWatch_);
}

LinuxHost::~LinuxHost() = default;

std::optional<int> LinuxHost::becomeInstance(const std::vector<std::string>& uris) {
  mainThread_.assertHeld();
  switch (claimOrHandOver(instance_, toolObject_, uris)) {
    case HandOver::kBecameInstance:
      activationTokens_.giveFromEnvironment();
      return std::nullopt;
    case HandOver::kDelivered:
      return kExitDone;
    case HandOver::kNotDelivered:
      break;
  }
  return kExitNoAnswer;
}

void LinuxHost::showInDesktop() {
  GDBusConnection* bus = sessionBus_.connection();
  if (bus == nullptr) {
    logOnce(
        LogLevel::kWarning, "session bus",
        "There is no session bus (" + sessionBus_.error() +
            "): no tray icon and no notifications. Stop the recording with --stop or a signal.");
    return;
  }
  indicator_ = std::make_unique<Indicator>(bus, router_, *bundle_, icons_.themeRoot(),
                                           [this](bool present) { trayDidChange(present); });
  recordingNotice_ = std::make_unique<RecordingNotice>(bus, router_, *bundle_);
  application_.addIndicatorObserver(*indicator_);
  embeddedSuite_.addObserver(*indicator_);
  embeddedSuite_.addObserver(*recordingNotice_);
}

void LinuxHost::trayDidChange(bool present) {
  recordingNotice_->setNeeded(!present);
  userNotifications_.setStartAdvice(
      present ? "" : bundle_->localizedString("To stop, start Record Audio again."));
  if (present) return;
  logOnce(LogLevel::kWarning, "tray",
          "The desktop has no tray to show the recording in; start the program again, or use "
          "--stop, to end it.");
}

void LinuxHost::reportSilence(bool silent) {
  if (silent) {
    logMessage(LogLevel::kWarning,
               "No sound is coming in: the recording has been silent for several seconds. Check "
               "that the source is the right one, switched on and not muted.");
  }
  silenceRemark_ = silent ? bundle_->localizedString("No sound is coming in.") : "";
  refreshRemark();
}

// The core has already logged it.
void LinuxHost::reportEncoderBehind(bool behind) {
  encoderRemark_ =
      behind ? bundle_->localizedString("The MP3 encoder is more than ten seconds behind.") : "";
  refreshRemark();
}

void LinuxHost::reportLowSpace(bool low) {
  if (low) {
    logMessage(LogLevel::kWarning, "Less than 100 MB are free for the recording, in " +
                                       fileManager_.temporaryDirectory() + " or in " +
                                       storage_.lastOutputFolder() + ". Make room, or stop soon.");
  }
  spaceRemark_ =
      low ? bundle_->localizedString("Less than 100 MB are free for the recording.") : "";
  refreshRemark();
}

void LinuxHost::showSession(const platform::RemoteControl& remote) {
  if (indicator_ == nullptr) return;
  const platform::Dictionary status = remote.status();
  const auto text = [&status](const char* key) {
    const auto entry = status.find(key);
    const auto* found = entry == status.end() ? nullptr : entry->second.as<std::string>();
    return found == nullptr ? std::string() : *found;
  };
  const std::string state = text("state");
  indicator_->setUnderWay(state == "waiting" || state == "starting" || state == "recording");
  sourceRemark_.clear();
  if (const std::string name = text("sourceName"); !name.empty()) {
    sourceRemark_ =
        bundle_->localizedString("The chosen microphone is missing; %@ is recorded instead.");
    const std::size_t at = sourceRemark_.find("%@");
    if (at != std::string::npos) sourceRemark_.replace(at, 2, name);
  }
  refreshRemark();
}

void LinuxHost::refreshRemark() {
  if (indicator_ == nullptr) return;
  std::string remarks;
  for (const std::string* remark :
       {&sourceRemark_, &silenceRemark_, &encoderRemark_, &spaceRemark_, &folderRemark_}) {
    if (!remark->empty()) remarks += (remarks.empty() ? "" : "\n") + *remark;
  }
  indicator_->setRemark(remarks);
  recordingNotice_->setRemark(remarks);
}

void LinuxHost::reportStall(bool stalled) {
  mainThread_.assertHeld();
  if (!stalled) return;
  capture_.failRecording(noAnswerText("write", *stalledFile_) +
                         " The recording ends here; what was recorded before is kept.");
}

std::vector<RecordingWatch::Finding> LinuxHost::findings() {
  return {{"silent", [this] { return capture_.recordsSilence(); },
           [this](bool silent) { reportSilence(silent); }},
          {"",  // the status says how far
           [this] {
             const auto remote = remote_.lock();
             return remote != nullptr && remote->status().contains("behindSeconds");
           },
           [this](bool behind) { reportEncoderBehind(behind); }},
          {"lowSpace", [this] { return freeSpace_.isLow(); },
           [this](bool low) { reportLowSpace(low); }},
          {"folderUnusable", [this] { return !storage_.outputFolderProblem().empty(); },
           [this](bool unusable) { reportUnusableFolder(unusable); }},
          {"",
           [this] {
             stalledFile_ = stallDetector_.look();
             return stalledFile_.has_value();
           },
           [this](bool stalled) { reportStall(stalled); }}};
}

bool LinuxHost::waitForFiles() {
  // Counts steps, because time goes on while a process is stopped.
  int idleSteps = 0;
  std::uint64_t seen = 0;
  while (!dispatch_.pendingWork().waitUntilIdle(kFilesStep)) {
    const std::uint64_t progress = dispatch_.pendingWork().changes() +
                                   fileManager_.openFiles().calls().progress() +
                                   lostRecordings_.openFiles().calls().progress();
    idleSteps = progress == seen ? idleSteps + 1 : 0;
    seen = progress;
    if (idleSteps >= kFilesPatience / kFilesStep) return false;
  }
  return true;
}

void LinuxHost::saveRecording(std::function<void()> saved) {
  mainThread_.assertHeld();
  application_.terminate();
  // The notification must not hold up the machine.
  dispatch_.whenIdleOnMain(std::move(saved));
}

SessionEnd LinuxHost::sessionEnd() {
  return {[this](std::function<void()> saved) { saveRecording(std::move(saved)); },
          [this] { application_.terminateRegardless(); }};
}

void LinuxHost::reportUnusableFolder(bool unusable) {
  folderRemark_ = unusable ? bundle_->localizedString("The output folder cannot be used.") : "";
  refreshRemark();
}

void LinuxHost::tellThatThereIsNoFolder() {
  const auto notification = std::make_shared<platform::UserNotification>();
  notification->informativeText = bundle_->localizedString("There is no folder for recordings.");
  notification->details = storage_.outputFolderProblem();
  userNotifications_.deliverNotification(notification);
  bool isOver = false;
  const auto limit = mainLoop_.scheduledTimer(kLastWords_ms / 1000.0, {}, false,
                                              [&](const platform::TimerPtr&) { isOver = true; });
  while (!isOver && userNotifications_.isDelivering()) g_main_context_iteration(nullptr, TRUE);
  limit->invalidate();
}

int LinuxHost::exitStatus() const {
  if (hasNoFolder()) return kExitFailed;
  if (windows_.wentUnseen()) return kExitNoScreen;
  return hasFailedRecording_() ? kExitFailed : kExitDone;
}

int LinuxHost::run(std::shared_ptr<platform::ApplicationDelegate> delegate,
                   std::shared_ptr<platform::RemoteControl> remote, const Launch& launch) {
  mainThread_.assertHeld();
  showInDesktop();
  application_.setDelegate(delegate);
  remote->setOnStateChange([this, weak = std::weak_ptr(remote)] {
    if (const auto control = weak.lock()) showSession(*control);
  });
  remote_ = remote;
  router_.attach(delegate,
                 std::make_shared<FindingsInStatus>(std::move(remote), recordingWatch_,
                                                    [this] { return capture_.lost_frames(); }),
                 suite::kToolIdentifier);
  delegate.reset();
  hasFailedRecording_ = launch.hasFailedRecording;
  if (launch.startedByBus) {
    router_.launchOnFirstRequest();
  } else {
    router_.launch(launch.pathsToOpen);
  }
  shortcut_.resume();
  application_.run();
  return finish();
}

void LinuxHost::goOnWithoutScreen() {
  const bool isRecordingOnly = !windows_.isAlertShowing() && !windows_.hasVisibleWindows();
  logMessage(LogLevel::kError, isRecordingOnly ? "The screen has gone. The recording goes on."
                                               : "The screen has gone, so the program ends.");
  windows_.loseScreen();
  shortcut_.follow({});
  mainLoop_.runBy({}, {});
  if (!isRecordingOnly) application_.terminateRegardless();
  application_.run();
  // There is no way back into the toolkit or its callers.
  std::_Exit(finish());
}

int LinuxHost::finish() {
  shortcut_.leave();
  userDefaults_.synchronize();
  if (hasNoFolder()) tellThatThereIsNoFolder();

  // From here on a new start becomes a new instance; this one only finishes its files.
  instance_.release();
  const bool areFilesComplete = waitForFiles();
  router_.finish();
  loginSession_.releaseShutdown();
  while (indicator_ != nullptr && indicator_->isLeaving()) {
    g_main_context_iteration(nullptr, TRUE);
  }
  workspace_.finish(kLastWords_ms);
  toolObject_.flushAll(kLastWords_ms);
  if (!areFilesComplete) {
    logMessage(LogLevel::kError,
               "A disk or network folder does not answer, so the last part of a recording was not "
               "written. What was recorded before is kept there; the next start looks for it.");
    // An ordinary exit would wait for threads that wait for that disk.
    std::_Exit(EXIT_FAILURE);
  }
  if (fileManager_.openFiles().hasMoveUnderWay() || lostRecordings_.openFiles().hasMoveUnderWay()) {
    // The user has already been told that the file stays where it is.
    std::_Exit(exitStatus());
  }
  return exitStatus();
}

}  // namespace linux_host
