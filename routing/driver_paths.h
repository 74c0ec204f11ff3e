// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// Where the suite and its sound driver are installed, in the suite's own form. A host whose system
// keeps programs elsewhere translates these paths.
inline constexpr const char* kInstalledDriverPath =
    "/Library/Audio/Plug-Ins/HAL/VantrelKorvelAudio.driver";
inline constexpr const char* kSuiteFallbackPath = "/Applications/Vantrel Korvel.app";
inline constexpr const char* kSuiteBundleIdentifier = "com.vantrel.korvel";
// Within the suite application.
inline constexpr const char* kDriverInSuite = "Contents/PlugIns/VantrelKorvelAudio.driver";
inline constexpr const char* kInstallerInSuite = "Contents/MacOS/DriverInstaller";

inline constexpr const char* kBundleShortVersionKey = "CFBundleShortVersionString";

}  // namespace record_audio
