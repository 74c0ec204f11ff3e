// SPDX-License-Identifier: MIT
#include "settings/preferences_window_controller.h"

#include <iterator>
#include <optional>
#include <utility>

#include "settings/preference_store.h"
#include "shared/auxiliary.h"

namespace record_audio {
namespace {

using platform::MediaType;
using platform::Value;

struct QualityEntry {
  int fps;
  const char* sessionPreset;
  float scaleFactor;
};

constexpr QualityEntry kQualities[] = {
    {30, platform::kCaptureSessionPresetHigh, 1.0F},
    {24, platform::kCaptureSessionPresetMedium, 0.70710677F},
    {18, platform::kCaptureSessionPresetLow, 0.5F},
};

const QualityEntry& qualityEntry(std::uint64_t quality) {
  return kQualities[quality < std::size(kQualities) ? quality : 0];
}

// Null when nothing is selected.
std::optional<std::uint64_t> selectedCode(const platform::PopUpButton& popUp) {
  const int index = popUp.indexOfSelectedItem();
  return index < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(index));
}

void selectCode(const std::weak_ptr<platform::PopUpButton>& popUp, std::uint64_t code) {
  if (const auto control = popUp.lock()) control->selectItem(static_cast<std::int64_t>(code));
}

}  // namespace

std::shared_ptr<PreferencesWindowController> PreferencesWindowController::initWithWindowNibName(
    suite::Environment environment, const std::string& nibName,
    std::weak_ptr<suite::ClientProviderProtocol> clientProvider, std::function<void()> onQuit) {
  if (nibName.empty()) return nullptr;
  return std::shared_ptr<PreferencesWindowController>(new PreferencesWindowController(
      environment, nibName, std::move(clientProvider), std::move(onQuit)));
}

PreferencesWindowController::PreferencesWindowController(
    suite::Environment environment, const std::string& nibName,
    std::weak_ptr<suite::ClientProviderProtocol> clientProvider, std::function<void()> onQuit)
    : KorvelWindowController(environment, nibName),
      _clientProvider(std::move(clientProvider)),
      _onQuit(std::move(onQuit)),
      values_(loadPreferences(host().userDefaults)) {
  declareInterface();
  observeDevices();
}

PreferencesWindowController::~PreferencesWindowController() {
  host().notificationCenter.removeObserver(this);
}

void PreferencesWindowController::declareInterface() {
  addOutlet("audioSource", _audioSource);
  addOutlet("soundFormatPopUp", _soundFormatPopUp);
  addOutlet("qualityPopUp", _qualityPopUp);
  addOutlet("outputLocation", _outputLocation);
  addOutlet("highlightMouseClicksButton", _highlightMouseClicksButton);
  addOutlet("audioWarning", _audioWarning);
  addOutlet("audioLevel", audioLevel_);
  addOutlet("privacySettingsLink", privacySettingsLink_);
  addOutlet("outputFolderLink", outputFolderLink_);

  addAction("onAudioSelect", [this](platform::View*) { onAudioSelect(); });
  addAction("onSoundFormatSelected",
            [this](platform::View* sender) { onSoundFormatSelected(sender); });
  addAction("onQualitySelect", [this](platform::View*) { onQualitySelect(); });
  addAction("onOutputLocationChanged", [this](platform::View*) { onOutputLocationChanged(); });
  addAction("onHighlightMouseClicks", [this](platform::View*) { onHighlightMouseClicks(); });
  addAction("onDoneClicked", [this](platform::View*) { onDoneClicked(); });
  addAction("onOpenPrivacySettings", [this](platform::View*) { onOpenPrivacySettings(); });
  addAction("onRevealOutputFolder", [this](platform::View*) { onRevealOutputFolder(); });
}

void PreferencesWindowController::observeDevices() {
  for (const char* name : {platform::kCaptureDeviceWasConnectedNotification,
                           platform::kCaptureDeviceWasDisconnectedNotification}) {
    host().notificationCenter.addObserver(
        this, name, [this](const platform::Notification&) { enumerateDevices(); });
  }
}

void PreferencesWindowController::windowDidLoad() {
  KorvelWindowController::windowDidLoad();
  for (const auto& button : {privacySettingsLink_.lock(), outputFolderLink_.lock()}) {
    if (!button) continue;
    links_.push_back(LinkButton::initWithButton(host(), button));
    links_.back()->awakeFromNib();
  }
  window()->setDelegate(weak_from_this());
  selectCode(_soundFormatPopUp, values_.soundFormat);
  selectCode(_qualityPopUp, values_.quality);
  if (const auto checkBox = _highlightMouseClicksButton.lock()) {
    if (_hidesHighlightMouseClicks) {
      checkBox->removeFromSuperview();
    } else {
      checkBox->setState(values_.highlightMouseClicks);
    }
  }
  levelMeter_ = std::make_unique<LevelMeter>(
      environment(), audioLevel_, [this] { return audioCaptureDevice(); },
      [this] { return recordingProbe_ && recordingProbe_(); });
  enumerateDevices();
  updateOutputLocationText();
  updateAudioWarning();
}

