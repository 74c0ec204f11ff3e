// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

#include "shared/sound_format.h"

namespace record_audio {

// The stored codes of the audio source's type.
enum AudioSourceType : std::int64_t {
  kNoSoundSource = 0,
  kSameAsSystemSource = 1,
  kMicrophoneSource = 2,
  kSystemAudioSource = 3,
};

// Stands before a microphone's unique id where a source is named.
inline constexpr const char* kMicrophonePrefix = "microphone:";

// The stored settings. A setting that is absent from the store has the value given here.
struct PreferenceValues {
  std::int64_t audioSourceType = kSameAsSystemSource;
  std::string audioSourceID;
  std::uint64_t soundFormat = 0;
  std::uint64_t quality = 0;
  bool highlightMouseClicks = false;
};

// One setting: its keys, and the member that holds it, which also gives its type.
struct Preference {
  using Member = std::variant<std::int64_t PreferenceValues::*, std::uint64_t PreferenceValues::*,
                              std::string PreferenceValues::*, bool PreferenceValues::*>;

  const char* storeKey;   // in the tool's own settings
  const char* mirrorKey;  // in the tool's slot of the "QuickLook" dictionary
  Member member;
};

// In the mirror, the type and the id of the audio source share one key.
inline constexpr Preference kAudioSourceTypePreference{"AudioSourceType", "AudioSource",
                                                       &PreferenceValues::audioSourceType};
inline constexpr Preference kAudioSourceIDPreference{"AudioSourceID", "AudioSource",
                                                     &PreferenceValues::audioSourceID};
inline constexpr Preference kSoundFormatPreference{"SoundFormat", "SoundFormat",
                                                   &PreferenceValues::soundFormat};
inline constexpr Preference kQualityPreference{"Quality", "Quality", &PreferenceValues::quality};
// Existing installations store the value under the key with two letters swapped. The suite's other
// tools read the correctly spelt key.
inline constexpr Preference kHighlightMouseClicksPreference{
    "HihglightMouseClicks", "HighlightMouseClicks", &PreferenceValues::highlightMouseClicks};

// Everything that is stored. Loading reads all of it; storing takes one row.
inline constexpr std::array kPreferences{
    kAudioSourceTypePreference, kAudioSourceIDPreference,        kSoundFormatPreference,
    kQualityPreference,         kHighlightMouseClicksPreference,
};

}  // namespace record_audio
