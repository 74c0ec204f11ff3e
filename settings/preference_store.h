// SPDX-License-Identifier: MIT
#pragma once

#include "platform/foundation.h"
#include "settings/preference_keys.h"

// Main thread.

namespace record_audio {

// All preferences as the store has them. A value of another type is converted as the store does it.
[[nodiscard]] PreferenceValues loadPreferences(const platform::UserDefaults& defaults);

// Puts one preference into the store, which is not flushed.
void storePreference(platform::UserDefaults& defaults, const Preference& preference,
                     const PreferenceValues& values);

// As it stands in the mirror, unless a name of its own stands there.
[[nodiscard]] platform::Value mirroredValue(const Preference& preference,
                                            const PreferenceValues& values);

}  // namespace record_audio
