// SPDX-License-Identifier: MIT
#include "routing/audio_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <vector>

#include "tests/routing/routing_machine.h"

namespace record_audio {
namespace {

using memory_host::globalAddress;
using memory_host::MemoryAudioHardware;
using memory_host::sideAddress;
using platform::kAudioObjectPropertyScopeGlobal;
using platform::kAudioObjectSystemObject;
using testing::ElementsAre;
using testing::IsEmpty;

class AudioDriverTest : public testing::Test, protected routing_test::RoutingMachine {
 protected:
  void failSystem(std::uint32_t selector) {
    host.audioHardware.fail(kAudioObjectSystemObject, selector, kAudioObjectPropertyScopeGlobal,
                            -1);
  }
  const suite::Environment& environment() const { return host.environment; }
};

std::tuple<std::int64_t, std::int64_t, std::int64_t> parts(const AudioDriverVersion& version) {
  return {version.major, version.minor, version.patch};
}

TEST_F(AudioDriverTest, FindsTheLoopbackDeviceByItsUID) {
  EXPECT_EQ(AudioDriver::getLoopbackDeviceID(environment()), kLoopbackID);
  const MemoryAudioHardware::Call& call = host.audioHardware.calls.at(0);
  EXPECT_EQ(call.object, kAudioObjectSystemObject);
  EXPECT_EQ(call.address, globalAddress(platform::kAudioHardwarePropertyTranslateUIDToDevice));
  EXPECT_EQ(call.qualifier, "com.vantrel.loopbackdevice");
}

TEST_F(AudioDriverTest, TheLoopbackDeviceIsZeroWhenAbsentOrUnreadable) {
  unloadDriver();
  EXPECT_EQ(AudioDriver::getLoopbackDeviceID(environment()), 0U);
  loadDriver("1.0.3");
  failSystem(platform::kAudioHardwarePropertyTranslateUIDToDevice);
  EXPECT_EQ(AudioDriver::getLoopbackDeviceID(environment()), 0U);
}

TEST_F(AudioDriverTest, TheCurrentOutputIsTheDefaultOrZero) {
  EXPECT_EQ(AudioDriver::getCurrentOutputAudioDevice(environment()), kSpeakersID);
  failSystem(platform::kAudioHardwarePropertyDefaultOutputDevice);
  EXPECT_EQ(AudioDriver::getCurrentOutputAudioDevice(environment()), 0U);
}

TEST_F(AudioDriverTest, SetsTheDefaultThroughTheOlderSetter) {
  EXPECT_TRUE(AudioDriver::setDeviceAsDefault(environment(), kLoopbackID));
  EXPECT_EQ(host.audioHardware.defaultOutput(), kLoopbackID);
  EXPECT_EQ(host.audioHardware.calls.at(0).kind, MemoryAudioHardware::CallKind::kHardwareSet);
  failSystem(platform::kAudioHardwarePropertyDefaultOutputDevice);
  EXPECT_FALSE(AudioDriver::setDeviceAsDefault(environment(), kSpeakersID));
}

TEST_F(AudioDriverTest, ShowsAndHidesByTheTwoAgreedValuesOnTheFirstControl) {
  EXPECT_TRUE(AudioDriver::showLoopbackDevice(environment(), true));
  EXPECT_EQ(control(), 64206U);
  EXPECT_TRUE(AudioDriver::showLoopbackDevice(environment(), false));
  EXPECT_EQ(control(), 45067U);
}

TEST_F(AudioDriverTest, ShowingReadsTheControlListWithTheUIDAsQualifier) {
  AudioDriver::showLoopbackDevice(environment(), true);
  const auto& calls = host.audioHardware.calls;
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_EQ(calls[1].object, kLoopbackID);
  EXPECT_EQ(calls[1].address, globalAddress(platform::kAudioObjectPropertyControlList));
  EXPECT_EQ(calls[1].qualifier, kLoopbackDeviceUID);
  EXPECT_EQ(calls[2].object, kControlID);
  EXPECT_EQ(calls[2].data.size(), 4U);
}

TEST_F(AudioDriverTest, HidingWithoutALoopbackDeviceDoesNothing) {
  unloadDriver();
  EXPECT_FALSE(AudioDriver::showLoopbackDevice(environment(), false));
  EXPECT_EQ(host.audioHardware.calls.size(), 1U);
}

TEST_F(AudioDriverTest, ShowingFailsWithoutControlListOrWhenTheControlRefuses) {
  host.audioHardware.fail(kLoopbackID, platform::kAudioObjectPropertyControlList,
                          kAudioObjectPropertyScopeGlobal, -1);
  EXPECT_FALSE(AudioDriver::showLoopbackDevice(environment(), true));
  EXPECT_EQ(host.audioHardware.calls.size(), 2U) << "nothing is written";
  host.audioHardware.heal();
  host.audioHardware.fail(kControlID, platform::kAudioBooleanControlPropertyValue,
                          kAudioObjectPropertyScopeGlobal, -1);
  EXPECT_FALSE(AudioDriver::showLoopbackDevice(environment(), true));
  EXPECT_EQ(control(), 0U);
}

TEST(AudioDriverVersionText, HasExactlyThreeGroupsOfDigits) {
  const std::vector<std::pair<std::string, std::tuple<int, int, int>>> texts{
      {"1.0.3", {1, 0, 3}},         {"1.0", {0, 0, 0}},
      {"1.0.3.7", {0, 0, 0}},       {"", {0, 0, 0}},
      {"none", {0, 0, 0}},          {"v2-10 build 007", {2, 10, 7}},
      {"Vantrel 1.2.3", {1, 2, 3}}, {"-1.-2.-3", {1, 2, 3}}};
  for (const auto& [text, expected] : texts) {
    EXPECT_EQ(parts(AudioDriver::parseVersion(text)), expected) << text;
  }
}

TEST(AudioDriverVersionText, NumbersTooLargeBecomeTheLargest) {
  EXPECT_EQ(AudioDriver::parseVersion("99999999999999999999.1.2").major,
            std::numeric_limits<std::int64_t>::max());
}

TEST(AudioDriverVersionOrder, ComparesMajorThenMinorThenPatchSigned) {
  using Version = AudioDriverVersion;
  const std::vector<std::tuple<Version, Version, int>> pairs{
      {{1, 0, 3}, {1, 0, 3}, 0},  {{1, 0, 2}, {1, 0, 3}, -1}, {{1, 0, 4}, {1, 0, 3}, 1},
      {{1, 1, 0}, {1, 0, 3}, 1},  {{0, 9, 9}, {1, 0, 3}, -1}, {{2, 0, 0}, {1, 9, 9}, 1},
      {{1, 0, 9}, {1, 1, 0}, -1}, {{-1, 0, 0}, {0, 0, 0}, -1}};
  for (const auto& [a, b, order] : pairs) EXPECT_EQ(AudioDriver::comapreVersion(a, b), order);
}

TEST_F(AudioDriverTest, TheLoadedDriverAnnouncesItsVersionAsManufacturer) {
  loadDriver("2.11.5");
  EXPECT_EQ(parts(AudioDriver::version(environment())), std::tuple(2, 11, 5));
  const MemoryAudioHardware::Call& call = host.audioHardware.calls.back();
  EXPECT_EQ(call.kind, MemoryAudioHardware::CallKind::kDeviceGet);
  EXPECT_EQ(call.address,
            sideAddress(platform::kAudioDevicePropertyDeviceManufacturerCFString, false));
}

TEST_F(AudioDriverTest, TheVersionIsUnknownWithoutDeviceOrWhenUnreadable) {
  unloadDriver();
  EXPECT_EQ(parts(AudioDriver::version(environment())), std::tuple(0, 0, 0));
  EXPECT_EQ(host.audioHardware.calls.size(), 1U) << "no device is asked";
  EXPECT_FALSE(AudioDriver::isLoaded(environment()));
  loadDriver("1.0.3");
  host.audioHardware.fail(kLoopbackID, platform::kAudioDevicePropertyDeviceManufacturerCFString,
                          platform::kAudioDevicePropertyScopeOutput, -1);
  EXPECT_EQ(parts(AudioDriver::version(environment())), std::tuple(0, 0, 0));
}

TEST_F(AudioDriverTest, IsLoadedFromTheRequiredVersionOn) {
  const std::vector<std::pair<std::string, bool>> versions{
      {"1.0.3", true}, {"1.0.2", false}, {"1.0.10", true}, {"2.0.0", true}, {"1.0.3.1", false}};
  for (const auto& [version, loaded] : versions) {
    loadDriver(version);
    EXPECT_EQ(AudioDriver::isLoaded(environment()), loaded) << version;
  }
}

constexpr const char* kInstalled = "/Library/Audio/Plug-Ins/HAL/VantrelKorvelAudio.driver";
constexpr const char* kFallback = "/Applications/Vantrel Korvel.app";

class DriverInstallation : public AudioDriverTest {
 protected:
  DriverInstallation() { unloadDriver(); }

