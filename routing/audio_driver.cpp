// SPDX-License-Identifier: MIT
#include "routing/audio_driver.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "routing/driver_paths.h"
#include "shared/loopback_device.h"

namespace record_audio {

using platform::AudioDeviceID;
using platform::AudioObjectID;
using platform::AudioObjectPropertyAddress;
using platform::noErr;
using platform::OSStatus;

namespace {

constexpr AudioDriverVersion kRequiredVersion{1, 0, 3};

// The two values that the driver's control understands. Nothing else may be written.
constexpr std::uint32_t kShowDevice = 0xFACE;
constexpr std::uint32_t kHideDevice = 0xB00B;

constexpr AudioObjectPropertyAddress globalAddress(std::uint32_t selector) {
  return {selector, platform::kAudioObjectPropertyScopeGlobal,
          platform::kAudioObjectPropertyElementMaster};
}

// A 4-byte value of an object, with the loopback device's UID as the qualifier.
OSStatus readByLoopbackUID(platform::AudioHardware& hardware, AudioObjectID object,
                           std::uint32_t selector, std::uint32_t& value) {
  const platform::OwnedString uid(platform::StringObject::create(kLoopbackDeviceUID));
  const platform::StringRef qualifier = uid.get();
  std::uint32_t size_bytes = sizeof value;
  return hardware.AudioObjectGetPropertyData(object, globalAddress(selector), sizeof qualifier,
                                             &qualifier, &size_bytes, &value);
}

bool isRecentEnough(const AudioDriverVersion& version) {
  return AudioDriver::comapreVersion(version, kRequiredVersion) != -1;
}

bool holdsRecentEnoughDriver(const suite::Environment& environment, const std::string& path) {
  const auto bundle = environment.host.bundleLoader.bundleWithPath(path);
  if (bundle == nullptr) return false;
  const platform::Dictionary info = bundle->infoDictionary().value_or(platform::Dictionary());
  const auto entry = info.find(kBundleShortVersionKey);
  const auto* const text = entry == info.end() ? nullptr : entry->second.as<std::string>();
  return text != nullptr && isRecentEnough(AudioDriver::parseVersion(*text));
}

std::string joined(const std::string& folder, const char* name) {
  return folder + (folder.ends_with('/') ? "" : "/") + name;
}

// The path of the first suite application that holds a recent enough driver.
std::optional<std::string> suiteWithDriver(const suite::Environment& environment) {
  std::vector<std::string> candidates =
      environment.host.launchServices.copyApplicationPathsForBundleIdentifier(
          kSuiteBundleIdentifier);
  if (candidates.empty()) candidates.emplace_back(kSuiteFallbackPath);
  for (const std::string& candidate : candidates) {
    if (holdsRecentEnoughDriver(environment, joined(candidate, kDriverInSuite))) return candidate;
  }
  return std::nullopt;
}

// Administrator rights for one use, given back at the end of the scope.
class AdministratorRights {
 public:
  explicit AdministratorRights(platform::Authorization& authorization)
      : authorization_(authorization),
        created_(authorization.AuthorizationCreate(platform::kAuthorizationFlagDefaults,
                                                   &reference_) == noErr) {}
  ~AdministratorRights() {
    if (created_) authorization_.AuthorizationFree(reference_);
  }
  AdministratorRights(const AdministratorRights&) = delete;
  AdministratorRights& operator=(const AdministratorRights&) = delete;

  [[nodiscard]] bool created() const { return created_; }
  bool obtain() {
    return authorization_.AuthorizationCopyRights(reference_, platform::kAuthorizationRightAdmin,
                                                  platform::kAuthorizationFlagInteractionAllowed |
                                                      platform::kAuthorizationFlagExtendRights |
                                                      platform::kAuthorizationFlagPreAuthorize) ==
           noErr;
  }
  bool execute(const std::string& pathToTool) {
    return authorization_.AuthorizationExecuteWithPrivileges(
               reference_, pathToTool, platform::kAuthorizationFlagDefaults, {}) == noErr;
  }

