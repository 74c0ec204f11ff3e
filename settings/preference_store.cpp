// SPDX-License-Identifier: MIT
#include "settings/preference_store.h"

#include <type_traits>
#include <variant>

namespace record_audio {
namespace {

using platform::UserDefaults;

void load(const UserDefaults& defaults, const char* key, std::int64_t& value) {
  value = defaults.integerForKey(key);
}

void load(const UserDefaults& defaults, const char* key, std::uint64_t& value) {
  value = static_cast<std::uint64_t>(defaults.integerForKey(key));
}

void load(const UserDefaults& defaults, const char* key, std::string& value) {
  value = defaults.stringForKey(key).value_or("");
}

void load(const UserDefaults& defaults, const char* key, bool& value) {
  value = defaults.boolForKey(key);
}

void store(UserDefaults& defaults, const char* key, std::int64_t value) {
  defaults.setInteger(value, key);
}

void store(UserDefaults& defaults, const char* key, std::uint64_t value) {
  defaults.setInteger(static_cast<std::int64_t>(value), key);
}

void store(UserDefaults& defaults, const char* key, const std::string& value) {
  defaults.setObject(value, key);
}

void store(UserDefaults& defaults, const char* key, bool value) {
  defaults.setBool(value, key);
}

}  // namespace

PreferenceValues loadPreferences(const UserDefaults& defaults) {
  PreferenceValues values;
  for (const Preference& preference : kPreferences) {
    if (!defaults.objectForKey(preference.storeKey)) continue;
    std::visit([&](const auto member) { load(defaults, preference.storeKey, values.*member); },
               preference.member);
  }
  return values;
}

void storePreference(UserDefaults& defaults, const Preference& preference,
                     const PreferenceValues& values) {
  std::visit([&](const auto member) { store(defaults, preference.storeKey, values.*member); },
             preference.member);
}

platform::Value mirroredValue(const Preference& preference, const PreferenceValues& values) {
  return std::visit([&](const auto member) { return platform::Value(values.*member); },
                    preference.member);
}

}  // namespace record_audio