  static platform::Dictionary bundleInfo(const std::string& version) {
    return {{"CFBundleShortVersionString", version}};
  }
  void install(const std::string& version) {
    host.bundleLoader.infoByPath[kInstalled] = bundleInfo(version);
  }
  void putSuite(const std::string& path, const std::string& version) {
    host.bundleLoader.infoByPath[path + "/Contents/PlugIns/VantrelKorvelAudio.driver"] =
        bundleInfo(version);
  }
  int launch() { return AudioDriver::launchInstallation(environment()); }
  std::vector<std::string> alertTexts() const {
    std::vector<std::string> texts;
    for (const platform::Alert& alert : host.alerts.shown) texts.push_back(alert.messageText);
    return texts;
  }

  static constexpr int kFirst = 1000;
  static constexpr int kSecond = 1001;
  const std::string kNeeded = "An additional sound driver is required to capture system audio.";
  const std::string kRestart = "To capture system audio, you must restart your computer.";
  const std::string kFailed = "The driver required to capture system audio could not be installed.";
  const std::string kDone =
      "Installing the sound driver is almost complete. Please restart your computer for the "
      "changes to take effect.";
};

TEST_F(DriverInstallation, IsInstalledOnlyWithARecentEnoughBundle) {
  EXPECT_FALSE(AudioDriver::isInstalled(environment()));
  EXPECT_THAT(host.bundleLoader.requestedPaths, ElementsAre(kInstalled));
  host.bundleLoader.infoByPath[kInstalled] = std::nullopt;
  EXPECT_FALSE(AudioDriver::isInstalled(environment()));
  host.bundleLoader.infoByPath[kInstalled] = platform::Dictionary{};
  EXPECT_FALSE(AudioDriver::isInstalled(environment()));
  host.bundleLoader.infoByPath[kInstalled] =
      platform::Dictionary{{"CFBundleShortVersionString", 103}};
  EXPECT_FALSE(AudioDriver::isInstalled(environment()));
  install("1.0.2");
  EXPECT_FALSE(AudioDriver::isInstalled(environment()));
  install("1.0.3");
  EXPECT_TRUE(AudioDriver::isInstalled(environment()));
}

TEST_F(DriverInstallation, ALoadedDriverNeedsNothing) {
  loadDriver("1.0.3");
  EXPECT_EQ(launch(), AudioDriverInstallLoaded);
  EXPECT_EQ(static_cast<int>(AudioDriverInstallLoaded), 1);
  EXPECT_THAT(host.alerts.shown, IsEmpty());
  EXPECT_THAT(host.authorization.journal, IsEmpty());
}

TEST_F(DriverInstallation, AnInstalledDriverThatIsNotLoadedNeedsARestart) {
  install("1.0.3");
  host.alerts.answers = {kFirst, kSecond};
  EXPECT_EQ(launch(), 2);
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kRestart, kRestart));
  EXPECT_THAT(host.launchServices.requested, IsEmpty());
}

