// SPDX-License-Identifier: MIT
#pragma once

#include "suite/embedded_suite.h"
#include "suite/environment.h"
#include "tests/empty_host/empty_ports.h"
#include "tests/empty_host/empty_services.h"

namespace empty_host {

// No folder for recordings, so the tool ends where it begins.
class EmptyStorage : public suite::Storage {
 public:
  void appendEvent(const suite::UsageEvent&) override {}
  std::optional<std::string> outputFolder(const std::string&) override { return std::nullopt; }
  std::string setOutputFolder(const std::string&, const std::string& folder) override {
    return folder + " is not there.";
  }
  void writeLog(std::string_view) override {}
  [[nodiscard]] bool isExtendedLoggingOn() const override { return false; }
};

// A host put together: one class that owns every port and hands out the environment. One per
// process; made, used and destroyed on the main thread.
class EmptyHost {
 public:
  EmptyHost() = default;
  EmptyHost(const EmptyHost&) = delete;
  EmptyHost& operator=(const EmptyHost&) = delete;

  [[nodiscard]] suite::Environment environment() { return {ports_, suite_}; }
  [[nodiscard]] bool hasEnded() const { return application_.hasEnded(); }

 private:
  EmptyApplication application_;
  EmptyAlerts alerts_;
  EmptyWorkspace workspace_;
  EmptyInterfaceLoader interfaceLoader_;
  EmptyCursor cursor_;
  EmptySystemColors systemColors_;
  EmptyUserNotificationCenter userNotificationCenter_;
  EmptyClock clock_;
  EmptyUserDefaults userDefaults_;
  EmptyFileManager fileManager_;
  EmptyBundle bundle_;
  EmptyBundleLoader bundleLoader_;
  EmptyProcessInfo processInfo_;
  EmptyRunLoop runLoop_;
  EmptyNotificationCenter notificationCenter_;
  EmptyDateFormatter dateFormatter_;
  EmptyUserAccount userAccount_;
  EmptyDispatch dispatch_;
  EmptyCapture capture_;
  EmptyAudioHardware audioHardware_;
  EmptyAudioUnits audioUnits_;
  EmptyAuthorization authorization_;
  EmptyLaunchServices launchServices_;
  EmptyAppleEvents appleEvents_;
  EmptyInterruptedRecordings interruptedRecordings_;
  EmptyStorage storage_;

  platform::Host ports_{.application = application_,
                        .alerts = alerts_,
                        .workspace = workspace_,
                        .interfaceLoader = interfaceLoader_,
                        .cursor = cursor_,
                        .systemColors = systemColors_,
                        .userNotificationCenter = userNotificationCenter_,
                        .wallClock = clock_,
                        .userDefaults = userDefaults_,
                        .fileManager = fileManager_,
                        .mainBundle = bundle_,
                        .bundleLoader = bundleLoader_,
                        .processInfo = processInfo_,
                        .runLoop = runLoop_,
                        .notificationCenter = notificationCenter_,
                        .dateFormatter = dateFormatter_,
                        .userAccount = userAccount_,
                        .hostClock = clock_,
                        .dispatch = dispatch_,
                        .capture = capture_,
                        .audioHardware = audioHardware_,
                        .audioUnits = audioUnits_,
                        .authorization = authorization_,
                        .launchServices = launchServices_,
                        .appleEvents = appleEvents_,
                        .interruptedRecordings = interruptedRecordings_};
  suite::EmbeddedSuite embeddedSuite_{storage_, clock_};
  suite::Suite suite_ = embeddedSuite_.interfaces();
};

}  // namespace empty_host
