// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "suite/environment.h"

namespace record_audio {

// All zero means unknown.
struct AudioDriverVersion {
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t patch = 0;
};

enum AudioDriverInstallResult : int {
  AudioDriverInstallLoaded = 1,    // recent enough and loaded; nothing was done
  AudioDriverInstallRestart = 2,   // the user wants the computer restarted now
  AudioDriverInstallNotReady = 3,  // declined, failed or postponed
};

// The loopback sound driver: finds, shows and hides its device, and installs it. Stateless. Main
// thread; the alerts are modal. Nothing throws: a missing device or a failed call gives 0 or false.
class AudioDriver {
 public:
  AudioDriver() = delete;

  // The loopback device's id; 0 when it is not there.
  static platform::AudioDeviceID getLoopbackDeviceID(const suite::Environment& environment);
  static platform::AudioDeviceID getCurrentOutputAudioDevice(const suite::Environment& environment);
  // Makes the device the default output.
  static bool setDeviceAsDefault(const suite::Environment& environment,
                                 platform::AudioDeviceID device);
  // Asks the driver to show the device, or to hide it. False when there is no driver or it refuses.
  static bool showLoopbackDevice(const suite::Environment& environment, bool show);

  // Takes a text with exactly three groups of digits. Any other gives the unknown version.
  static AudioDriverVersion parseVersion(const std::string& text);
  // -1, 0 or 1 as `a` is older than, equal to or newer than `b`.
  static std::int64_t comapreVersion(const AudioDriverVersion& a,
                                     const AudioDriverVersion& withVersion);
  // The loaded driver's version, which it gives as its device's manufacturer.
  static AudioDriverVersion version(const suite::Environment& environment);
  // Whether a recent enough driver is in the plug-in folder, and whether one runs.
  static bool isInstalled(const suite::Environment& environment);
  static bool isLoaded(const suite::Environment& environment);

  // Asks the user and, with administrator rights, starts the installer of the first suite
  // application that holds a recent enough driver. Returns an AudioDriverInstallResult.
  static int launchInstallation(const suite::Environment& environment);
  // The alerts. True when the user wants what they offer: the installation, or a restart now.
  static bool showDriverInstallNeeded(const suite::Environment& environment);
  static bool showRestartNeeded(const suite::Environment& environment);
  static void showFailedAlert(const suite::Environment& environment);
  static bool showInstallationDone(const suite::Environment& environment);
};

}  // namespace record_audio