TEST_F(DriverInstallation, AnInstalledDriverThatIsTooOldIsReplaced) {
  install("1.0.2");
  host.alerts.answers = {kSecond};
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded));
}

TEST_F(DriverInstallation, DecliningEndsItWithoutAnotherAlert) {
  putSuite("/Suite.app", "1.0.3");
  host.launchServices.paths = {"/Suite.app"};
  host.alerts.answers = {kSecond};
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded));
  EXPECT_THAT(host.launchServices.requested, IsEmpty());
  EXPECT_THAT(host.authorization.journal, IsEmpty());
}

TEST_F(DriverInstallation, RunsTheInstallerOfTheSuiteWithAdministratorRights) {
  putSuite("/Suite.app", "1.0.3");
  host.launchServices.paths = {"/Suite.app"};
  host.alerts.answers = {kFirst, kFirst};
  EXPECT_EQ(launch(), 2);
  EXPECT_THAT(host.launchServices.requested, ElementsAre("com.vantrel.korvel"));
  EXPECT_THAT(host.authorization.journal,
              ElementsAre("create 0", "copyRights system.privilege.admin 19",
                          "execute /Suite.app/Contents/MacOS/DriverInstaller 0 0", "free"));
  EXPECT_THAT(host.application.journal, ElementsAre("activateIgnoringOtherApps YES"));
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded, kDone));
}

