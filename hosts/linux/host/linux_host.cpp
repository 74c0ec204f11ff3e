#include "hosts/linux/host/linux_host.h"

#include <csignal>

#include "hosts/linux/authorization/system_paths.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/host/desktop_appearance.h"

namespace linux_host {
namespace {

// What is sent at the very end may take this long to leave.
constexpr int kLastWords_ms = 1000;

PipeWireConnection::Callbacks pipeWireCallbacks(LinuxHost::Purpose purpose) {
  PipeWireConnection::Callbacks callbacks;
  if (purpose == LinuxHost::Purpose::kFiles) return callbacks;
  callbacks.onLost = [](const std::string& message) { logMessage(LogLevel::kError, message); };
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

Appearance HostWindowsServices::appearance() const {
  return desktopAppearance(bus_.connection());
}

LinuxHost::LinuxHost(std::vector<std::string> arguments, Purpose purpose)
    : executable_(executablePath()),
      pipeWire_(pipeWireCallbacks(purpose)),
      lostRecordings_(fileManager_.temporaryDirectory()),
      processInfo_(std::move(arguments)),
      folders_(XdgFolders::fromEnvironment()),
      userDefaults_(folders_.config + "/" + kApplicationId + "/defaults.json"),
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
      userNotifications_(sessionBus_.connection(), *bundle_),
      workspace_(sessionBus_.connection(),
                 [this](const platform::ImagePtr& image) { return icons_.file(image); }),
      windowsServices_(*bundle_, storage_, sessionBus_, mainLoop_),
      windows_(windowsServices_, M4aWriterFactory::defaultFolders()),
      application_(mainLoop_),
      ports_{
          application_,   windows_,           workspace_,     windows_,        windows_,
          windows_,       userNotifications_, wallClock_,     userDefaults_,   fileManager_,
          *bundle_,       bundleLoader_,      processInfo_,   mainLoop_,       notificationCenter_,
          dateFormatter_, userAccount_,       hostClock_,     dispatch_,       capture_,
          audioHardware_, audioUnits_,        authorization_, launchServices_, appleEvents_,
          lostRecordings_},
      suite_(embeddedSuite_.interfaces()),
      router_(application_, mainLoop_, dispatch_),
      toolObject_(router_),
      instance_(sessionBus_, fileManager_.temporaryDirectory()),
      quitSignals_(application_),
      loginSession_(bundle_->localizedString("Audio recording"),
                    [this] { saveRecording([this] { loginSession_.releaseShutdown(); }); }),
      xsmpClient_(sessionEnd(), dispatch_.mainQueue(), M4aWriterFactory::defaultFolders()),
      sessionClient_(sessionBus_.connection(), startupId_, sessionEnd(),
                     [this] { xsmpClient_.connect(); }),
      silenceWatch_(
          mainLoop_, [this] { return capture_.recordsSilence(); },
          [this](bool silent) { reportSilence(silent); }) {
  // A client that went away in the middle of an answer is no reason to end.
  std::signal(SIGPIPE, SIG_IGN);
  router_.setWindows([this] { return windows_.hasVisibleWindows(); },
                     [this] { return windows_.isAlertShowing(); },
                     [this] { windows_.raiseWindows(); });
  application_.setOnActivate([this] { windows_.raiseWindows(); });
  embeddedSuite_.addObserver(toolObject_);
  embeddedSuite_.addObserver(loginSession_);
  embeddedSuite_.addObserver(sessionClient_);
  embeddedSuite_.addObserver(silenceWatch_);
}

LinuxHost::~LinuxHost() = default;

bool LinuxHost::becomeInstance(const std::vector<std::string>& uris) {
  return claimOrHandOver(instance_, toolObject_, uris) == Instance::Claim::kOurs;
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
                                           [this](bool present) { reportMissingTray(present); });
  application_.addIndicatorObserver(*indicator_);
  embeddedSuite_.addObserver(*indicator_);
}

void LinuxHost::reportMissingTray(bool present) {
  if (present) return;
  logOnce(LogLevel::kWarning, "tray",
          "The desktop has no tray to show the recording in; start the program again, or use "
          "--stop, to end it.");
}

void LinuxHost::reportSilence(bool silent) {
  if (silent) {
    logMessage(LogLevel::kWarning,
               "No sound is coming in: the source has sent only silence since the recording "
               "started. Look whether it is the right one, switched on and not muted.");
  }
  if (indicator_) {
    indicator_->setRemark(silent ? bundle_->localizedString("No sound is coming in.") : "");
  }
}

void LinuxHost::saveRecording(std::function<void()> saved) {
  application_.terminate();
  // What the user would still be shown does not hold the machine up.
  dispatch_.pendingWork().whenIdle(
      [saved = std::move(saved), mainQueue = dispatch_.mainQueue()] { mainQueue->async(saved); });
}

SessionEnd LinuxHost::sessionEnd() {
  return {[this](std::function<void()> saved) { saveRecording(std::move(saved)); },
          [this] { application_.terminateRegardless(); }};
}

void LinuxHost::run(std::shared_ptr<platform::ApplicationDelegate> delegate,
                    std::shared_ptr<platform::RemoteControl> remote, const Launch& launch) {
  showInDesktop();
  application_.setDelegate(delegate);
  router_.attach(delegate, std::make_shared<SilenceInStatus>(std::move(remote), silenceWatch_),
                 suite::kToolIdentifier);
  delegate.reset();
  if (launch.startedByBus) {
    router_.launchOnFirstRequest();
  } else {
    router_.launch(launch.pathsToOpen);
  }
  application_.run();

  // From here on a new start is a new instance; this one only finishes its files.
  instance_.release();
  dispatch_.waitUntilIdle();
  router_.finish();
  loginSession_.releaseShutdown();
  workspace_.finish(kLastWords_ms);
  toolObject_.flushAll(kLastWords_ms);
}

}  // namespace linux_host
