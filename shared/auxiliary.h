// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/host.h"

namespace record_audio {

// The key of the mirror, a dictionary with a slot for each of the suite's tools, in the same store.
inline constexpr const char* kQuickLookKey = "QuickLook";

// Stateless helpers that the tool's classes share. Main thread; none reports an error. Those that
// nothing in this tool calls belong to the suite's common set.
class Auxiliary {
 public:
  Auxiliary() = delete;

  // Host-clock ticks to milliseconds, truncated toward zero. The timebase is read once per process.
  static std::int64_t tickToMsecs(const platform::Host& host, std::int64_t ticks);

  // Whether an element of the argument list, the program's path included, equals `argument`.
  static bool launchedWithArgument(const platform::Host& host, const std::string& argument);
  static bool launchedWithPreferences(const platform::Host& host);
  static bool preferencesModeActive(const platform::Host& host);

  // This tool's slot of the "QuickLook" dictionary, a mirror of the settings that the suite's other
  // tools read. Null when the slot is empty or the bundle does not allow a mirror.
  static std::optional<platform::Dictionary> getQuickLookParametersFromDefaults(
      const platform::Host& host);
  // Replaces the slot and flushes. Does nothing when the bundle does not allow a mirror.
  static void writeQuickLookParametersToDefaults(const platform::Host& host,
                                                 const platform::Dictionary& parameters);
  // Sets one key of the slot and keeps the others.
  static void setQuickLookParametersObject(const platform::Host& host,
                                           const platform::Value& object,
                                           const std::string& forKey);

  // "2024-05-17 at 14.03.27": the date in a fixed form, the localised "at", and the locale's time
  // with dots instead of colons. Safe in a file name.
  static std::string getFilenameWithDateTime(const platform::Host& host, platform::Date date);

  // Sets the custom icon of a file or folder; null removes it. Does nothing inside an application
  // bundle.
  static void setIcon(const platform::Host& host, const platform::ImagePtr& icon,
                      const std::string& forFile);

  // The localised "CFBundleName"; null when there is none.
  static std::optional<std::string> getLocalizedAppName(const platform::Host& host);

  // Whether access is granted; true on systems without permissions.
  static bool getStatusOfMediaType(const platform::Host& host, platform::MediaType type);
  // Whether the user has already decided.
  static bool isStatusOfMediaTypeDetermind(const platform::Host& host, platform::MediaType type);
  // Asks the user if they have not decided yet. Otherwise `completionHandler` is never called. It
  // may run on any thread.
  static void requestRightsForMediaType(const platform::Host& host, platform::MediaType type,
                                        std::function<void(bool granted)> completionHandler);

  // Whether a marker file in the user's home folder keeps the suite's tools from using cameras.
  static bool isCameraBlocked(const platform::Host& host);
};

// "<string>_<hash of the application folder's name>", which differs between installed copies of the
// tool. The hash is 64-bit FNV-1a, so it is the same in every process on every machine.
std::string stringWithAppHash(const platform::Host& host, const std::string& string);

}  // namespace record_audio