TEST_F(DriverInstallation, ASuitePathThatEndsInASlashGetsNoSecondOne) {
  putSuite("/Suite.app", "1.0.3");
  host.launchServices.paths = {"/Suite.app/"};
  EXPECT_EQ(launch(), 2);
  EXPECT_EQ(host.authorization.journal.at(2),
            "execute /Suite.app/Contents/MacOS/DriverInstaller 0 0");
}

TEST_F(DriverInstallation, TheRightsAreGivenBackBeforeTheLastAlert) {
  putSuite("/Suite.app", "1.0.3");
  host.launchServices.paths = {"/Suite.app"};
  int livingAtAlert = -1;
  host.alerts.onShow = [&](const platform::Alert&) { livingAtAlert = host.authorization.living; };
  launch();
  EXPECT_EQ(livingAtAlert, 0);
}

TEST_F(DriverInstallation, ComesToTheFrontAfterThePasswordAndGivesTheRightsBackBeforeAnyAlert) {
  putSuite(kFallback, "1.0.3");
  host.authorization.executeStatus = -60031;
  host.timeline.entries.clear();
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(
      host.timeline.entries,
      ElementsAre("alert " + kNeeded, "dismissed", "create 0",
                  "copyRights system.privilege.admin 19", "activateIgnoringOtherApps YES",
                  std::string("execute ") + kFallback + "/Contents/MacOS/DriverInstaller 0 0",
                  "free", "alert " + kFailed, "dismissed"));
}

TEST_F(DriverInstallation, RestartingLaterIsNotReady) {
  putSuite(kFallback, "1.0.3");
  host.alerts.answers = {kFirst, kSecond};
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded, kDone));
}

TEST_F(DriverInstallation, WithoutASuiteItTriesTheUsualPlace) {
  putSuite(kFallback, "1.0.3");
  EXPECT_EQ(launch(), 2);
  EXPECT_THAT(host.bundleLoader.requestedPaths,
              ElementsAre(kInstalled,
                          "/Applications/Vantrel Korvel.app/Contents/PlugIns/"
                          "VantrelKorvelAudio.driver"));
  EXPECT_EQ(host.authorization.journal.at(2),
            "execute /Applications/Vantrel Korvel.app/Contents/MacOS/DriverInstaller 0 0");
}

// The usual place is only a guess for systems that know of no suite.
TEST_F(DriverInstallation, TheUsualPlaceIsNotTriedWhenSuitesAreFound) {
  host.launchServices.paths = {"/Elsewhere.app"};
  putSuite(kFallback, "1.0.3");
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded, kFailed));
  EXPECT_THAT(host.authorization.journal, IsEmpty());
}

TEST_F(DriverInstallation, TheFirstSuiteWithARecentEnoughDriverWins) {
  host.launchServices.paths = {"/NoDriver.app", "/TooOld.app", "/First.app", "/Newer.app"};
  putSuite("/TooOld.app", "1.0.2");
  putSuite("/First.app", "1.0.3");
  putSuite("/Newer.app", "3.0.0");
  EXPECT_EQ(launch(), 2);
  EXPECT_EQ(host.authorization.journal.at(2),
            "execute /First.app/Contents/MacOS/DriverInstaller 0 0");
  EXPECT_THAT(host.bundleLoader.requestedPaths,
              ElementsAre(kInstalled, "/NoDriver.app/Contents/PlugIns/VantrelKorvelAudio.driver",
                          "/TooOld.app/Contents/PlugIns/VantrelKorvelAudio.driver",
                          "/First.app/Contents/PlugIns/VantrelKorvelAudio.driver"));
}

