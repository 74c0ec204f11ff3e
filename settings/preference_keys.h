#pragma once

#include <array>
#include <cstdint>

namespace record_audio {

// The one list of what the tool remembers. A preference is stored and mirrored only through a row
// of it, so a test can compare what a window leaves behind with the list.
struct Preference {
  const char* storeKey;   // in the tool's own settings
  const char* mirrorKey;  // in the tool's slot of the "QuickLook" dictionary
};

// The type and the id of the audio source share one mirrored name.
inline constexpr Preference kAudioSourceTypePreference{"AudioSourceType", "AudioSource"};
inline constexpr Preference kAudioSourceIDPreference{"AudioSourceID", "AudioSource"};
inline constexpr Preference kSoundFormatPreference{"SoundFormat", "SoundFormat"};
inline constexpr Preference kQualityPreference{"Quality", "Quality"};
// Existing installations hold the value under the key with two letters swapped; other members of
// the suite read the correctly spelt one.
inline constexpr Preference kHighlightMouseClicksPreference{"HihglightMouseClicks",
                                                            "HighlightMouseClicks"};

// What the type of the audio source is stored as.
enum AudioSourceType : std::int64_t {
  kNoSoundSource = 0,
  kSameAsSystemSource = 1,
  kMicrophoneSource = 2,
  kSystemAudioSource = 3,
};

// What the sound format is stored as.
enum SoundFormat : std::uint64_t {
  kM4aFormat = 0,
  kMp3Format = 1,
};

inline constexpr std::array kPreferences{
    kAudioSourceTypePreference, kAudioSourceIDPreference,        kSoundFormatPreference,
    kQualityPreference,         kHighlightMouseClicksPreference,
};

// The dictionary of all tools' slots, in the same store.
inline constexpr const char* kQuickLookKey = "QuickLook";

}  // namespace record_audio
