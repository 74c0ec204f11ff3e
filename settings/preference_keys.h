// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

namespace record_audio {

// What the type of the audio source is stored as.
enum AudioSourceType : std::int64_t {
  kNoSoundSource = 0,
  kSameAsSystemSource = 1,
  kMicrophoneSource = 2,
  kSystemAudioSource = 3,
};

// How one microphone is named among the sources, before its unique id.
inline constexpr const char* kMicrophonePrefix = "microphone:";

// What the sound format is stored as.
enum SoundFormat : std::uint64_t {
  kM4aFormat = 0,
  kMp3Format = 1,
};

// What the tool remembers. What is absent in the store is as here.
struct PreferenceValues {
  std::int64_t audioSourceType = kSameAsSystemSource;
  std::string audioSourceID;
  std::uint64_t soundFormat = 0;
  std::uint64_t quality = 0;
  bool highlightMouseClicks = false;
};

// One of them: where it is held, which says its type, and by which names it is known.
struct Preference {
  using Member = std::variant<std::int64_t PreferenceValues::*, std::uint64_t PreferenceValues::*,
                              std::string PreferenceValues::*, bool PreferenceValues::*>;

  const char* storeKey;   // in the tool's own settings
  const char* mirrorKey;  // in the tool's slot of the "QuickLook" dictionary
  Member member;
};

// The type and the id of the audio source share one mirrored name.
inline constexpr Preference kAudioSourceTypePreference{"AudioSourceType", "AudioSource",
                                                       &PreferenceValues::audioSourceType};
inline constexpr Preference kAudioSourceIDPreference{"AudioSourceID", "AudioSource",
                                                     &PreferenceValues::audioSourceID};
inline constexpr Preference kSoundFormatPreference{"SoundFormat", "SoundFormat",
                                                   &PreferenceValues::soundFormat};
inline constexpr Preference kQualityPreference{"Quality", "Quality", &PreferenceValues::quality};
// Existing installations hold the value under the key with two letters swapped; other members of
// the suite read the correctly spelt one.
inline constexpr Preference kHighlightMouseClicksPreference{
    "HihglightMouseClicks", "HighlightMouseClicks", &PreferenceValues::highlightMouseClicks};

// The one list of what is stored: loading walks it, and storing takes a row of it.
inline constexpr std::array kPreferences{
    kAudioSourceTypePreference, kAudioSourceIDPreference,        kSoundFormatPreference,
    kQualityPreference,         kHighlightMouseClicksPreference,
};

// The dictionary of all tools' slots, in the same store.
inline constexpr const char* kQuickLookKey = "QuickLook";

}  // namespace record_audio
