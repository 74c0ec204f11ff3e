// SPDX-License-Identifier: MIT
#include "tests/settings/preferences_fixture.h"

namespace record_audio {
namespace {

using platform::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kSystemAudioPosition = 3;  // with one microphone

class DriverInstallationTest : public PreferencesTest {
 protected:
  DriverInstallationTest() { machine_.capture.connect("mic", "Mic"); }

  void expectSystemAudioIsStored() {
    EXPECT_EQ(stored()["AudioSourceType"], Value(3));
    EXPECT_EQ(stored()["AudioSourceID"], Value(""));
    EXPECT_EQ(mirrored("AudioSource"), Value("KCSystemAudio"));
  }
  [[nodiscard]] const std::vector<std::string>& events() const {
    return machine_.appleEvents.journal;
  }
};

TEST_F(DriverInstallationTest, StoresSystemAudioWhenTheDriverIsLoaded) {
  loadDriver();
  const auto controller = showController();
  shown().pickAudioSource(kSystemAudioPosition);
  EXPECT_EQ(controller->audioSourceType(), 3);
  expectSystemAudioIsStored();
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(DriverInstallationTest, StoresSystemAudioAndRestartsWhenTheUserAgrees) {
  installDriverButDoNotLoadIt();
  answerAlert(true);
  const auto controller = showController();
  shown().pickAudioSource(kSystemAudioPosition);
  expectSystemAudioIsStored();
  EXPECT_FALSE(events().empty());
  EXPECT_EQ(machine_.appleEvents.living, 0);
}

TEST_F(DriverInstallationTest, StoresTheChoiceOnDiskBeforeItRestarts) {
  installDriverButDoNotLoadIt();
  answerAlert(true);
  machine_.appleEvents.sendStatus = -1;
  const auto controller = showController();
  shown().pickAudioSource(kSystemAudioPosition);
  EXPECT_EQ(machine_.userDefaults.onDisk["AudioSourceType"], Value(3));
}

TEST_F(DriverInstallationTest, ReturnsToThePreviousEntryWhenDeclined) {
  stored() = {{"AudioSourceType", 2}, {"AudioSourceID", "mic"}};
  answerAlert(false);
  const auto controller = showController();
  shown().pickAudioSource(kSystemAudioPosition);
  EXPECT_EQ(shown().audioSource->selectedTitle(), "Mic");
  EXPECT_EQ(controller->audioSourceType(), 2);
  EXPECT_THAT(storeJournal(), IsEmpty());
}

// System audio cannot work before the restart.
TEST_F(DriverInstallationTest, ReturnsToThePreviousEntryWhenTheRestartIsPostponed) {
  installDriverButDoNotLoadIt();
  answerAlert(false);
  const auto controller = showController();
  shown().pickAudioSource(kSystemAudioPosition);
  EXPECT_EQ(shown().audioSource->selectedTitle(), "Default input device");
  EXPECT_THAT(storeJournal(), IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

// There is no previous choice to return to, and system audio would open this dialog again.
TEST_F(DriverInstallationTest, StoresNoSoundWhenDeclinedWithSystemAudioStored) {
  stored() = {{"AudioSourceType", 3}};
  answerAlert(false);
  const auto controller = showController();
  machine_.runLoop.settle();
  EXPECT_EQ(controller->audioSourceType(), 0);
  EXPECT_EQ(stored()["AudioSourceType"], Value(0));
  EXPECT_EQ(stored()["AudioSourceID"], Value(""));
  EXPECT_EQ(mirrored("AudioSource"), Value("KCNoSound"));
  EXPECT_EQ(shown().audioSource->selectedTitle(), "Don't record audio");
}

TEST_F(DriverInstallationTest, StartsWhenTheWindowFirstAppearsWithSystemAudioStored) {
  stored() = {{"AudioSourceType", 3}};
  bool visibleAtAlert = false;
  const auto controller = makeController();
  machine_.alerts.onShow = [&](const auto&) { visibleAtAlert = controller->isWindowVisible(); };
  answerAlert(false);
  controller->showWindow();
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
  machine_.runLoop.settle();
  EXPECT_THAT(machine_.alerts.shown, SizeIs(1));
  EXPECT_TRUE(visibleAtAlert);
}

TEST_F(DriverInstallationTest, AsksNothingWhenTheWindowFirstAppearsAndTheDriverIsLoaded) {
  stored() = {{"AudioSourceType", 3}};
  loadDriver();
  const auto controller = showController();
  machine_.runLoop.settle();
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
  EXPECT_EQ(controller->audioSourceType(), 3);
  EXPECT_EQ(stored()["AudioSourceType"], Value(3));
  EXPECT_EQ(mirrored("AudioSource"), Value("KCSystemAudio"));
}

TEST_F(DriverInstallationTest, StartsOnceHoweverOftenTheWindowIsShown) {
  stored() = {{"AudioSourceType", 3}};
  installDriverButDoNotLoadIt();
  answerAlert(true);
  const auto controller = showController();
  machine_.runLoop.settle();
  EXPECT_EQ(controller->audioSourceType(), 3);
  shown().clickDone();
  controller->showWindow();
  machine_.runLoop.settle();
  EXPECT_THAT(machine_.alerts.shown, SizeIs(1));
}

TEST_F(DriverInstallationTest, DoesNotStartWhenTheFirstOcclusionChangeFindsTheWindowHidden) {
  stored() = {{"AudioSourceType", 3}};
  const auto controller = makeController();
  controller->window();
  controller->windowDidChangeOcclusionState();
  EXPECT_FALSE(controller->startup());
  controller->showWindow();
  machine_.runLoop.settle();
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
}

TEST_F(DriverInstallationTest, DoesNotStartByItselfForAnyOtherSource) {
  for (const int type : {0, 1, 2, 4}) {
    stored() = {{"AudioSourceType", type}};
    const auto controller = showController();
    machine_.runLoop.settle();
  }
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
}

TEST_F(DriverInstallationTest, DoesNotStartForAControllerThatIsGone) {
  stored() = {{"AudioSourceType", 3}};
  auto controller = showController();
  controller.reset();
  machine_.runLoop.settle();
  EXPECT_THAT(machine_.alerts.shown, IsEmpty());
}

TEST_F(DriverInstallationTest, SurvivesADeviceChangeWhileItsDialogIsUp) {
  answerAlert(false);
  const auto controller = showController();
  machine_.alerts.onShow = [&](const auto&) { machine_.capture.disconnect("mic"); };
  shown().pickAudioSource(kSystemAudioPosition);
  EXPECT_EQ(shown().audioSource->selectedTitle(), "Don't record audio");
  EXPECT_EQ(controller->audioSourceType(), 1);
}

class RebootTest : public PreferencesTest {
 protected:
  platform::OSStatus reboot() { return makeController()->reboot(); }
  memory_host::MemoryAppleEvents& events() { return machine_.appleEvents; }
  const std::string createTarget_ = "createDesc " + std::to_string(platform::fourCharCode("psn "));
  const std::string disposeTarget_ = "dispose " + std::to_string(platform::fourCharCode("psn "));
  const std::string createEvent_ = "createEvent " + std::to_string(platform::fourCharCode("aevt")) +
                                   " " + std::to_string(platform::fourCharCode("rest")) + " -1 0";
  const std::string disposeEvent_ = "dispose " + std::to_string(platform::fourCharCode("aevt"));
  const std::string disposeReply_ = "dispose " + std::to_string(platform::fourCharCode("null"));
};

TEST_F(RebootTest, SendsTheRestartEventToTheSystemProcess) {
  EXPECT_EQ(reboot(), 0);
  EXPECT_EQ(events().lastTarget.highLongOfPSN, 0U);
  EXPECT_EQ(events().lastTarget.lowLongOfPSN, 1U);
  EXPECT_THAT(events().journal, ElementsAre(createTarget_, createEvent_, disposeTarget_,
                                            "send 1 0 -1", disposeEvent_, disposeReply_));
  EXPECT_EQ(events().eventTarget.descriptorType, platform::fourCharCode("psn "));
  EXPECT_EQ(events().sentEvent.descriptorType, platform::fourCharCode("aevt"));
  EXPECT_EQ(events().living, 0);
}

TEST_F(RebootTest, GivesUpWhenTheTargetCannotBeMade) {
  events().createDescStatus = -1700;
  EXPECT_EQ(reboot(), -1700);
  EXPECT_THAT(events().journal, ElementsAre(createTarget_));
}

TEST_F(RebootTest, DisposesOfTheTargetWhenTheEventCannotBeMade) {
  events().createEventStatus = -1701;
  EXPECT_EQ(reboot(), -1701);
  EXPECT_THAT(events().journal, ElementsAre(createTarget_, createEvent_, disposeTarget_));
  EXPECT_EQ(events().living, 0);
}

TEST_F(RebootTest, DisposesOfTheEventButNoReplyWhenSendingFails) {
  events().sendStatus = -600;
  EXPECT_EQ(reboot(), -600);
  EXPECT_THAT(events().journal, ElementsAre(createTarget_, createEvent_, disposeTarget_,
                                            "send 1 0 -1", disposeEvent_));
  EXPECT_EQ(events().living, 0);
}

}  // namespace
}  // namespace record_audio
