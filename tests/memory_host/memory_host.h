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
  MemoryInterfaceLoader interfaceLoader;
  MemoryCursor cursor;
  MemorySystemColors systemColors;
  MemoryUserNotificationCenter userNotificationCenter{timeline};
  MemoryUserDefaults userDefaults;
  MemoryFileManager fileManager{&timeline};
  MemoryWorkspace workspace{timeline, fileManager};
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

  platform::Host host{
      .application = application,
      .alerts = alerts,
      .workspace = workspace,
      .interfaceLoader = interfaceLoader,
      .cursor = cursor,
      .systemColors = systemColors,
      .userNotificationCenter = userNotificationCenter,
      .wallClock = clock,
      .userDefaults = userDefaults,
      .fileManager = fileManager,
      .mainBundle = mainBundle,
      .bundleLoader = bundleLoader,
      .processInfo = processInfo,
      .runLoop = runLoop,
      .notificationCenter = notificationCenter,
      .dateFormatter = dateFormatter,
      .userAccount = userAccount,
      .hostClock = clock,
      .dispatch = dispatch,
      .capture = capture,
      .audioHardware = audioHardware,
      .audioUnits = audioUnits,
      .authorization = authorization,
      .launchServices = launchServices,
      .appleEvents = appleEvents,
      .interruptedRecordings = interruptedRecordings,
  };
  suite::Suite suiteServices{suite, suite, suite};
  suite::Environment environment{host, suiteServices};
};

}  // namespace memory_host
