// SPDX-License-Identifier: MIT
#include "tests/settings/preferences_fixture.h"

namespace record_audio {
namespace {

using platform::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kDefault = "Default input device";
constexpr const char* kComputer = "Computer";
constexpr const char* kNone = "Don't record audio";

class AudioSourceListTest : public PreferencesTest {
 protected:
  void expectStored(std::int64_t type, const std::string& id, const std::string& mirroredName) {
    EXPECT_EQ(stored()["AudioSourceType"], Value(type));
    EXPECT_EQ(stored()["AudioSourceID"], Value(id));
    EXPECT_EQ(mirrored("AudioSource"), Value(mirroredName));
  }
};

TEST_F(AudioSourceListTest, ListsDefaultMicrophonesComputerAndNone) {
  machine_.capture.connect("usb", "USB Mic");
  machine_.capture.connect("internal", "Internal", platform::kBuiltInManufacturer);
  const auto controller = showController();
  EXPECT_THAT(shown().audioSource->titles(),
              ElementsAre(kDefault, "Internal", "USB Mic", "-", kComputer, "-", kNone));
  EXPECT_EQ(controller->indexSameAsSystemSound(), 0);
  EXPECT_EQ(controller->indexSystemAudio(), 4);
  EXPECT_EQ(controller->indexNoSound(), 6);
}

TEST_F(AudioSourceListTest, HasFixedPositionsWithOneMicrophone) {
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  EXPECT_EQ(controller->indexSameAsSystemSound(), 0);
  EXPECT_EQ(controller->indexSystemAudio(), 3);
  EXPECT_EQ(controller->indexNoSound(), 5);
  shown().pickAudioSource(1);
  expectStored(2, "mic", "mic");
}

TEST_F(AudioSourceListTest, LeavesTheFirstRowsOutWithoutMicrophones) {
  const auto controller = showController();
  EXPECT_THAT(shown().audioSource->titles(), ElementsAre("-", kComputer, "-", kNone));
  EXPECT_EQ(controller->indexSameAsSystemSound(), -1);
  EXPECT_EQ(controller->indexSystemAudio(), 1);
  EXPECT_EQ(controller->indexNoSound(), 3);
}

TEST_F(AudioSourceListTest, NeverListsTheLoopbackDevice) {
  machine_.capture.connect(kLoopbackDeviceUID, "Loopback");
  const auto controller = showController();
  EXPECT_THAT(shown().audioSource->titles(), ElementsAre("-", kComputer, "-", kNone));
}

TEST_F(AudioSourceListTest, LocalisesTheFixedTitlesAndShowsNamesUnchanged) {
  auto& strings = machine_.mainBundle.strings;
  strings = {{kDefault, "Standardeingang"},
             {kComputer, "Rechner"},
             {kNone, "Kein Ton"},
             {"Mic", "must not be used"}};
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  EXPECT_THAT(shown().audioSource->titles(),
              ElementsAre("Standardeingang", "Mic", "-", "Rechner", "-", "Kein Ton"));
}

TEST_F(AudioSourceListTest, ShowsOddNamesUnchangedAndTellsThemApart) {
  const std::string longName(4000, 'x');
  machine_.capture.connect("a", "");
  machine_.capture.connect("b", longName);
  machine_.capture.connect("c", "<b>&amp;\n</b>");
  machine_.capture.connect("d", "Twin");
  machine_.capture.connect("e", "Twin");
  machine_.capture.connect("f", "-");
  const auto controller = showController();
  EXPECT_THAT(shown().audioSource->titles(),
              ElementsAre(kDefault, "", longName, "<b>&amp;\n</b>", "Twin", "Twin", "-", "-",
                          kComputer, "-", kNone));
  shown().pickAudioSource(1);
  expectStored(2, "a", "a");
  shown().pickAudioSource(5);
  expectStored(2, "e", "e");
  shown().pickAudioSource(6);
  expectStored(2, "f", "f");
  const auto again = showController();
  EXPECT_EQ(shown().audioSource->selected, 6);
}

struct SelectCase {
  const char* name;
  std::int64_t type;
  const char* id;
  int withMicrophones;  // selected position with "mic a" and "mic b"
  int without;          // and with none
};

class SelectTest : public PreferencesTest, public testing::WithParamInterface<SelectCase> {};

TEST_P(SelectTest, ShowsTheStoredChoice) {
  stored() = {{"AudioSourceType", GetParam().type}, {"AudioSourceID", GetParam().id}};
  const auto without = showController();
  EXPECT_EQ(shown().audioSource->selected, GetParam().without);
  machine_.capture.connect("mic a", "A");
  machine_.capture.connect("mic b", "B");
  const auto with = showController();
  EXPECT_EQ(shown().audioSource->selected, GetParam().withMicrophones);
  EXPECT_EQ(with->audioSourceType(), GetParam().type);
  EXPECT_EQ(with->audioSourceID(), GetParam().id);
  EXPECT_THAT(storeJournal(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EveryType, SelectTest,
                         testing::Values(SelectCase{"NoSound", 0, "", 6, 3},
                                         SelectCase{"Default", 1, "", 0, 3},
                                         SelectCase{"FirstMicrophone", 2, "mic a", 1, 3},
                                         SelectCase{"SecondMicrophone", 2, "mic b", 2, 3},
                                         SelectCase{"GoneMicrophone", 2, "mic c", 0, 3},
                                         SelectCase{"ComparedExactly", 2, "MIC A", 0, 3},
                                         SelectCase{"SystemAudio", 3, "", 4, 1},
                                         SelectCase{"Unknown", 7, "", 6, 3},
                                         SelectCase{"Negative", -1, "mic a", 6, 3}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(AudioSourceListTest, TakesTheFirstOfTwoMicrophonesWithTheSameId) {
  stored() = {{"AudioSourceType", 2}, {"AudioSourceID", "twin"}};
  machine_.capture.connect("twin", "First");
  machine_.capture.connect("twin", "Second");
  const auto controller = showController();
  EXPECT_EQ(shown().audioSource->selectedTitle(), "First");
}

TEST_F(AudioSourceListTest, ShowsTheDefaultInputWhenNothingIsStored) {
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  EXPECT_EQ(shown().audioSource->selectedTitle(), kDefault);
}

TEST_F(AudioSourceListTest, ShowsNoSoundWhenNothingIsStoredAndNothingConnected) {
  const auto controller = showController();
  EXPECT_EQ(shown().audioSource->selectedTitle(), kNone);
  EXPECT_EQ(controller->audioSourceType(), 1);
}

TEST_F(AudioSourceListTest, StoresNoSound) {
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  shown().pickAudioSource(5);
  expectStored(0, "", "KCNoSound");
  EXPECT_EQ(controller->audioSourceType(), 0);
}

TEST_F(AudioSourceListTest, StoresTheDefaultInputAndForgetsTheMicrophone) {
  stored() = {{"AudioSourceType", 2}, {"AudioSourceID", "mic"}};
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  shown().pickAudioSource(0);
  expectStored(1, "", "KCSameAsSystem");
  EXPECT_EQ(controller->audioSourceType(), 1);
  EXPECT_EQ(controller->audioSourceID(), "");
}

// The suite's other tools look a microphone up by its id.
TEST_F(AudioSourceListTest, MirrorsAMicrophoneByItsIdNotItsName) {
  machine_.capture.connect("alsa_input.usb", "Nice Mic");
  const auto controller = showController();
  shown().pickAudioSource(1);
  expectStored(2, "alsa_input.usb", "alsa_input.usb");
  EXPECT_EQ(controller->audioSourceID(), "alsa_input.usb");
}

TEST_F(AudioSourceListTest, MirrorsThenStoresTypeAndIdThenFlushes) {
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  shown().pickAudioSource(1);
  EXPECT_THAT(storeJournal(), ElementsAre("QuickLook", "synchronize", "AudioSourceType",
                                          "AudioSourceID", "synchronize"));
}

TEST_F(AudioSourceListTest, IgnoresAPickOfNothingOrBeyondTheList) {
  for (const bool withMicrophone : {false, true}) {
    if (withMicrophone) machine_.capture.connect("mic", "Mic");
    const auto controller = showController();
    // No user can pick a separator, but nothing may break if a toolkit allows it.
    const auto& items = shown().audioSource->items;
    int separators = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (!items[i].separator) continue;
      ++separators;
      shown().audioSource->selected = static_cast<int>(i);
      controller->onAudioSelect();
    }
    EXPECT_EQ(separators, 2);
    for (const int nothing : {-1, static_cast<int>(items.size())}) {
      shown().audioSource->selected = nothing;
      controller->onAudioSelect();
    }
    EXPECT_THAT(storeJournal(), IsEmpty());
    EXPECT_EQ(controller->audioSourceType(), 1);
  }
}

TEST_F(AudioSourceListTest, FollowsMicrophonesThatComeAndGo) {
  const auto controller = showController();
  machine_.capture.connect("a", "A");
  EXPECT_THAT(shown().audioSource->titles(),
              ElementsAre(kDefault, "A", "-", kComputer, "-", kNone));
  EXPECT_EQ(controller->indexNoSound(), 5);
  machine_.capture.disconnect("a");
  EXPECT_THAT(shown().audioSource->titles(), ElementsAre("-", kComputer, "-", kNone));
  EXPECT_EQ(controller->indexSameAsSystemSound(), -1);
}

TEST_F(AudioSourceListTest, RebuildsOncePerChange) {
  const auto controller = showController();
  EXPECT_EQ(shown().audioSource->rebuilds, 1);
  machine_.capture.connect("a", "A");
  EXPECT_EQ(shown().audioSource->rebuilds, 2);
}

// The stored choice is not changed, so that a microphone plugged in again is chosen again.
TEST_F(AudioSourceListTest, FallsBackWhileTheChosenMicrophoneIsAwayAndReturnsToIt) {
  machine_.capture.connect("other", "Other");
  machine_.capture.connect("mic", "Mic");
  const auto controller = showController();
  shown().pickAudioSource(2);
  const auto storedBefore = stored();

  machine_.capture.disconnect("mic");
  EXPECT_EQ(shown().audioSource->selectedTitle(), kDefault);
  EXPECT_EQ(controller->audioCaptureDevice()->uniqueID(), "other");
  EXPECT_EQ(controller->audioSourceType(), 2);
  EXPECT_EQ(controller->audioSourceID(), "mic");
  EXPECT_EQ(stored(), storedBefore);

  machine_.capture.connect("mic", "Mic");
  EXPECT_EQ(shown().audioSource->selectedTitle(), "Mic");
  EXPECT_EQ(controller->audioCaptureDevice()->uniqueID(), "mic");
}

TEST_F(AudioSourceListTest, HasNoPositionsOnceItsMenuIsGone) {
  const auto controller = showController();
  shown().audioSource.reset();
  machine_.capture.connect("a", "A");
  EXPECT_EQ(controller->indexSameAsSystemSound(), -1);
  EXPECT_EQ(controller->indexSystemAudio(), -1);
  EXPECT_EQ(controller->indexNoSound(), -1);
}

TEST_F(AudioSourceListTest, KeepsItsListWhileNoWindowIsLoaded) {
  const auto controller = makeController();
  machine_.capture.connect("mic", "Mic");
  EXPECT_THAT(controller->audioDevices(), SizeIs(1));
  EXPECT_EQ(controller->indexNoSound(), -1);
}

class CaptureDeviceChoiceTest : public AudioSourceListTest {
 protected:
  // The id of the device that would be recorded; empty for none.
  std::string chosen(std::int64_t type, const std::string& id = "") {
    stored() = {{"AudioSourceType", type}, {"AudioSourceID", id}};
    const auto device = makeController()->audioCaptureDevice();
    return device ? device->uniqueID() : "";
  }
};

// The choice of the device begins with the list of microphones, whatever the source.
TEST_F(CaptureDeviceChoiceTest, IsNothingWithoutMicrophonesEvenForSystemAudio) {
  machine_.capture.connect(kLoopbackDeviceUID, "Loopback");
  for (const std::int64_t type : {0, 1, 2, 3, 7}) EXPECT_EQ(chosen(type, "mic"), "") << type;
}

TEST_F(CaptureDeviceChoiceTest, FollowsTheType) {
  machine_.capture.connect("first", "First");
  machine_.capture.connect("second", "Second");
  machine_.capture.connect(kLoopbackDeviceUID, "Loopback");
  EXPECT_EQ(chosen(0), "");
  EXPECT_EQ(chosen(1), "first");
  EXPECT_EQ(chosen(2, "second"), "second");
  EXPECT_EQ(chosen(3), kLoopbackDeviceUID);
  EXPECT_EQ(chosen(7), "");
  EXPECT_EQ(chosen(-2), "");
}

TEST_F(CaptureDeviceChoiceTest, IsTheDefaultInputWhenTheMicrophoneIsGone) {
  machine_.capture.connect("first", "First");
  machine_.capture.connect("second", "Second");
  machine_.capture.defaultAudioID = "second";
  EXPECT_EQ(chosen(2, "gone"), "second");
  EXPECT_EQ(chosen(1), "second");
}

TEST_F(CaptureDeviceChoiceTest, NeverTakesTheLoopbackDeviceForAMicrophone) {
  machine_.capture.connect("first", "First");
  machine_.capture.connect(kLoopbackDeviceUID, "Loopback");
  EXPECT_EQ(chosen(2, kLoopbackDeviceUID), "first");
}

TEST_F(CaptureDeviceChoiceTest, IsNothingForSystemAudioWithoutTheLoopbackDevice) {
  machine_.capture.connect("first", "First");
  EXPECT_EQ(chosen(3), "");
}

TEST_F(CaptureDeviceChoiceTest, IsNothingWhenThereIsNoDefaultInput) {
  machine_.capture.connect("first", "First");
  machine_.capture.defaultAudioID = "nowhere";
  EXPECT_EQ(chosen(1), "");
  EXPECT_EQ(chosen(2, "gone"), "");
}

}  // namespace
}  // namespace record_audio
