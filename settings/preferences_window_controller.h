// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "capture/capture_device.h"
#include "settings/level_meter.h"
#include "settings/link_button.h"
#include "settings/preference_keys.h"
#include "suite/korvel_window_controller.h"

namespace record_audio {

// The preferences. Loads them when created, shows them in a window when asked to, and writes every
// change back at once. The recording session reads its settings here. Main thread only, asserted
// in debug builds.
//
// declareInterface() has the names of the outlets and actions for the interface file. The items of
// soundFormatPopUp are m4a and MP3, in this order; those of qualityPopUp are high, medium and low.
class PreferencesWindowController
    : public suite::KorvelWindowController,
      public platform::WindowDelegate,
      public std::enable_shared_from_this<PreferencesWindowController> {
 public:
  // Null when `nibName`, the name of the interface file, is empty. The window is loaded when it is
  // first needed. `onQuit` is called once for every click on Done.
  static std::shared_ptr<PreferencesWindowController> initWithWindowNibName(
      suite::Environment environment, const std::string& nibName,
      std::weak_ptr<suite::ClientProviderProtocol> clientProvider, std::function<void()> onQuit);
  ~PreferencesWindowController() override;

  // 0 none, 1 default input, 2 the microphone audioSourceID(), 3 system audio. Others count as 0.
  [[nodiscard]] std::int64_t audioSourceType() const { return values_.audioSourceType; }
  // Empty unless the type is 2.
  [[nodiscard]] const std::string& audioSourceID() const { return values_.audioSourceID; }
  // 0 high, 1 medium, 2 low. Others count as 0.
  [[nodiscard]] std::uint64_t quality() const { return values_.quality; }
  // 0 m4a, 1 MP3.
  [[nodiscard]] std::uint64_t soundFormat() const { return values_.soundFormat; }
  [[nodiscard]] bool highlightMouseClicks() const { return values_.highlightMouseClicks; }
  // The device to record from; null when there is none for the chosen source.
  [[nodiscard]] platform::CaptureDevicePtr audioCaptureDevice() const;

  // Derived from the quality. Part of the suite's interface; this tool does not call them.
  [[nodiscard]] int fps() const;
  [[nodiscard]] std::string sessionPreset() const;
  [[nodiscard]] float scaleFactor() const;

  // True until the window's first occlusion change.
  [[nodiscard]] bool startup() const { return _startup; }
  // Part of the suite's interface; this tool does not call it.
  void setStartup(bool startup) { _startup = startup; }
  // Whether the window has no check box for mouse clicks. To be set before the window is loaded.
  [[nodiscard]] bool hidesHighlightMouseClicks() const { return _hidesHighlightMouseClicks; }
  void setHidesHighlightMouseClicks(bool hides) { _hidesHighlightMouseClicks = hides; }
  [[nodiscard]] std::weak_ptr<suite::ClientProviderProtocol> clientProvider() const {
    return _clientProvider;
  }
  // Positions in the menu; -1 when the entry is absent.
  [[nodiscard]] std::int64_t indexSameAsSystemSound() const { return _indexSameAsSystemSound; }
  [[nodiscard]] std::int64_t indexSystemAudio() const { return _indexSystemAudio; }
  [[nodiscard]] std::int64_t indexNoSound() const { return _indexNoSound; }
  // The microphones listed in the menu.
  [[nodiscard]] const std::vector<CaptureDevice>& audioDevices() const { return _audioDevices; }

  // `recording` says whether a recording runs, is being started, or waits for its device. While it
  // does, the window's level meter does not use the devices. Without a probe, nothing counts as a
  // recording.
  void setRecordingProbe(std::function<bool()> recording);

  [[nodiscard]] bool hidesPreferencesButton() const override { return true; }
  [[nodiscard]] bool hidesCloseButton() const override { return true; }
  void windowDidBecomeKey() override;
  void windowDidChangeOcclusionState() override;

  // What the controls do. An action whose control is missing does nothing.
  void onAudioSelect();
  void onSoundFormatSelected(platform::View* sender);
  void onQualitySelect();
  void onOutputLocationChanged();
  void onHighlightMouseClicks();
  void onDoneClicked();
  void onOpenPrivacySettings();
  void onRevealOutputFolder();

  void updateOutputLocationText();
  // Builds the audio-source menu again from the connected microphones.
  void enumerateDevices();
  // Shows the stored choice in the menu.
  void select();
  // Undoes the user's pick. If system audio is stored, that becomes "no sound".
  void selectPreviousItem();
  void setAudioParameterType(std::int64_t type, const std::string& id, const std::string& name);
  // Modal. Stores system audio as the source if its driver is usable now or after the restart that
  // the user has agreed to.
  void installDriver();
  // Asks the system to restart. Returns 0, or the status of the first step that failed.
  platform::OSStatus reboot();

 protected:
  void windowDidLoad() override;

 private:
  PreferencesWindowController(suite::Environment environment, const std::string& nibName,
                              std::weak_ptr<suite::ClientProviderProtocol> clientProvider,
                              std::function<void()> onQuit);

  void declareInterface();
  void observeDevices();
  void updateAudioWarning();
  void updateLevelMeter();
  [[nodiscard]] std::int64_t positionOfChosenMicrophone() const;
  [[nodiscard]] std::int64_t positionOfChoice() const;
  void selectMicrophoneAt(std::int64_t position);

  // Writes the value into this tool's slot of the mirror.
  void mirror(const Preference& preference, const platform::Value& value);
  // Writes the preference's current value into the mirror, then into the store.
  void store(const Preference& preference);

  bool _startup = true;
  bool _hidesHighlightMouseClicks = false;
  std::weak_ptr<suite::ClientProviderProtocol> _clientProvider;
  std::weak_ptr<platform::PopUpButton> _audioSource;
  std::weak_ptr<platform::PopUpButton> _soundFormatPopUp;
  std::weak_ptr<platform::PopUpButton> _qualityPopUp;
  std::weak_ptr<suite::OutputLocationButton> _outputLocation;
  std::weak_ptr<platform::CheckBox> _highlightMouseClicksButton;
  std::weak_ptr<platform::TextField> _audioWarning;
  std::vector<CaptureDevice> _audioDevices;
  std::int64_t _indexSameAsSystemSound = -1;
  std::int64_t _indexSystemAudio = -1;
  std::int64_t _indexNoSound = -1;
  std::function<void()> _onQuit;
  PreferenceValues values_;

  std::weak_ptr<platform::LevelIndicator> audioLevel_;
  std::weak_ptr<platform::Button> privacySettingsLink_;
  std::weak_ptr<platform::Button> outputFolderLink_;
  std::vector<std::shared_ptr<LinkButton>> links_;
  std::function<bool()> recordingProbe_;
  // Null until the window is loaded.
  std::unique_ptr<LevelMeter> levelMeter_;
};

}  // namespace record_audio
