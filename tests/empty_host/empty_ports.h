// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host.h"

// Every port of a host, refusing: nothing exists, nothing can be made, and each call says so in the
// way its header asks for. Where a new host begins: copy the folder and fill one port after the
// other. Main thread.

namespace empty_host {

class EmptyApplication : public platform::Application {
 public:
  void disableRelaunchOnLogin() override {}
  void setActivationPolicy(platform::ActivationPolicy) override {}
  void setApplicationIconImage(const platform::ImagePtr&) override {}
  void activateIgnoringOtherApps(bool) override {}
  void terminate() override { hasEnded_ = true; }
  platform::ImagePtr imageNamed(const std::string&) override { return nullptr; }

  [[nodiscard]] bool hasEnded() const { return hasEnded_; }

 private:
  bool hasEnded_ = false;
};

// As without a screen: dismissed with the last button.
class EmptyAlerts : public platform::Alerts {
 public:
  int runModal(const platform::Alert& alert) override {
    const auto buttons = static_cast<int>(alert.buttons.size());
    return platform::kAlertFirstButtonReturn + (buttons > 0 ? buttons - 1 : 0);
  }
};

class EmptyWorkspace : public platform::Workspace {
 public:
  bool openFile(const std::string&) override { return false; }
  bool openURL(const std::string&) override { return false; }
  void activateFileViewerSelectingURLs(const std::vector<std::string>&) override {}
  bool setIcon(const platform::ImagePtr&, const std::string&, unsigned) override { return false; }
  bool openPrivacySettings() override { return false; }
};

class EmptyInterfaceLoader : public platform::InterfaceLoader {
 public:
  std::shared_ptr<platform::Window> loadWindow(const std::string&,
                                               platform::InterfaceOwner&) override {
    return nullptr;
  }
};

class EmptyCursor : public platform::Cursor {
 public:
  void setPointingHand() override {}
};

class EmptySystemColors : public platform::SystemColors {
 public:
  [[nodiscard]] std::optional<platform::Color> linkColor() const override { return std::nullopt; }
};

class EmptyUserNotificationCenter : public platform::UserNotificationCenter {
 public:
  void setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate>) override {}
  void deliverNotification(const platform::UserNotificationPtr&) override {}
  void removeDeliveredNotification(const platform::UserNotificationPtr&) override {}
};

class EmptyClock : public platform::WallClock, public platform::HostClock {
 public:
  [[nodiscard]] platform::Date now() const override { return {}; }
  [[nodiscard]] std::uint64_t absoluteTime() const override { return 0; }
  [[nodiscard]] platform::TimebaseInfo timebaseInfo() const override { return {}; }
};

class EmptyUserDefaults : public platform::UserDefaults {
 public:
  [[nodiscard]] std::optional<platform::Value> objectForKey(const std::string&) const override {
    return std::nullopt;
  }
  [[nodiscard]] std::int64_t integerForKey(const std::string&) const override { return 0; }
  [[nodiscard]] bool boolForKey(const std::string&) const override { return false; }
  [[nodiscard]] std::optional<std::string> stringForKey(const std::string&) const override {
    return std::nullopt;
  }
  [[nodiscard]] std::optional<platform::Dictionary> dictionaryForKey(
      const std::string&) const override {
    return std::nullopt;
  }
  void setObject(const platform::Value&, const std::string&) override {}
  void setInteger(std::int64_t, const std::string&) override {}
  void setBool(bool, const std::string&) override {}
  bool synchronize() override { return false; }
};

class EmptyFileManager : public platform::FileManager {
 public:
  [[nodiscard]] bool fileExists(const std::string&) const override { return false; }
  bool createFile(const std::string&) override { return false; }
  [[nodiscard]] std::unique_ptr<platform::FileHandle> fileHandleForUpdating(
      const std::string&) override {
    return nullptr;
  }
  [[nodiscard]] std::string moveItem(const std::string& from, const std::string&) override {
    return refusal(from);
  }
  std::string removeItem(const std::string& path) override { return refusal(path); }
  [[nodiscard]] std::string temporaryDirectory() const override { return "/nowhere"; }

 private:
  static std::string refusal(const std::string& path) { return path + " is not there."; }
};