void PreferencesWindowController::windowDidBecomeKey() {
  mainThread().assertHeld();
  updateAudioWarning();
  updateOutputLocationText();
  updateLevelMeter();
}

void PreferencesWindowController::windowDidChangeOcclusionState() {
  mainThread().assertHeld();
  if (isWindowVisible() && values_.audioSourceType == kSystemAudioSource && _startup) {
    // From the run loop, so that the window is on the screen before a dialog covers it.
    host().runLoop.performAfterDelay(0, [weak = weak_from_this()] {
      if (const auto controller = weak.lock()) controller->installDriver();
    });
  }
  _startup = false;
  // Nobody looks at the level of a window that others cover.
  if (levelMeter_) levelMeter_->setVisible(isWindowVisible() && !window()->isOccluded());
}

void PreferencesWindowController::updateAudioWarning() {
  const bool granted = Auxiliary::getStatusOfMediaType(host(), MediaType::kAudio);
  if (const auto warning = _audioWarning.lock()) warning->setHidden(granted);
  if (const auto link = privacySettingsLink_.lock()) link->setHidden(granted);
}

void PreferencesWindowController::updateLevelMeter() {
  if (levelMeter_) levelMeter_->update();
}

void PreferencesWindowController::updateOutputLocationText() {
  mainThread().assertHeld();
  if (const auto outputLocation = _outputLocation.lock()) outputLocation->updateState();
}

void PreferencesWindowController::onSoundFormatSelected(platform::View* sender) {
  const auto* popUp = dynamic_cast<platform::PopUpButton*>(sender);
  const auto code = popUp != nullptr ? selectedCode(*popUp) : std::nullopt;
  if (!code) return;
  values_.soundFormat = *code;
  store(kSoundFormatPreference);
}

void PreferencesWindowController::onQualitySelect() {
  const auto popUp = _qualityPopUp.lock();
  const auto code = popUp ? selectedCode(*popUp) : std::nullopt;
  if (!code) return;
  values_.quality = *code;
  store(kQualityPreference);
  host().userDefaults.synchronize();
}

void PreferencesWindowController::onHighlightMouseClicks() {
  const auto checkBox = _highlightMouseClicksButton.lock();
  if (!checkBox) return;
  values_.highlightMouseClicks = checkBox->state();
  store(kHighlightMouseClicksPreference);
  host().userDefaults.synchronize();
}

void PreferencesWindowController::onOutputLocationChanged() {
  const auto outputLocation = _outputLocation.lock();
  if (!outputLocation) return;
  // The user may take long, and this controller may be gone by then; the suite is not.
  outputLocation->handleOutputLocationChanged(
      [services = environment()](bool success, int, const std::optional<std::string>& message,
                                 const platform::Dictionary& details) {
        if (!success && message) services.suite.logging.VKLogVariadic("%@", {*message});
        services.suite.korvelCommon.CEP().log("OutputLocation", std::nullopt, details);
      });
}

void PreferencesWindowController::onDoneClicked() {
  // The callback may release this controller.
  const auto self = shared_from_this();
  if (isWindowLoaded()) window()->orderOut();
  if (levelMeter_) levelMeter_->setVisible(isWindowVisible());
  if (_onQuit) _onQuit();
}

void PreferencesWindowController::onOpenPrivacySettings() {
  if (host().workspace.openPrivacySettings()) return;
  environment().suite.logging.VKLogVariadic(
      "Can't open the privacy settings. Open the settings of your desktop by hand.", {});
}

void PreferencesWindowController::onRevealOutputFolder() {
  const auto folder = environment().suite.locationManager.locationForCurrentTool();
  if (!folder) {
    environment().suite.logging.VKLogVariadic(
        "Can't show the output folder: there is none that can be written. Choose another one.", {});
    return;
  }
  if (host().workspace.openFile(*folder)) return;
  environment().suite.logging.VKLogVariadic(
      "Can't show the output folder \"%@\": nothing here opens folders. Install a file manager.",
      {*folder});
}

int PreferencesWindowController::fps() const {
  return qualityEntry(values_.quality).fps;
}

std::string PreferencesWindowController::sessionPreset() const {
  return qualityEntry(values_.quality).sessionPreset;
}

float PreferencesWindowController::scaleFactor() const {
  return qualityEntry(values_.quality).scaleFactor;
}

void PreferencesWindowController::setRecordingProbe(std::function<bool()> recording) {
  recordingProbe_ = std::move(recording);
}

void PreferencesWindowController::mirror(const Preference& preference, const Value& value) {
  mainThread().assertHeld();
  Auxiliary::setQuickLookParametersObject(host(), value, preference.mirrorKey);
}

void PreferencesWindowController::store(const Preference& preference) {
  mainThread().assertHeld();
  mirror(preference, mirroredValue(preference, values_));
  storePreference(host().userDefaults, preference, values_);
}

}  // namespace record_audio
