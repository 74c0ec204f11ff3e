// SPDX-License-Identifier: MIT
#pragma once

#include "platform/apple_events.h"
#include "platform/application.h"
#include "platform/audio_hardware.h"
#include "platform/audio_unit.h"
#include "platform/authorization.h"
#include "platform/capture.h"
#include "platform/controls.h"
#include "platform/dispatch.h"
#include "platform/foundation.h"
#include "platform/host_clock.h"
#include "platform/interrupted_recordings.h"
#include "platform/launch_services.h"
#include "platform/user_notifications.h"

namespace platform {

// Everything the core gets from the machine it runs on. The references are valid from before the
// delegate is created until after it is gone; the host owns what they refer to.
struct Host {
  Application& application;
  Alerts& alerts;
  Workspace& workspace;
  InterfaceLoader& interfaceLoader;
  Cursor& cursor;
  SystemColors& systemColors;
  UserNotificationCenter& userNotificationCenter;

  WallClock& wallClock;
  UserDefaults& userDefaults;
  FileManager& fileManager;
  Bundle& mainBundle;
  BundleLoader& bundleLoader;
  ProcessInfo& processInfo;
  RunLoop& runLoop;
  NotificationCenter& notificationCenter;
  DateFormatter& dateFormatter;
  UserAccount& userAccount;
  HostClock& hostClock;
  Dispatch& dispatch;

  Capture& capture;
  AudioHardware& audioHardware;
  AudioUnits& audioUnits;

  Authorization& authorization;
  LaunchServices& launchServices;
  AppleEvents& appleEvents;

  InterruptedRecordings& interruptedRecordings;
};

}  // namespace platform
