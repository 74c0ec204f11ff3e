// SPDX-License-Identifier: MIT
#include <cstddef>

#include "routing/audio_driver.h"
#include "settings/preference_keys.h"
#include "settings/preference_store.h"
#include "settings/preferences_window_controller.h"

// The audio-source half of the preferences controller: the menu, the choice, the device.

namespace record_audio {
namespace {

using platform::AEDesc;
using platform::MediaType;
using platform::noErr;
using platform::OSStatus;

constexpr const char* kNoSoundName = "KCNoSound";
constexpr const char* kSameAsSystemName = "KCSameAsSystem";
constexpr const char* kSystemAudioName = "KCSystemAudio";

}  // namespace

void PreferencesWindowController::enumerateDevices() {
  mainThread().assertHeld();
  _indexSameAsSystemSound = -1;
  _indexSystemAudio = -1;
  _indexNoSound = -1;
  const auto menu = _audioSource.lock();
  if (menu) menu->removeAllItems();
  _audioDevices = CaptureDevice::enumerateMics(host());
  if (menu) {
    const auto addEntry = [&](const char* title) {
      menu->addItem(host().mainBundle.localizedString(title));
      return std::int64_t{menu->numberOfItems()} - 1;
    };
    if (!_audioDevices.empty()) {
      _indexSameAsSystemSound = addEntry("Default input device");
      for (const CaptureDevice& device : _audioDevices) menu->addItem(device.name());
    }
    menu->addSeparator();
    _indexSystemAudio = addEntry("Computer");
    menu->addSeparator();
    _indexNoSound = addEntry("Don't record audio");
  }
  select();
  updateLevelMeter();
}

std::int64_t PreferencesWindowController::positionOfChosenMicrophone() const {
  for (std::size_t i = 0; i < _audioDevices.size(); ++i) {
    if (_audioDevices[i].uniqueId() == values_.audioSourceID) {
      return _indexSameAsSystemSound + static_cast<std::int64_t>(i) + 1;
    }
  }
  return -1;
}

std::int64_t PreferencesWindowController::positionOfChoice() const {
  const std::int64_t systemSound =
      _indexSameAsSystemSound != -1 ? _indexSameAsSystemSound : _indexNoSound;
  switch (values_.audioSourceType) {
    case kMicrophoneSource: {
      const std::int64_t found = positionOfChosenMicrophone();
      return found != -1 ? found : systemSound;
    }
    case kSameAsSystemSource:
      return systemSound;
    case kSystemAudioSource:
      return _indexSystemAudio;
    default:
      return _indexNoSound;
  }
}

void PreferencesWindowController::select() {
  if (const auto menu = _audioSource.lock()) menu->selectItem(positionOfChoice());
}

void PreferencesWindowController::onAudioSelect() {
  const auto menu = _audioSource.lock();
  if (!menu) return;
  const std::int64_t position = menu->indexOfSelectedItem();
  // -1 means that nothing is selected. It is also the position of an absent entry.
  if (position < 0) return;
  if (position == _indexNoSound) {
    setAudioParameterType(kNoSoundSource, "", kNoSoundName);
  } else if (position == _indexSystemAudio) {
    installDriver();
  } else if (position == _indexSameAsSystemSound) {
    setAudioParameterType(kSameAsSystemSource, "", kSameAsSystemName);
  } else {
    selectMicrophoneAt(position);
  }
}

void PreferencesWindowController::selectMicrophoneAt(std::int64_t position) {
  const std::int64_t index = position - (_indexSameAsSystemSound + 1);
  if (index < 0 || index >= static_cast<std::int64_t>(_audioDevices.size())) return;
  const std::string id = _audioDevices[static_cast<std::size_t>(index)].uniqueId();
  // In the mirror a microphone's name is its id: the suite's other tools look it up by that.
  setAudioParameterType(kMicrophoneSource, id, id);
}

void PreferencesWindowController::setAudioParameterType(std::int64_t type, const std::string& id,
                                                        const std::string& name) {
  mainThread().assertHeld();
  values_.audioSourceType = type;
  values_.audioSourceID = id;
  mirror(kAudioSourceTypePreference, name);
  storePreference(host().userDefaults, kAudioSourceTypePreference, values_);
  storePreference(host().userDefaults, kAudioSourceIDPreference, values_);
  host().userDefaults.synchronize();
  updateLevelMeter();
}

void PreferencesWindowController::installDriver() {
  const int result = AudioDriver::launchInstallation(environment());
  switch (result) {
    case AudioDriverInstallLoaded:
      setAudioParameterType(kSystemAudioSource, "", kSystemAudioName);
      break;
    case AudioDriverInstallRestart:
      setAudioParameterType(kSystemAudioSource, "", kSystemAudioName);
      reboot();
      break;
    case AudioDriverInstallNotReady:
      selectPreviousItem();
      break;
    default:
      break;
  }
}

void PreferencesWindowController::selectPreviousItem() {
  if (values_.audioSourceType != kSystemAudioSource) {
    select();
    return;
  }
  setAudioParameterType(kNoSoundSource, "", kNoSoundName);
  if (const auto menu = _audioSource.lock()) menu->selectItem(_indexNoSound);
}

OSStatus PreferencesWindowController::reboot() {
  platform::AppleEvents& events = host().appleEvents;
  const platform::ProcessSerialNumber system{0, platform::kSystemProcess};
  AEDesc target;
  OSStatus status =
      events.AECreateDesc(platform::typeProcessSerialNumber, &system, sizeof system, &target);
  if (status != noErr) return status;

  AEDesc event;
  status = events.AECreateAppleEvent(platform::kCoreEventClass, platform::kAERestart, &target,
                                     platform::kAutoGenerateReturnID, platform::kAnyTransactionID,
                                     &event);
  events.AEDisposeDesc(&target);
  if (status != noErr) return status;

  AEDesc reply;
  status = events.AESend(&event, &reply, platform::kAENoReply, platform::kAENormalPriority,
                         platform::kAEDefaultTimeout);
  events.AEDisposeDesc(&event);
  if (status == noErr) events.AEDisposeDesc(&reply);
  return status;
}

platform::CaptureDevicePtr PreferencesWindowController::audioCaptureDevice() const {
  mainThread().assertHeld();
  platform::Capture& capture = host().capture;
  const auto microphones = CaptureDevice::enumerateMics(host());
  if (microphones.empty()) return nullptr;
  switch (values_.audioSourceType) {
    case kSameAsSystemSource:
      return capture.defaultDeviceWithMediaType(MediaType::kAudio);
    case kMicrophoneSource:
      for (const CaptureDevice& microphone : microphones) {
        if (microphone.uniqueId() == values_.audioSourceID) {
          return capture.deviceWithUniqueID(values_.audioSourceID);
        }
      }
      return capture.defaultDeviceWithMediaType(MediaType::kAudio);
    case kSystemAudioSource:
      for (const auto& device : capture.devicesWithMediaType(MediaType::kAudio)) {
        if (device->uniqueID() == kLoopbackDeviceUID) return device;
      }
      return nullptr;
    default:
      return nullptr;
  }
}

}  // namespace record_audio
