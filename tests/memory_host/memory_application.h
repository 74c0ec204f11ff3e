// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/apple_events.h"
#include "platform/application.h"
#include "platform/authorization.h"
#include "platform/controls.h"
#include "platform/launch_services.h"
#include "platform/user_notifications.h"
#include "tests/memory_host/memory_run_loop.h"
#include "tests/memory_host/timeline.h"

// Application, alerts, workspace, windows, notifications and authorization in memory. They record
// what they are asked to do and answer as the test says. Single-threaded.

namespace memory_host {

class MemoryAlerts : public platform::Alerts {
 public:
  MemoryAlerts(Timeline& timeline, MemoryRunLoop& runLoop)
      : timeline_(timeline), runLoop_(runLoop) {}
  int runModal(const platform::Alert& alert) override;
  // What terminate() does to an open alert.
  void dismiss() { dismissed_ = true; }
  [[nodiscard]] bool isWaiting() const { return waiting_; }

  std::vector<platform::Alert> shown;
  // The answers, in order. When they run out, the answer is the first button.
  std::vector<int> answers;
  // Called while the alert is open.
  std::function<void(const platform::Alert&)> onShow;
  bool hasScreen = true;

 private:
  Timeline& timeline_;
  MemoryRunLoop& runLoop_;
  bool waiting_ = false;
  bool dismissed_ = false;
};

class MemoryApplication : public platform::Application {
 public:
  MemoryApplication(Timeline& timeline, MemoryRunLoop& runLoop, MemoryAlerts& alerts)
      : timeline_(timeline), runLoop_(runLoop), alerts_(alerts) {}
  void disableRelaunchOnLogin() override { note("disableRelaunchOnLogin"); }
  void setActivationPolicy(platform::ActivationPolicy newPolicy) override;
  void setApplicationIconImage(const platform::ImagePtr& image) override;
  void activateIgnoringOtherApps(bool ignoringOtherApps) override;
  void terminate() override;
  platform::ImagePtr imageNamed(const std::string& name) override;

  // Tells the delegate of the launch, with those paths to open.
  void launch(const std::vector<std::string>& pathsToOpen);

  // If set, terminate() asks it as the real application object does.
  platform::ApplicationDelegate* delegate = nullptr;
  platform::ActivationPolicy policy = platform::ActivationPolicy::kAccessory;
  // Called with each new policy.
  std::function<void(platform::ActivationPolicy)> onPolicy = [](platform::ActivationPolicy) {};
  std::string iconName;
  std::set<std::string> missingImages;
  int terminateCount = 0;
  bool ended = false;  // the delegate answered "now"
  std::vector<std::string> journal;

 private:
  void note(const std::string& entry);

  Timeline& timeline_;
  MemoryRunLoop& runLoop_;
  MemoryAlerts& alerts_;
  bool asking_ = false;
};

class MemoryWorkspace : public platform::Workspace {
 public:
  MemoryWorkspace(Timeline& timeline, const platform::FileManager& files)
      : timeline_(timeline), files_(files) {}
  bool openFile(const std::string& path) override;
  bool openURL(const std::string& url) override;
  void activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) override;
  bool setIcon(const platform::ImagePtr& image, const std::string& forFile,
               unsigned options) override;
  bool openPrivacySettings() override {
    if (hasPrivacySettings) ++privacySettingsOpened;
    return hasPrivacySettings;
  }

  int privacySettingsOpened = 0;
  bool hasPrivacySettings = true;
  std::vector<std::string> opened;
  bool hasApplications = true;  // for what is opened
  std::vector<std::string> openedURLs;
  std::vector<std::vector<std::string>> revealed;
  // Image name ("" for removal), path, options.
  struct IconChange {
    std::string image;
    std::string path;
    unsigned options;
    friend bool operator==(const IconChange&, const IconChange&) = default;
  };
  std::vector<IconChange> icons;
  bool setIconResult = true;

 private:
  Timeline& timeline_;
  const platform::FileManager& files_;
};

class MemoryUserNotificationCenter : public platform::UserNotificationCenter {
 public:
  explicit MemoryUserNotificationCenter(Timeline& timeline) : timeline_(timeline) {}
  void setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> target) override {
    timeline_.add("setDelegate");
    delegate = std::move(target);
  }
  void deliverNotification(const platform::UserNotificationPtr& notification) override;
  void removeDeliveredNotification(const platform::UserNotificationPtr& notification) override;
  // The user acts on a notification.
  void activate(const platform::UserNotificationPtr& notification,
                platform::UserNotificationActivationType type);

  std::weak_ptr<platform::UserNotificationCenterDelegate> delegate;
  std::vector<platform::UserNotificationPtr> delivered;  // everything that was ever shown
  std::vector<platform::UserNotificationPtr> showing;

 private:
  Timeline& timeline_;
};

class MemoryCursor : public platform::Cursor {
 public:
  void setPointingHand() override { ++pointingHandCount; }
  int pointingHandCount = 0;
};

class MemorySystemColors : public platform::SystemColors {
 public:
  [[nodiscard]] std::optional<platform::Color> linkColor() const override {
    ++requests;
    return color;
  }
  std::optional<platform::Color> color = platform::Color{0.1F, 0.2F, 0.9F, 1.0F};
  mutable int requests = 0;
};

