// SPDX-License-Identifier: MIT
#pragma once

#include "suite/environment.h"
#include "tests/memory_host/memory_application.h"
#include "tests/memory_host/memory_audio_hardware.h"
#include "tests/memory_host/memory_audio_units.h"
#include "tests/memory_host/memory_capture.h"
#include "tests/memory_host/memory_foundation.h"
#include "tests/memory_host/memory_interrupted_recordings.h"
#include "tests/memory_host/memory_run_loop.h"
#include "tests/memory_host/memory_suite.h"
#include "tests/memory_host/timeline.h"

namespace memory_host {

// A whole machine in memory. Tests use its public parts to arrange things and to look at them. The
// core gets `environment`.
class MemoryHost {
 public:
  Timeline timeline;
  MemoryClock clock;
  MemoryDispatch dispatch;
  MemoryRunLoop runLoop{clock, dispatch};
  MemoryAlerts alerts{timeline, runLoop};
  MemoryApplication application{timeline, runLoop, alerts};
  MemoryWorkspace workspace{timeline};
  MemoryInterfaceLoader interfaceLoader;
  MemoryCursor cursor;
  MemorySystemColors systemColors;
  MemoryUserNotificationCenter userNotificationCenter{timeline};
  MemoryUserDefaults userDefaults;
  MemoryFileManager fileManager{&timeline};
  MemoryBundle mainBundle;
  MemoryBundleLoader bundleLoader;
  MemoryProcessInfo processInfo;
  MemoryNotificationCenter notificationCenter;
  MemoryDateFormatter dateFormatter;
  MemoryUserAccount userAccount;
  MemoryCapture capture{notificationCenter, fileManager};
  MemoryAudioHardware audioHardware;
  MemoryAudioUnits audioUnits;
  MemoryAuthorization authorization{&timeline};
  MemoryLaunchServices launchServices;
  MemoryAppleEvents appleEvents;
  MemoryInterruptedRecordings interruptedRecordings{fileManager};
  MemorySuite suite{timeline};

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
                      appleEvents,
                      interruptedRecordings};
  suite::Suite suiteServices{suite, suite, suite};
  suite::Environment environment{host, suiteServices};
};

}  // namespace memory_host
