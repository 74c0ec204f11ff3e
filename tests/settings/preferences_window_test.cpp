// SPDX-License-Identifier: MIT
#include <limits>

#include "platform/file_url.h"
#include "tests/settings/preferences_fixture.h"

namespace record_audio {
namespace {

using platform::AuthorizationStatus;
using platform::Dictionary;
using platform::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PreferencesWindowTest : public PreferencesTest {};

TEST_F(PreferencesWindowTest, TakesTheDefaultsWhenNothingIsStored) {
  const auto controller = makeController();
  EXPECT_EQ(controller->audioSourceType(), 1);
  EXPECT_EQ(controller->audioSourceID(), "");
  EXPECT_EQ(controller->soundFormat(), 0U);
  EXPECT_EQ(controller->quality(), 0U);
  EXPECT_FALSE(controller->highlightMouseClicks());
  EXPECT_TRUE(controller->startup());
  EXPECT_FALSE(controller->hidesHighlightMouseClicks());
}

TEST_F(PreferencesWindowTest, LoadsWhatIsStored) {
  stored() = {{"AudioSourceType", 2},
              {"AudioSourceID", "mic-7"},
              {"SoundFormat", 1},
              {"Quality", 2},
              {"HihglightMouseClicks", true}};
  const auto controller = makeController();
  EXPECT_EQ(controller->audioSourceType(), 2);
  EXPECT_EQ(controller->audioSourceID(), "mic-7");
  EXPECT_EQ(controller->soundFormat(), 1U);
  EXPECT_EQ(controller->quality(), 2U);
  EXPECT_TRUE(controller->highlightMouseClicks());
}

// Existing installations store it under this key.
TEST_F(PreferencesWindowTest, ReadsTheSwappedSpellingOfTheMouseClickKeyOnly) {
  stored() = {{"HighlightMouseClicks", true}};
  EXPECT_FALSE(makeController()->highlightMouseClicks());
}

// Only an absent key has a default; the store converts everything else.
TEST_F(PreferencesWindowTest, ReadsValuesOfOtherTypesByConversionInsteadOfTheDefault) {
  stored() = {{"AudioSourceType", "loud"},
              {"AudioSourceID", 12},
              {"SoundFormat", "1"},
              {"Quality", Dictionary()},
              {"HihglightMouseClicks", "YES"}};
  const auto controller = makeController();
  EXPECT_EQ(controller->audioSourceType(), 0);
  EXPECT_EQ(controller->audioSourceID(), "12");
  EXPECT_EQ(controller->soundFormat(), 1U);
  EXPECT_EQ(controller->quality(), 0U);
  EXPECT_TRUE(controller->highlightMouseClicks());
}

TEST_F(PreferencesWindowTest, TakesAnIdThatIsNotATextForEmpty) {
  stored() = {{"AudioSourceID", Dictionary()}};
  EXPECT_EQ(makeController()->audioSourceID(), "");
}

TEST_F(PreferencesWindowTest, ReadsTheStoreOnlyWhenItIsCreated) {
  const auto controller = makeController();
  stored()["Quality"] = 2;
  controller->showWindow();
  EXPECT_EQ(controller->quality(), 0U);
}

TEST_F(PreferencesWindowTest, WritesNothingByBeingCreatedOrShown) {
  machine_.capture.connect("mic", "Mic");
  showController();
  EXPECT_THAT(storeJournal(), IsEmpty());
}

TEST_F(PreferencesWindowTest, IsNotCreatedWithoutAnInterfaceFileName) {
  EXPECT_EQ(PreferencesWindowController::initWithWindowNibName(machine_.environment, "", {}, {}),
            nullptr);
}

class Provider : public suite::ClientProviderProtocol {
 public:
  [[nodiscard]] std::shared_ptr<suite::ToolDataClientProvider> provider() const override {
    return nullptr;
  }
};

TEST_F(PreferencesWindowTest, KeepsTheClientProviderWeakly) {
  auto provider = std::make_shared<Provider>();
  const auto controller = PreferencesWindowController::initWithWindowNibName(
      machine_.environment, "AudioPreferencesWindow", provider, {});
  EXPECT_EQ(controller->clientProvider().lock(), provider);
  EXPECT_EQ(provider.use_count(), 1);
  provider.reset();
  EXPECT_TRUE(controller->clientProvider().expired());
}

TEST_F(PreferencesWindowTest, LoadsNoWindowUntilItIsAskedForOne) {
  const auto controller = makeController();
  machine_.capture.connect("mic", "Mic");
  EXPECT_NE(controller->audioCaptureDevice(), nullptr);
  EXPECT_FALSE(controller->isWindowVisible());
  EXPECT_FALSE(controller->isWindowLoaded());
  EXPECT_THAT(machine_.interfaceLoader.loaded, IsEmpty());
  EXPECT_THAT(machine_.capture.monitoringSessions, IsEmpty());
}

TEST_F(PreferencesWindowTest, HidesTheSuitesOwnTitleBarButtons) {
  const auto controller = showController();
  EXPECT_TRUE(controller->hidesPreferencesButton());
  EXPECT_TRUE(controller->hidesCloseButton());
  EXPECT_FALSE(shown().window->hasPreferencesButton);
  EXPECT_FALSE(shown().window->hasCloseButton);
}

TEST_F(PreferencesWindowTest, ShowsTheFirstFormatAndQualityWhenNothingIsStored) {
  const auto controller = showController();
  EXPECT_EQ(shown().soundFormatPopUp->selectedTitle(), "m4a");
  EXPECT_EQ(shown().qualityPopUp->selectedTitle(), "High");
  EXPECT_FALSE(shown().highlightMouseClicksButton->checked);
}

TEST_F(PreferencesWindowTest, ShowsTheStoredFormatQualityAndCheckBox) {
  stored() = {{"SoundFormat", 1}, {"Quality", 2}, {"HihglightMouseClicks", 1}};
  const auto controller = showController();
  EXPECT_EQ(shown().soundFormatPopUp->selectedTitle(), "MP3");
  EXPECT_EQ(shown().qualityPopUp->selectedTitle(), "Low");
  EXPECT_TRUE(shown().highlightMouseClicksButton->checked);
}

TEST_F(PreferencesWindowTest, UnchecksTheBoxThatTheInterfaceFileHasChecked) {
  const auto controller = makeController();
  const auto recipe = machine_.interfaceLoader.recipe;
  machine_.interfaceLoader.recipe = [&](const std::string& name, platform::InterfaceOwner& owner) {
    auto window = recipe(name, owner);
    shown().highlightMouseClicksButton->checked = true;
    return window;
  };
  controller->showWindow();
  EXPECT_FALSE(shown().highlightMouseClicksButton->checked);
}

class StoredIndexTest : public PreferencesTest, public testing::WithParamInterface<std::int64_t> {};

TEST_P(StoredIndexTest, OutOfRangeSelectsNothingAndIsKept) {
  stored() = {{"SoundFormat", GetParam()}, {"Quality", GetParam()}};
  const auto controller = showController();
  EXPECT_EQ(shown().soundFormatPopUp->selected, -1);
  EXPECT_EQ(shown().qualityPopUp->selected, -1);
  EXPECT_THAT(shown().soundFormatPopUp->selections, ElementsAre(GetParam()));
  EXPECT_EQ(controller->soundFormat(), static_cast<std::uint64_t>(GetParam()));
  EXPECT_EQ(controller->quality(), static_cast<std::uint64_t>(GetParam()));
  EXPECT_EQ(controller->fps(), 30);
  EXPECT_EQ(controller->sessionPreset(), "AVCaptureSessionPresetHigh");
  EXPECT_EQ(controller->scaleFactor(), 1.0F);
}

TEST_P(StoredIndexTest, OutOfRangeIsNotOverwrittenByAnActionThatSelectsNothing) {
  stored() = {{"SoundFormat", GetParam()}, {"Quality", GetParam()}};
  const auto controller = showController();
  controller->onSoundFormatSelected(shown().soundFormatPopUp.get());
  controller->onQualitySelect();
  EXPECT_THAT(storeJournal(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Indexes, StoredIndexTest,
                         testing::Values(3, 99, -1, std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min()));

// Nothing in this tool calls these; they are common to the suite's controllers.
TEST_F(PreferencesWindowTest, DerivesFrameRatePresetAndScaleFromTheQuality) {
  struct Row {
    int quality;
    int fps;
    const char* preset;
    float scale;
  };
  for (const Row& row : {Row{0, 30, "AVCaptureSessionPresetHigh", 1.0F},
                         Row{1, 24, "AVCaptureSessionPresetMedium", 0.70710677F},
                         Row{2, 18, "AVCaptureSessionPresetLow", 0.5F},
                         Row{3, 30, "AVCaptureSessionPresetHigh", 1.0F}}) {
    stored()["Quality"] = row.quality;
    const auto controller = makeController();
    EXPECT_EQ(controller->fps(), row.fps);
    EXPECT_EQ(controller->sessionPreset(), row.preset);
    EXPECT_EQ(controller->scaleFactor(), row.scale);
  }
}

TEST_F(PreferencesWindowTest, DerivesThemAgainAfterTheQualityHasChanged) {
  const auto controller = showController();
  shown().pickQuality(2);
  EXPECT_EQ(controller->fps(), 18);
}

TEST_F(PreferencesWindowTest, RemovesTheCheckBoxWhenItIsToBeHidden) {
  stored() = {{"HihglightMouseClicks", true}};
  const auto controller = makeController();
  controller->setHidesHighlightMouseClicks(true);
  controller->showWindow();
  EXPECT_TRUE(shown().highlightMouseClicksButton->removed);
  EXPECT_FALSE(shown().highlightMouseClicksButton->checked);
}

TEST_F(PreferencesWindowTest, KeepsTheCheckBoxByDefault) {
  const auto controller = showController();
  EXPECT_FALSE(shown().highlightMouseClicksButton->removed);
}

// The store saves it by itself.
TEST_F(PreferencesWindowTest, MirrorsTheFormatThenStoresItWithoutAFlushOfItsOwn) {
  const auto controller = showController();
  shown().pickSoundFormat(1);
  EXPECT_EQ(controller->soundFormat(), 1U);
  EXPECT_EQ(mirrored("SoundFormat"), Value(std::uint64_t{1}));
  EXPECT_EQ(stored()["SoundFormat"], Value(1));
  EXPECT_THAT(storeJournal(), ElementsAre("QuickLook", "synchronize", "SoundFormat"));
  EXPECT_FALSE(machine_.userDefaults.onDisk.contains("SoundFormat"));
}

TEST_F(PreferencesWindowTest, TakesTheFormatFromTheSender) {
  interface_.missingOutlets = {"soundFormatPopUp"};
  const auto controller = showController();
  shown().pickSoundFormat(1);
  EXPECT_EQ(controller->soundFormat(), 1U);
}

TEST_F(PreferencesWindowTest, IgnoresAFormatFromASenderThatIsNotAPopUp) {
  const auto controller = showController();
  controller->performAction("onSoundFormatSelected", nullptr);
  controller->performAction("onSoundFormatSelected", shown().audioWarning.get());
  EXPECT_THAT(storeJournal(), IsEmpty());
}

TEST_F(PreferencesWindowTest, MirrorsTheQualityThenStoresAndFlushesIt) {
  const auto controller = showController();
  shown().pickQuality(2);
  EXPECT_EQ(controller->quality(), 2U);
  EXPECT_EQ(mirrored("Quality"), Value(std::uint64_t{2}));
  EXPECT_EQ(stored()["Quality"], Value(2));
  EXPECT_THAT(storeJournal(), ElementsAre("QuickLook", "synchronize", "Quality", "synchronize"));
  EXPECT_EQ(machine_.userDefaults.onDisk["Quality"], Value(2));
}

// Existing installations have one spelling in the store; the suite's other tools read the other.
TEST_F(PreferencesWindowTest, MirrorsTheCheckBoxUnderOneSpellingAndStoresItUnderTheOther) {
  const auto controller = showController();
  shown().clickHighlightMouseClicks();
  EXPECT_TRUE(controller->highlightMouseClicks());
  EXPECT_EQ(mirrored("HighlightMouseClicks"), Value(true));
  EXPECT_EQ(stored()["HihglightMouseClicks"], Value(true));
  EXPECT_FALSE(stored().contains("HighlightMouseClicks"));
  EXPECT_TRUE(mirrored("HihglightMouseClicks").isNull());
  EXPECT_THAT(storeJournal(),
              ElementsAre("QuickLook", "synchronize", "HihglightMouseClicks", "synchronize"));
  shown().clickHighlightMouseClicks();
  EXPECT_FALSE(controller->highlightMouseClicks());
  EXPECT_EQ(stored()["HihglightMouseClicks"], Value(false));
}

TEST_F(PreferencesWindowTest, StoresWithoutMirroringWhereTheBundleAllowsNoMirror) {
  machine_.mainBundle.info = Dictionary();
  const auto controller = showController();
  shown().pickSoundFormat(1);
  shown().pickQuality(1);
  shown().clickHighlightMouseClicks();
  EXPECT_FALSE(stored().contains("QuickLook"));
  EXPECT_EQ(stored()["SoundFormat"], Value(1));
  EXPECT_EQ(stored()["Quality"], Value(1));
  EXPECT_EQ(stored()["HihglightMouseClicks"], Value(true));
}

TEST_F(PreferencesWindowTest, ShowsTheFolderAfterEverythingElseAndBeforeTheWarningWhenLoaded) {
  stored() = {{"Quality", 2}};
  int updates = 0;
  interface_.onLoad = [&](memory_host::MemoryPreferencesWindow& loading) {
    loading.outputLocation->onUpdate = [&] {
      ++updates;
      EXPECT_NE(loading.window->delegate.lock(), nullptr);
      EXPECT_EQ(loading.qualityPopUp->selectedTitle(), "Low");
      EXPECT_EQ(loading.audioSource->selectedTitle(), "Don't record audio");
      EXPECT_FALSE(loading.audioWarning->hidden);
    };
  };
  const auto controller = makeController();
  controller->window();
  EXPECT_EQ(updates, 1);
  EXPECT_TRUE(shown().audioWarning->hidden);
}

TEST_F(PreferencesWindowTest, ShowsTheWarningBeforeTheFolderWhenKey) {
  const auto controller = makeController();
  controller->window();
  ASSERT_TRUE(shown().audioWarning->hidden);
  machine_.capture.authorization = platform::AuthorizationStatus::kDenied;
  int updates = 0;
  shown().outputLocation->onUpdate = [&] {
    ++updates;
    EXPECT_FALSE(shown().audioWarning->hidden);
  };
  shown().window->becomeKey();
  EXPECT_EQ(updates, 1);
}

TEST_F(PreferencesWindowTest, RefreshesTheOutputFolderWhenLoadedAndWhenKey) {
  const auto controller = makeController();
  controller->window();
  EXPECT_EQ(shown().outputLocation->updates, 1);
  shown().window->becomeKey();
  EXPECT_EQ(shown().outputLocation->updates, 2);
}

// The folder is the suite's, not one of this tool's preferences.
TEST_F(PreferencesWindowTest, LogsAChangedOutputFolderAsAnEventWithoutPreferences) {
  const auto controller = showController();
  shown().clickOutputLocation();
  EXPECT_THAT(machine_.suite.events, IsEmpty());
  shown().outputLocation->answer(true, 0, std::nullopt, {{"Folder", "custom"}});
  ASSERT_THAT(machine_.suite.events, SizeIs(1));
  EXPECT_EQ(machine_.suite.events[0].name, "OutputLocation");
  EXPECT_EQ(machine_.suite.events[0].prefs, std::nullopt);
  EXPECT_EQ(machine_.suite.events[0].details, (Dictionary{{"Folder", "custom"}}));
  EXPECT_THAT(machine_.suite.logLines, IsEmpty());
}

TEST_F(PreferencesWindowTest, LogsTheMessageOfAFailedFolderChangeAndTheEvent) {
  const auto controller = showController();
  shown().clickOutputLocation();
  shown().outputLocation->answer(false, 13, "100 %@ read-only", {});
  EXPECT_THAT(machine_.suite.logFormats, ElementsAre("%@"));
  EXPECT_THAT(machine_.suite.logLines, ElementsAre("100 %@ read-only"));
  EXPECT_THAT(machine_.suite.eventNames(), ElementsAre("OutputLocation"));
}

TEST_F(PreferencesWindowTest, LogsNoMessageOfAFolderChangeThatWorkedOrHasNone) {
  const auto controller = showController();
  shown().clickOutputLocation();
  shown().outputLocation->answer(false, 1, std::nullopt, {});
  shown().clickOutputLocation();
  shown().outputLocation->answer(true, 0, "fine", {});
  EXPECT_THAT(machine_.suite.logLines, IsEmpty());
  EXPECT_THAT(machine_.suite.eventNames(), ElementsAre("OutputLocation", "OutputLocation"));
}

TEST_F(PreferencesWindowTest, LogsAFolderChangeThatEndsAfterTheController) {
  auto controller = showController();
  shown().clickOutputLocation();
  controller.reset();
  shown().outputLocation->answer(false, 1, "gone", {});
  EXPECT_THAT(machine_.suite.logLines, ElementsAre("gone"));
  EXPECT_THAT(machine_.suite.eventNames(), ElementsAre("OutputLocation"));
}

TEST_F(PreferencesWindowTest, HidesTheWindowAndQuitsOnceForEachClickOnDone) {
  const auto controller = showController();
  shown().clickDone();
  EXPECT_FALSE(controller->isWindowVisible());
  EXPECT_EQ(quits_, 1);
  controller->showWindow();
  shown().clickDone();
  EXPECT_EQ(quits_, 2);
  EXPECT_THAT(interface_.windows, SizeIs(1));
}

TEST_F(PreferencesWindowTest, HidesTheWindowBeforeItQuits) {
  bool visibleAtQuit = true;
  std::shared_ptr<PreferencesWindowController> controller;
  controller = PreferencesWindowController::initWithWindowNibName(
      machine_.environment, "AudioPreferencesWindow", {},
      [&] { visibleAtQuit = controller->isWindowVisible(); });
  controller->showWindow();
  shown().clickDone();
  EXPECT_FALSE(visibleAtQuit);
}

TEST_F(PreferencesWindowTest, SurvivesAQuitCallbackThatReleasesIt) {
  std::shared_ptr<PreferencesWindowController> controller;
  controller = PreferencesWindowController::initWithWindowNibName(
      machine_.environment, "AudioPreferencesWindow", {}, [&] { controller.reset(); });
  controller->showWindow();
  const auto window = interface_.windows.back();
  window->clickDone();
  EXPECT_EQ(controller, nullptr);
}

TEST_F(PreferencesWindowTest, NeedsNoQuitBlock) {
  const auto controller = PreferencesWindowController::initWithWindowNibName(
      machine_.environment, "AudioPreferencesWindow", {}, {});
  controller->showWindow();
  shown().clickDone();
  EXPECT_FALSE(controller->isWindowVisible());
}

class WarningTest : public PreferencesTest, public testing::WithParamInterface<int> {};

TEST_P(WarningTest, ShowsUnlessAccessIsGranted) {
  const auto status = static_cast<AuthorizationStatus>(GetParam());
  machine_.capture.authorization = status;
  const auto controller = makeController();
  controller->window();
  EXPECT_EQ(shown().audioWarning->hidden, status == AuthorizationStatus::kAuthorized);
  EXPECT_EQ(shown().privacySettingsLink->hidden, status == AuthorizationStatus::kAuthorized);
}

INSTANTIATE_TEST_SUITE_P(EveryStatus, WarningTest, testing::Range(0, 4));

TEST_F(PreferencesWindowTest, HidesTheWarningAsSoonAsItIsKeyAfterAccessWasGranted) {
  machine_.capture.authorization = AuthorizationStatus::kDenied;
  const auto controller = showController();
  EXPECT_FALSE(shown().audioWarning->hidden);
  machine_.capture.authorization = AuthorizationStatus::kAuthorized;
  EXPECT_FALSE(shown().audioWarning->hidden);
  shown().window->becomeKey();
  EXPECT_TRUE(shown().audioWarning->hidden);
  EXPECT_TRUE(shown().privacySettingsLink->hidden);
}

TEST_F(PreferencesWindowTest, ShowsTheWarningAgainAfterAccessWasWithdrawn) {
  const auto controller = showController();
  machine_.capture.authorization = AuthorizationStatus::kDenied;
  shown().window->becomeKey();
  EXPECT_FALSE(shown().audioWarning->hidden);
}

TEST_F(PreferencesWindowTest, OpensThePrivacySettings) {
  const auto controller = showController();
  shown().clickPrivacySettings();
  EXPECT_EQ(machine_.workspace.privacySettingsOpened, 1);
  EXPECT_THAT(machine_.suite.logLines, IsEmpty());
}

TEST_F(PreferencesWindowTest, LogsThatTheDesktopHasNoPrivacySettings) {
  machine_.workspace.hasPrivacySettings = false;
  const auto controller = showController();
  shown().clickPrivacySettings();
  EXPECT_THAT(machine_.suite.logLines, SizeIs(1));
}

// Not the folder above it, with this one selected.
TEST_F(PreferencesWindowTest, OpensTheOutputFolder) {
  machine_.suite.location = "/home/user/My Music";
  machine_.fileManager.folders.insert("/home/user/My Music");
  const auto controller = showController();
  shown().clickOutputFolder();
  EXPECT_THAT(machine_.workspace.opened, ElementsAre("/home/user/My Music"));
  EXPECT_THAT(machine_.workspace.revealed, IsEmpty());
  EXPECT_THAT(machine_.suite.logLines, IsEmpty());
}

TEST_F(PreferencesWindowTest, LogsThatThereIsNoOutputFolderToOpen) {
  machine_.suite.location.reset();
  const auto controller = showController();
  shown().clickOutputFolder();
  EXPECT_THAT(machine_.workspace.opened, IsEmpty());
  EXPECT_THAT(machine_.suite.logLines, SizeIs(1));
}

TEST_F(PreferencesWindowTest, LogsThatNothingOpensTheOutputFolder) {
  machine_.suite.location = "/home/user/Music";
  machine_.workspace.hasApplications = false;
  const auto controller = showController();
  shown().clickOutputFolder();
  EXPECT_THAT(machine_.suite.logLines, ElementsAre(testing::HasSubstr("/home/user/Music")));
}

TEST_F(PreferencesWindowTest, ClearsStartupAtTheFirstOcclusionChangeAndForGood) {
  const auto controller = makeController();
  controller->window();
  EXPECT_TRUE(controller->startup());
  controller->showWindow();
  EXPECT_FALSE(controller->startup());
  shown().window->orderOut();
  controller->showWindow();
  EXPECT_FALSE(controller->startup());
}

TEST_F(PreferencesWindowTest, WorksWithoutAScreen) {
  interface_.hasScreen = false;
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  EXPECT_EQ(controller->window(), nullptr);
  EXPECT_FALSE(controller->isWindowVisible());
  EXPECT_FALSE(controller->isWindowLoaded());
  for (const std::string& action : controller->actionNames()) {
    controller->performAction(action, nullptr);
  }
  controller->enumerateDevices();
  controller->windowDidBecomeKey();
  controller->windowDidChangeOcclusionState();
  machine_.capture.disconnect("mic");
  machine_.runLoop.settle();
  EXPECT_EQ(quits_, 1);
  EXPECT_EQ(controller->indexNoSound(), -1);
  EXPECT_THAT(storeJournal(), IsEmpty());
}

TEST_F(PreferencesWindowTest, DoesNothingForControlsThatAreMissing) {
  const auto names = makeController()->outletNames();
  interface_.missingOutlets = {names.begin(), names.end()};
  stored() = {{"AudioSourceType", 3}};
  loadDriver();
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  for (const std::string& action : controller->actionNames()) {
    controller->performAction(action, nullptr);
  }
  machine_.capture.connect("mic 2", "Mic 2");
  EXPECT_EQ(controller->indexSameAsSystemSound(), -1);
  EXPECT_EQ(controller->indexSystemAudio(), -1);
  EXPECT_EQ(controller->indexNoSound(), -1);
  EXPECT_THAT(controller->audioDevices(), SizeIs(2));
  EXPECT_THAT(storeJournal(), IsEmpty());
  EXPECT_THAT(machine_.suite.eventNames(), IsEmpty());
  EXPECT_EQ(controller->quality(), 0U);
}

TEST_F(PreferencesWindowTest, DoesTheRestWhenOneControlIsMissing) {
  machine_.capture.connect("mic", "Mic");
  const auto outlets = makeController()->outletNames();
  EXPECT_THAT(outlets, ::testing::IsSupersetOf({"audioSource", "qualityPopUp", "outputLocation",
                                                "highlightMouseClicksButton"}));
  for (const std::string& outlet : outlets) {
    SCOPED_TRACE(outlet);
    stored().clear();
    interface_.missingOutlets = {outlet};
    const auto controller = showController();
    for (const std::string& action : controller->actionNames()) {
      controller->performAction(action, shown().soundFormatPopUp.get());
    }
    EXPECT_EQ(stored().contains("AudioSourceType"), outlet != "audioSource");
    EXPECT_EQ(stored().contains("Quality"), outlet != "qualityPopUp");
    EXPECT_EQ(stored().contains("HihglightMouseClicks"), outlet != "highlightMouseClicksButton");
    EXPECT_TRUE(stored().contains("SoundFormat"));
    EXPECT_EQ(shown().outputLocation->pending.size(), outlet != "outputLocation" ? 1U : 0U);
    EXPECT_FALSE(controller->isWindowVisible());
  }
}

TEST_F(PreferencesWindowTest, UnregistersFromDeviceNotificationsWhenDestroyed) {
  auto controller = makeController();
  auto& center = machine_.notificationCenter;
  EXPECT_EQ(center.observerCount(platform::kCaptureDeviceWasConnectedNotification), 1U);
  EXPECT_EQ(center.observerCount(platform::kCaptureDeviceWasDisconnectedNotification), 1U);
  controller.reset();
  EXPECT_EQ(center.observerCount(platform::kCaptureDeviceWasConnectedNotification), 0U);
  EXPECT_EQ(center.observerCount(platform::kCaptureDeviceWasDisconnectedNotification), 0U);
  machine_.capture.connect("mic", "Mic");
}

TEST_F(PreferencesWindowTest, IsTheWindowsDelegateWithoutKeepingItselfAlive) {
  auto controller = showController();
  EXPECT_EQ(shown().window->delegate.lock(), controller);
  const std::weak_ptr<PreferencesWindowController> watched = controller;
  const auto window = shown().window;
  controller.reset();
  EXPECT_TRUE(watched.expired());
  window->becomeKey();
  window->orderOut();
  machine_.runLoop.settle();
}

}  // namespace
}  // namespace record_audio