class MemoryWindow : public platform::Window {
 public:
  void setDelegate(std::weak_ptr<platform::WindowDelegate> target) override {
    delegate = std::move(target);
  }
  void setTitleBarButtons(bool preferences, bool close) override {
    hasPreferencesButton = preferences;
    hasCloseButton = close;
  }
  [[nodiscard]] bool isVisible() const override { return visible; }
  [[nodiscard]] bool isOccluded() const override { return visible && covered; }
  void makeKeyAndOrderFront() override;
  void orderFront() override;
  void orderFrontRegardless() override;
  void orderOut() override;
  void becomeKey();
  // Other windows cover this one, or no longer do.
  void setCovered(bool isCovered);

  std::weak_ptr<platform::WindowDelegate> delegate;
  bool visible = false;
  bool covered = false;
  bool hasPreferencesButton = true;
  bool hasCloseButton = true;
  std::vector<std::string> journal;

 private:
  void changeVisibility(bool nowVisible);
};

// Loads windows by the recipes that the test has registered; without one, an empty MemoryWindow.
class MemoryInterfaceLoader : public platform::InterfaceLoader {
 public:
  using Recipe = std::function<std::shared_ptr<platform::Window>(const std::string&,
                                                                 platform::InterfaceOwner&)>;
  std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner) override;

  Recipe recipe;
  std::vector<std::string> loaded;
  std::vector<std::shared_ptr<MemoryWindow>> windows;  // loaded without a recipe
};

class MemoryAuthorization : public platform::Authorization {
 public:
  // Its calls also go into `timeline`, if there is one.
  explicit MemoryAuthorization(Timeline* timeline = nullptr) : timeline_(timeline) {}
  platform::OSStatus AuthorizationCreate(platform::AuthorizationFlags flags,
                                         platform::AuthorizationRef* outAuthorization) override;
  platform::OSStatus AuthorizationCopyRights(platform::AuthorizationRef authorization,
                                             const std::string& right,
                                             platform::AuthorizationFlags flags) override;
  platform::OSStatus AuthorizationExecuteWithPrivileges(
      platform::AuthorizationRef authorization, const std::string& pathToTool,
      platform::AuthorizationFlags flags, const std::vector<std::string>& arguments) override;
  platform::OSStatus AuthorizationFree(platform::AuthorizationRef authorization) override;

  platform::OSStatus createStatus = platform::noErr;
  platform::OSStatus copyRightsStatus = platform::noErr;
  platform::OSStatus executeStatus = platform::noErr;
  int living = 0;  // created and not freed
  // Each program that was started, with its arguments.
  std::vector<std::vector<std::string>> started;
  std::vector<std::string> journal;

 private:
  void note(const std::string& entry);

  Timeline* timeline_;
  bool hasRight_ = false;
};

class MemoryLaunchServices : public platform::LaunchServices {
 public:
  [[nodiscard]] std::vector<std::string> copyApplicationPathsForBundleIdentifier(
      const std::string& wanted) override {
    requested.push_back(wanted);
    return wanted == identifier ? paths : std::vector<std::string>();
  }
  // The applications of that identifier; there are no others.
  std::string identifier = "com.vantrel.korvel";
  std::vector<std::string> paths;
  std::vector<std::string> requested;
};

// The system process knows one event: the request to restart.
class MemoryAppleEvents : public platform::AppleEvents {
 public:
  platform::OSStatus AECreateDesc(std::uint32_t typeCode, const void* data, std::size_t size_bytes,
                                  platform::AEDesc* result) override;
  platform::OSStatus AECreateAppleEvent(std::uint32_t eventClass, std::uint32_t eventID,
                                        const platform::AEDesc* target, std::int16_t returnID,
                                        std::int32_t transactionID,
                                        platform::AEDesc* result) override;
  platform::OSStatus AESend(const platform::AEDesc* event, platform::AEDesc* reply,
                            std::int32_t sendMode, std::int16_t sendPriority,
                            std::int64_t timeout_ticks) override;
  platform::OSStatus AEDisposeDesc(platform::AEDesc* descriptor) override;

  platform::OSStatus createDescStatus = platform::noErr;
  platform::OSStatus createEventStatus = platform::noErr;
  platform::OSStatus sendStatus = platform::noErr;
  int living = 0;  // created and not disposed of
  std::vector<std::string> journal;
  platform::ProcessSerialNumber lastTarget{};
  platform::AEDesc eventTarget;  // what the event was made for
  platform::AEDesc sentEvent;
  int restarts = 0;  // how often the system was asked to restart, whatever it answered

 private:
  struct Event {
    std::uint32_t eventClass;
    std::uint32_t eventID;
    platform::ProcessSerialNumber target;
  };
  using Data = std::vector<std::byte>;

  platform::AEDesc make(std::uint32_t type, const void* data, std::size_t size_bytes);
  template <typename Record>
  static bool read(const platform::AEDesc* descriptor, std::uint32_t type, Record* record);
  [[nodiscard]] platform::OSStatus handle(const Event& event);
};

}  // namespace memory_host