 private:
  platform::Authorization& authorization_;
  platform::AuthorizationRef reference_ = nullptr;
  bool created_;
};

enum class Launch { kStarted, kRefused, kFailed };

Launch launchInstaller(const suite::Environment& environment, const std::string& pathToTool) {
  AdministratorRights rights(environment.host.authorization);
  if (!rights.created()) return Launch::kFailed;
  const bool granted = rights.obtain();
  // The password dialog has come to the front.
  environment.host.application.activateIgnoringOtherApps(true);
  if (!granted) return Launch::kRefused;
  return rights.execute(pathToTool) ? Launch::kStarted : Launch::kFailed;
}

// The texts are keys of the string table. True when the first button was pressed.
bool ask(const suite::Environment& environment, platform::AlertStyle style,
         const std::string& message, const std::string& information,
         const std::vector<std::string>& buttons) {
  const platform::Bundle& bundle = environment.host.mainBundle;
  platform::Alert alert;
  alert.style = style;
  for (const std::string& button : buttons) alert.buttons.push_back(bundle.localizedString(button));
  alert.messageText = bundle.localizedString(message);
  alert.informativeText = bundle.localizedString(information);
  return environment.host.alerts.runModal(alert) == platform::kAlertFirstButtonReturn;
}

int restartOrNotReady(bool restart) {
  return restart ? AudioDriverInstallRestart : AudioDriverInstallNotReady;
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

// All runs of digits in the text, as numbers. One that is too large becomes the largest number.
std::vector<std::int64_t> numbersIn(std::string_view text) {
  std::vector<std::int64_t> numbers;
  const char* at = text.data();
  const char* const end = text.data() + text.size();
  while (at != end) {
    if (!isDigit(*at)) {
      ++at;
      continue;
    }
    std::int64_t number = std::numeric_limits<std::int64_t>::max();
    at = std::from_chars(at, end, number).ptr;
    numbers.push_back(number);
  }
  return numbers;
}

}  // namespace

AudioDeviceID AudioDriver::getLoopbackDeviceID(const suite::Environment& environment) {
  AudioDeviceID device = platform::kAudioObjectUnknown;
  const OSStatus status =
      readByLoopbackUID(environment.host.audioHardware, platform::kAudioObjectSystemObject,
                        platform::kAudioHardwarePropertyTranslateUIDToDevice, device);
  return status == noErr ? device : platform::kAudioObjectUnknown;
}

AudioDeviceID AudioDriver::getCurrentOutputAudioDevice(const suite::Environment& environment) {
  AudioDeviceID device = platform::kAudioObjectUnknown;
  std::uint32_t size_bytes = sizeof device;
  const OSStatus status = environment.host.audioHardware.AudioObjectGetPropertyData(
      platform::kAudioObjectSystemObject,
      globalAddress(platform::kAudioHardwarePropertyDefaultOutputDevice), 0, nullptr, &size_bytes,
      &device);
  return status == noErr ? device : platform::kAudioObjectUnknown;
}

bool AudioDriver::setDeviceAsDefault(const suite::Environment& environment, AudioDeviceID device) {
  return environment.host.audioHardware.AudioHardwareSetProperty(
             platform::kAudioHardwarePropertyDefaultOutputDevice, sizeof device, &device) == noErr;
}

bool AudioDriver::showLoopbackDevice(const suite::Environment& environment, bool show) {
  platform::AudioHardware& hardware = environment.host.audioHardware;
  const AudioDeviceID device = getLoopbackDeviceID(environment);
  if (device == platform::kAudioObjectUnknown) return false;
  AudioObjectID control = platform::kAudioObjectUnknown;
  if (readByLoopbackUID(hardware, device, platform::kAudioObjectPropertyControlList, control) !=
      noErr) {
    return false;
  }
  const std::uint32_t value = show ? kShowDevice : kHideDevice;
  return hardware.AudioObjectSetPropertyData(
             control, globalAddress(platform::kAudioBooleanControlPropertyValue), 0, nullptr,
             sizeof value, &value) == noErr;
}

AudioDriverVersion AudioDriver::parseVersion(const std::string& text) {
  const std::vector<std::int64_t> numbers = numbersIn(text);
  if (numbers.size() != 3) return {};
  return {numbers[0], numbers[1], numbers[2]};
}

std::int64_t AudioDriver::comapreVersion(const AudioDriverVersion& a,
                                         const AudioDriverVersion& withVersion) {
  for (const auto part :
       {&AudioDriverVersion::major, &AudioDriverVersion::minor, &AudioDriverVersion::patch}) {
    if (a.*part < withVersion.*part) return -1;
    if (a.*part > withVersion.*part) return 1;
  }
  return 0;
}

AudioDriverVersion AudioDriver::version(const suite::Environment& environment) {
  const AudioDeviceID device = getLoopbackDeviceID(environment);
  if (device == platform::kAudioObjectUnknown) return {};
  platform::StringRef text = nullptr;
  std::uint32_t size_bytes = sizeof text;
  const OSStatus status = environment.host.audioHardware.AudioDeviceGetProperty(
      device, 0, false, platform::kAudioDevicePropertyDeviceManufacturerCFString, &size_bytes,
      &text);
  const platform::OwnedString owned(status == noErr ? text : nullptr);
  return owned == nullptr ? AudioDriverVersion{} : parseVersion(owned->text());
}

bool AudioDriver::isInstalled(const suite::Environment& environment) {
  return holdsRecentEnoughDriver(environment, kInstalledDriverPath);
}

bool AudioDriver::isLoaded(const suite::Environment& environment) {
  return isRecentEnough(version(environment));
}

int AudioDriver::launchInstallation(const suite::Environment& environment) {
  if (isLoaded(environment)) return AudioDriverInstallLoaded;
  if (isInstalled(environment)) return restartOrNotReady(showRestartNeeded(environment));
  if (!showDriverInstallNeeded(environment)) return AudioDriverInstallNotReady;

  const std::optional<std::string> suitePath = suiteWithDriver(environment);
  const Launch launch = suitePath
                            ? launchInstaller(environment, joined(*suitePath, kInstallerInSuite))
                            : Launch::kFailed;
  if (launch == Launch::kFailed) showFailedAlert(environment);
  if (launch != Launch::kStarted) return AudioDriverInstallNotReady;
  return restartOrNotReady(showInstallationDone(environment));
}

bool AudioDriver::showDriverInstallNeeded(const suite::Environment& environment) {
  return ask(environment, platform::AlertStyle::kWarning,
             "An additional sound driver is required to capture system audio.",
             "Please install this driver and restart the computer when prompted.",
             {"Install", "Cancel"});
}

bool AudioDriver::showRestartNeeded(const suite::Environment& environment) {
  return ask(environment, platform::AlertStyle::kWarning,
             "To capture system audio, you must restart your computer.",
             "Do you want to restart it now?", {"Restart Now", "Restart Later"});
}

void AudioDriver::showFailedAlert(const suite::Environment& environment) {
  static_cast<void>(ask(environment, platform::AlertStyle::kCritical,
                        "The driver required to capture system audio could not be installed.",
                        "Please try again later.", {}));
}

bool AudioDriver::showInstallationDone(const suite::Environment& environment) {
  return ask(environment, platform::AlertStyle::kWarning,
             "Installing the sound driver is almost complete. Please restart your computer for the "
             "changes to take effect.",
             "Do you want to restart it now?", {"Restart Now", "Restart Later"});
}

}  // namespace record_audio
