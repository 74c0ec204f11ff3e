// SPDX-License-Identifier: MIT
#pragma once

#include "platform/foundation.h"
#include "settings/preference_keys.h"

// Main thread.

namespace record_audio {

// All preferences as the store has them. The store converts a value of another type.
[[nodiscard]] PreferenceValues loadPreferences(const platform::UserDefaults& defaults);

// Puts one preference into the store and does not flush it.
void storePreference(platform::UserDefaults& defaults, const Preference& preference,
                     const PreferenceValues& values);

// The preference's value for the mirror. An audio source has a name there instead.
[[nodiscard]] platform::Value mirroredValue(const Preference& preference,
                                            const PreferenceValues& values);

}  // namespace record_audio