class EmptyBundle : public platform::Bundle {
 public:
  [[nodiscard]] std::string bundlePath() const override { return "/nowhere"; }
  [[nodiscard]] std::optional<platform::Dictionary> infoDictionary() const override {
    return std::nullopt;
  }
  [[nodiscard]] std::optional<platform::Dictionary> localizedInfoDictionary() const override {
    return std::nullopt;
  }
  [[nodiscard]] std::string localizedString(const std::string& key) const override { return key; }
};

class EmptyBundleLoader : public platform::BundleLoader {
 public:
  [[nodiscard]] std::unique_ptr<platform::Bundle> bundleWithPath(
      const std::string&) const override {
    return nullptr;
  }
};

class EmptyProcessInfo : public platform::ProcessInfo {
 public:
  [[nodiscard]] std::vector<std::string> arguments() const override { return {"/nowhere/tool"}; }
  [[nodiscard]] std::string globallyUniqueString() override { return std::to_string(++count_); }

 private:
  int count_ = 0;
};

// Its timers are over before they begin.
class EmptyRunLoop : public platform::RunLoop {
 public:
  platform::TimerPtr scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                    platform::TimerAction action) override;
  void performAfterDelay(double, std::function<void()>) override {}
};

class EmptyNotificationCenter : public platform::NotificationCenter {
 public:
  void addObserver(Observer, const std::string&, Handler) override {}
  void removeObserver(Observer) override {}
  void post(const platform::Notification&) override {}
};

class EmptyDateFormatter : public platform::DateFormatter {
 public:
  [[nodiscard]] std::string stringFromDate(platform::Date, const std::string&) const override {
    return "";
  }
  [[nodiscard]] std::string localizedMediumTime(platform::Date) const override { return ""; }
};

class EmptyUserAccount : public platform::UserAccount {
 public:
  [[nodiscard]] std::optional<std::string> homeDirectory() const override { return std::nullopt; }
  [[nodiscard]] bool accessExists(const std::string&) const override { return false; }
};

// A main queue that drops its items, and no others.
class EmptyDispatch : public platform::Dispatch {
 public:
  EmptyDispatch();
  std::shared_ptr<platform::DispatchQueue> mainQueue() override { return main_; }
  std::shared_ptr<platform::DispatchQueue> createSerialQueue(const std::string&) override {
    return nullptr;
  }

 private:
  const std::shared_ptr<platform::DispatchQueue> main_;
};

// No device, and sessions that take nothing and never run.
class EmptyCapture : public platform::Capture {
 public:
  [[nodiscard]] std::vector<platform::CaptureDevicePtr> devicesWithMediaType(
      platform::MediaType) override {
    return {};
  }
  [[nodiscard]] platform::CaptureDevicePtr defaultDeviceWithMediaType(
      platform::MediaType) override {
    return nullptr;
  }
  [[nodiscard]] platform::CaptureDevicePtr deviceWithUniqueID(const std::string&) override {
    return nullptr;
  }
  [[nodiscard]] bool respondsToAuthorizationStatus() const override { return false; }
  [[nodiscard]] platform::AuthorizationStatus authorizationStatusForMediaType(
      platform::MediaType) override {
    return platform::AuthorizationStatus::kAuthorized;
  }
  void requestAccessForMediaType(platform::MediaType, std::function<void(bool)> handler) override {
    handler(true);
  }
  platform::CaptureSessionPtr createSession() override;
  platform::CaptureSessionPtr createMonitoringSession() override { return nullptr; }
  platform::CaptureDeviceInputPtr createDeviceInput(const platform::CaptureDevicePtr&,
                                                    std::string* error) override {
    *error = "This host has no sound source.";
    return nullptr;
  }
  std::shared_ptr<platform::CaptureAudioFileOutput> createAudioFileOutput() override;
  std::shared_ptr<platform::CaptureAudioDataOutput> createAudioDataOutput() override;
};

class EmptyLaunchServices : public platform::LaunchServices {
 public:
  [[nodiscard]] std::vector<std::string> copyApplicationPathsForBundleIdentifier(
      const std::string&) override {
    return {};
  }
};

class EmptyInterruptedRecordings : public platform::InterruptedRecordings {
 public:
  [[nodiscard]] std::vector<std::string> find(const std::string&, std::string*) override {
    return {};
  }
  [[nodiscard]] Claim claim(const std::string&) override { return {}; }
  void yieldToOthers() override {}
};

}  // namespace empty_host
