#pragma once

#include "suite/environment.h"
#include "tests/memory_host/memory_application.h"
#include "tests/memory_host/memory_audio_hardware.h"
#include "tests/memory_host/memory_audio_units.h"
#include "tests/memory_host/memory_capture.h"
#include "tests/memory_host/memory_foundation.h"
#include "tests/memory_host/memory_run_loop.h"
#include "tests/memory_host/memory_suite.h"

namespace memory_host {

// A whole machine in memory. Tests reach into its public parts to arrange and to look; the core
// gets `environment`.
class MemoryHost {
 public:
  MemoryClock clock;
  MemoryDispatch dispatch;
  MemoryRunLoop runLoop{clock, dispatch};
  MemoryApplication application;
  MemoryAlerts alerts;
  MemoryWorkspace workspace;
  MemoryInterfaceLoader interfaceLoader;
  MemoryCursor cursor;
  MemorySystemColors systemColors;
  MemoryUserNotificationCenter userNotificationCenter;
  MemoryUserDefaults userDefaults;
  MemoryFileManager fileManager;
  MemoryBundle mainBundle;
  MemoryBundleLoader bundleLoader;
  MemoryProcessInfo processInfo;
  MemoryNotificationCenter notificationCenter;
  MemoryDateFormatter dateFormatter;
  MemoryUserAccount userAccount;
  MemoryCapture capture{notificationCenter, fileManager};
  MemoryAudioHardware audioHardware;
  MemoryAudioUnits audioUnits;
  MemoryAuthorization authorization;
  MemoryLaunchServices launchServices;
  MemoryAppleEvents appleEvents;
  MemorySuite suite;

  platform::Host host{application,
                      alerts,
                      workspace,
                      interfaceLoader,
                      cursor,
                      systemColors,
                      userNotificationCenter,
                      clock,
                      userDefaults,
                      fileManager,
                      mainBundle,
                      bundleLoader,
                      processInfo,
                      runLoop,
                      notificationCenter,
                      dateFormatter,
                      userAccount,
                      clock,
                      dispatch,
                      capture,
                      audioHardware,
                      audioUnits,
                      authorization,
                      launchServices,
                      appleEvents};
  suite::Suite suiteServices{suite, suite, suite};
  suite::Environment environment{host, suiteServices};
};

}  // namespace memory_host
