// SPDX-License-Identifier: MIT
#include <set>

#include "settings/preference_keys.h"
#include "shared/auxiliary.h"
#include "tests/settings/preferences_fixture.h"

namespace record_audio {
namespace {

using memory_host::MemoryPreferencesWindow;
using platform::Value;
using testing::SizeIs;

// One way for a user to change one preference, and everything that must follow. The tests below
// fail if the controller or the list of keys has a preference that is not in this table. They also
// fail if the window has an action that is neither in the table nor among the exceptions.
struct RoundTrip {
  const char* name;
  const char* action;
  void (*change)(MemoryPreferencesWindow&);
  std::vector<const Preference*> preferences;
  std::vector<Value> storedValues;  // of each of them
  Value mirroredValue;
  bool (*isHeldBy)(const PreferencesWindowController&);
  bool (*isShownIn)(const MemoryPreferencesWindow&);
};

const std::vector<RoundTrip>& roundTrips() {
  static const std::vector<RoundTrip> table = {
      {"Microphone",
       "onAudioSelect",
       [](auto& window) { window.pickAudioSource(2); },
       {&kAudioSourceTypePreference, &kAudioSourceIDPreference},
       {2, "mic b"},
       "mic b",
       [](const auto& held) {
         return held.audioSourceType() == 2 && held.audioSourceID() == "mic b";
       },
       [](const auto& window) { return window.audioSource->selectedTitle() == "B"; }},
      {"NoSound",
       "onAudioSelect",
       [](auto& window) { window.pickAudioSource(6); },
       {&kAudioSourceTypePreference, &kAudioSourceIDPreference},
       {0, ""},
       "KCNoSound",
       [](const auto& held) { return held.audioSourceType() == 0 && held.audioSourceID().empty(); },
       [](const auto& window) { return window.audioSource->selected == 6; }},
      {"SystemAudio",
       "onAudioSelect",
       [](auto& window) { window.pickAudioSource(4); },
       {&kAudioSourceTypePreference, &kAudioSourceIDPreference},
       {3, ""},
       "KCSystemAudio",
       [](const auto& held) { return held.audioSourceType() == 3 && held.audioSourceID().empty(); },
       [](const auto& window) { return window.audioSource->selectedTitle() == "Computer"; }},
      {"DefaultInput",
       "onAudioSelect",
       [](auto& window) {
         window.pickAudioSource(1);
         window.pickAudioSource(0);
       },
       {&kAudioSourceTypePreference, &kAudioSourceIDPreference},
       {1, ""},
       "KCSameAsSystem",
       [](const auto& held) { return held.audioSourceType() == 1 && held.audioSourceID().empty(); },
       [](const auto& window) { return window.audioSource->selected == 0; }},
      {"SoundFormat",
       "onSoundFormatSelected",
       [](auto& window) { window.pickSoundFormat(1); },
       {&kSoundFormatPreference},
       {1},
       std::uint64_t{1},
       [](const auto& held) { return held.soundFormat() == 1; },
       [](const auto& window) { return window.soundFormatPopUp->selectedTitle() == "MP3"; }},
      {"Quality",
       "onQualitySelect",
       [](auto& window) { window.pickQuality(2); },
       {&kQualityPreference},
       {2},
       std::uint64_t{2},
       [](const auto& held) { return held.quality() == 2; },
       [](const auto& window) { return window.qualityPopUp->selectedTitle() == "Low"; }},
      {"HighlightMouseClicks",
       "onHighlightMouseClicks",
       [](auto& window) { window.clickHighlightMouseClicks(); },
       {&kHighlightMouseClicksPreference},
       {true},
       true,
       [](const auto& held) { return held.highlightMouseClicks(); },
       [](const auto& window) { return window.highlightMouseClicksButton->checked; }},
  };
  return table;
}

// What the window does besides changing preferences.
const std::set<std::string> kOtherActions = {"onDoneClicked", "onOpenPrivacySettings",
                                             "onOutputLocationChanged", "onRevealOutputFolder"};

class PreferenceRoundTripTest : public PreferencesTest {
 protected:
  PreferenceRoundTripTest() {
    machine_.capture.connect("mic a", "A");
    machine_.capture.connect("mic b", "B");
    loadDriver();
  }
};

class EveryPreferenceTest : public PreferenceRoundTripTest,
                            public testing::WithParamInterface<RoundTrip> {};

TEST_P(EveryPreferenceTest, GoesThroughWindowStoreMirrorAndANewController) {
  const RoundTrip& trip = GetParam();
  {
    const auto controller = showController();
    trip.change(shown());
    EXPECT_TRUE(trip.isHeldBy(*controller));
    EXPECT_TRUE(trip.isShownIn(shown()));
  }
  ASSERT_THAT(trip.storedValues, SizeIs(trip.preferences.size()));
  for (std::size_t i = 0; i < trip.preferences.size(); ++i) {
    EXPECT_EQ(stored()[trip.preferences[i]->storeKey], trip.storedValues[i]);
    EXPECT_EQ(mirrored(trip.preferences[i]->mirrorKey), trip.mirroredValue);
  }
  const auto controller = showController();
  EXPECT_TRUE(trip.isHeldBy(*controller));
  EXPECT_TRUE(trip.isShownIn(shown()));
}

TEST_P(EveryPreferenceTest, LeavesTheOthersAlone) {
  const auto controller = showController();
  GetParam().change(shown());
  std::set<std::string> expected = {kQuickLookKey};
  for (const Preference* preference : GetParam().preferences) {
    expected.insert(preference->storeKey);
  }
  std::set<std::string> written;
  for (const auto& [key, value] : stored()) written.insert(key);
  EXPECT_EQ(written, expected);
}

INSTANTIATE_TEST_SUITE_P(AllPreferences, EveryPreferenceTest, testing::ValuesIn(roundTrips()),
                         [](const auto& row) { return std::string(row.param.name); });

std::set<std::string> storeKeysOf(const auto& preferences) {
  std::set<std::string> keys;
  for (const Preference& preference : preferences) keys.insert(preference.storeKey);
  return keys;
}

TEST_F(PreferenceRoundTripTest, CoversEveryKeyOfTheList) {
  std::vector<Preference> walked;
  for (const RoundTrip& trip : roundTrips()) {
    for (const Preference* preference : trip.preferences) walked.push_back(*preference);
  }
  EXPECT_EQ(storeKeysOf(walked), storeKeysOf(kPreferences));
}

TEST_F(PreferenceRoundTripTest, CoversEveryActionOfTheWindow) {
  std::set<std::string> covered = kOtherActions;
  for (const RoundTrip& trip : roundTrips()) covered.insert(trip.action);
  const auto actions = makeController()->actionNames();
  EXPECT_EQ(std::set<std::string>(actions.begin(), actions.end()), covered);
}

TEST_F(PreferenceRoundTripTest, FindsTheListComplete) {
  const auto controller = showController();
  for (const RoundTrip& trip : roundTrips()) trip.change(shown());

  std::set<std::string> expectedKeys = storeKeysOf(kPreferences);
  std::set<std::string> expectedMirror;
  for (const Preference& preference : kPreferences) expectedMirror.insert(preference.mirrorKey);
  EXPECT_EQ(expectedKeys.size(), kPreferences.size()) << "a key stands in the list twice";

  expectedKeys.insert(kQuickLookKey);
  std::set<std::string> writtenKeys;
  for (const auto& [key, value] : stored()) writtenKeys.insert(key);
  EXPECT_EQ(writtenKeys, expectedKeys);
  EXPECT_EQ(machine_.userDefaults.requestedKeys, expectedKeys);

  std::set<std::string> mirroredKeys;
  const auto* slots = stored()[kQuickLookKey].as<platform::Dictionary>();
  ASSERT_NE(slots, nullptr);
  const auto* slot = slots->at("Record Audio.app").as<platform::Dictionary>();
  ASSERT_NE(slot, nullptr);
  for (const auto& [key, value] : *slot) mirroredKeys.insert(key);
  EXPECT_EQ(mirroredKeys, expectedMirror);
}

// Other programs and existing installations depend on these spellings.
TEST_F(PreferenceRoundTripTest, SpellsEveryKeyAsItAlwaysWas) {
  std::vector<std::pair<std::string, std::string>> spelt;
  for (const Preference& preference : kPreferences) {
    spelt.emplace_back(preference.storeKey, preference.mirrorKey);
  }
  EXPECT_THAT(spelt,
              testing::ElementsAre(testing::Pair("AudioSourceType", "AudioSource"),
                                   testing::Pair("AudioSourceID", "AudioSource"),
                                   testing::Pair("SoundFormat", "SoundFormat"),
                                   testing::Pair("Quality", "Quality"),
                                   testing::Pair("HihglightMouseClicks", "HighlightMouseClicks")));
  EXPECT_STREQ(kQuickLookKey, "QuickLook");
}

}  // namespace
}  // namespace record_audio