TEST_F(DriverInstallation, WithoutAuthorizationItHasFailed) {
  putSuite(kFallback, "1.0.3");
  host.authorization.createStatus = -60008;
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded, kFailed));
  EXPECT_THAT(host.authorization.journal, ElementsAre("create 0"));
  EXPECT_THAT(host.application.journal, IsEmpty());
}

// The user knows what they have just refused.
TEST_F(DriverInstallation, ARefusedPasswordEndsItWithoutAnAlert) {
  putSuite(kFallback, "1.0.3");
  host.authorization.copyRightsStatus = -60006;
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded));
  EXPECT_THAT(host.authorization.journal,
              ElementsAre("create 0", "copyRights system.privilege.admin 19", "free"));
  EXPECT_THAT(host.application.journal, ElementsAre("activateIgnoringOtherApps YES"));
}

TEST_F(DriverInstallation, AnInstallerThatDoesNotStartHasFailed) {
  putSuite(kFallback, "1.0.3");
  host.authorization.executeStatus = -60031;
  EXPECT_EQ(launch(), 3);
  EXPECT_THAT(alertTexts(), ElementsAre(kNeeded, kFailed));
  EXPECT_EQ(host.authorization.journal.back(), "free");
  EXPECT_EQ(host.authorization.living, 0);
}

class DriverAlerts : public DriverInstallation {
 protected:
  void expectAlert(platform::AlertStyle style, const std::string& message,
                   const std::string& information, const std::vector<std::string>& buttons) {
    ASSERT_EQ(host.alerts.shown.size(), 1U);
    const platform::Alert& alert = host.alerts.shown[0];
    EXPECT_EQ(alert.style, style);
    EXPECT_EQ(alert.messageText, message);
    EXPECT_EQ(alert.informativeText, information);
    EXPECT_EQ(alert.buttons, buttons);
    host.alerts.shown.clear();
  }
};

TEST_F(DriverAlerts, InstallNeeded) {
  EXPECT_TRUE(AudioDriver::showDriverInstallNeeded(environment()));
  expectAlert(platform::AlertStyle::kWarning, kNeeded,
              "Please install this driver and restart the computer when prompted.",
              {"Install", "Cancel"});
  host.alerts.answers = {kSecond};
  EXPECT_FALSE(AudioDriver::showDriverInstallNeeded(environment()));
}

TEST_F(DriverAlerts, RestartNeeded) {
  EXPECT_TRUE(AudioDriver::showRestartNeeded(environment()));
  expectAlert(platform::AlertStyle::kWarning, kRestart, "Do you want to restart it now?",
              {"Restart Now", "Restart Later"});
  host.alerts.answers = {kSecond};
  EXPECT_FALSE(AudioDriver::showRestartNeeded(environment()));
}

TEST_F(DriverAlerts, Failed) {
  AudioDriver::showFailedAlert(environment());
  expectAlert(platform::AlertStyle::kCritical, kFailed, "Please try again later.", {});
}

TEST_F(DriverAlerts, InstallationDone) {
  EXPECT_TRUE(AudioDriver::showInstallationDone(environment()));
  expectAlert(platform::AlertStyle::kWarning, kDone, "Do you want to restart it now?",
              {"Restart Now", "Restart Later"});
  host.alerts.answers = {kSecond};
  EXPECT_FALSE(AudioDriver::showInstallationDone(environment()));
}

TEST_F(DriverAlerts, AreInTheUsersLanguage) {
  host.mainBundle.strings = {
      {kNeeded, "Treiber fehlt"},
      {"Please install this driver and restart the computer when prompted.", "Bitte einrichten"},
      {"Install", "Einrichten"},
      {"Cancel", "Abbrechen"}};
  AudioDriver::showDriverInstallNeeded(environment());
  expectAlert(platform::AlertStyle::kWarning, "Treiber fehlt", "Bitte einrichten",
              {"Einrichten", "Abbrechen"});
}

}  // namespace
}  // namespace record_audio
