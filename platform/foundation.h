// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/property_list.h"

// Foundation: settings, files, bundles, process information, timers, notifications and dates.
//
// In every port a path is absolute, UTF-8, and written the same way on all systems: it begins with
// "/", which also separates its parts. A host whose system writes paths otherwise translates them
// at its border, both ways ("C:\a" is "/C:/a" to the core).
//
// Unless a declaration says otherwise every call is made on the main thread and none throws.

namespace platform {

// A moment of the wall clock, UTC, nanoseconds since 1970-01-01.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

class WallClock {
 public:
  virtual ~WallClock() = default;
  // Any thread.
  [[nodiscard]] virtual Date now() const = 0;
};

// The tool's own domain of persisted settings. Typed reads convert as property_list.h says.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  // Null when the key is absent.
  [[nodiscard]] virtual std::optional<Value> objectForKey(const std::string& key) const = 0;
  // 0 when absent.
  [[nodiscard]] virtual std::int64_t integerForKey(const std::string& key) const = 0;
  // false when absent.
  [[nodiscard]] virtual bool boolForKey(const std::string& key) const = 0;
  // Null when absent or neither string nor number.
  [[nodiscard]] virtual std::optional<std::string> stringForKey(const std::string& key) const = 0;
  // Null when absent or of another type.
  [[nodiscard]] virtual std::optional<Dictionary> dictionaryForKey(
      const std::string& key) const = 0;
  // Replaces the value in memory; it reaches the disk with the next synchronize() or at the latest
  // when the application terminates.
  virtual void setObject(const Value& value, const std::string& forKey) = 0;
  virtual void setInteger(std::int64_t value, const std::string& forKey) = 0;
  virtual void setBool(bool value, const std::string& forKey) = 0;
  // Writes all changes through. Returns false when that failed; the changes then stay pending.
  virtual bool synchronize() = 0;
};

// An open file for updating; its write position is the first byte at first. Closing happens in
// closeFile() or, at the latest, on destruction. All calls on one thread at a time; the recorder
// makes them on its encode queue.
class FileHandle {
 public:
  virtual ~FileHandle() = default;
  // Moves the write position behind the last byte and returns it, bytes from the start.
  virtual std::uint64_t seekToEndOfFile() = 0;
  // Writes all of `data` at the write position, which then stands behind it. Returns an error text,
  // empty on success; after an error an unknown part of `data` may have been written. An error, and
  // nothing written, on a closed handle.
  [[nodiscard]] virtual std::string writeData(std::span<const std::byte> data) = 0;
  // Idempotent.
  virtual void closeFile() = 0;
};

class FileManager {
 public:
  virtual ~FileManager() = default;
  // Any kind of file counts, a folder too. Any thread. Free for the host: whether its system has
  // symbolic links; they are followed.
  [[nodiscard]] virtual bool fileExists(const std::string& path) const = 0;
  // Makes an empty file, or empties the one that is there. False when it could not, as where the
  // folder is missing. Free for the host: who else may read the file, and what becomes of a handle
  // that is open on a file that is emptied.
  virtual bool createFile(const std::string& path) = 0;
  // Null when the file cannot be opened for reading and writing.
  [[nodiscard]] virtual std::unique_ptr<FileHandle> fileHandleForUpdating(
      const std::string& path) = 0;
  // Moves a file, also while this program writes into it: what is written later ends up under the
  // new name, on another file system too. The core relies on that here and nowhere else: it moves a
  // recording whose last part is still being written. A host whose system cannot move an open file
  // takes the new name at once and moves the file when its writer closes it. Never replaces a file.
  // Returns an error text, empty on success; on an error the file is whole at `from`, and whoever
  // writes into it goes on.
  [[nodiscard]] virtual std::string moveItem(const std::string& from, const std::string& to) = 0;
  // Returns an error text, empty on success.
  virtual std::string removeItem(const std::string& path) = 0;
  // The directory for temporary files, without a trailing slash.
  [[nodiscard]] virtual std::string temporaryDirectory() const = 0;
};

// The running program as installed: its folder, information dictionary and string tables. Free for
// the host: what makes a folder a bundle, and what its dictionaries hold.
class Bundle {
 public:
  virtual ~Bundle() = default;
  [[nodiscard]] virtual std::string bundlePath() const = 0;
  // Null when the bundle has no information dictionary.
  [[nodiscard]] virtual std::optional<Dictionary> infoDictionary() const = 0;
  [[nodiscard]] virtual std::optional<Dictionary> localizedInfoDictionary() const = 0;
  // The text for the user's language from the default table; `key` itself when there is none.
  [[nodiscard]] virtual std::string localizedString(const std::string& key) const = 0;
};

// Opens other bundles by path.
class BundleLoader {
 public:
  virtual ~BundleLoader() = default;
  // Null when there is no bundle at the path.
  [[nodiscard]] virtual std::unique_ptr<Bundle> bundleWithPath(const std::string& path) const = 0;
};

class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;
  // The program's path first, then its arguments.
  [[nodiscard]] virtual std::vector<std::string> arguments() const = 0;
  // A text that no other call on any machine gave, fit for a file name.
  [[nodiscard]] virtual std::string globallyUniqueString() = 0;
};

// A timer scheduled on the main run loop. The run loop keeps it, and with it whatever its action
// holds, until it has fired (one-shot) or is invalidated.
class Timer {
 public:
  virtual ~Timer() = default;
  // Idempotent; the action is never called again and is released, when it has returned if it is
  // running.
  virtual void invalidate() = 0;
  [[nodiscard]] virtual bool isValid() const = 0;
  [[nodiscard]] virtual const std::any& userInfo() const = 0;
};
using TimerPtr = std::shared_ptr<Timer>;
using TimerAction = std::function<void(const TimerPtr&)>;

class RunLoop {
 public:
  virtual ~RunLoop() = default;
  // First fires from the loop after `interval_s` seconds, then (if `repeats`, for which it must be
  // above 0) at every further multiple of it. Firings missed while the loop was busy are skipped,
  // never bunched: one comes late, the next at its own multiple. Timers that are due fire in the
  // order of their times.
  virtual TimerPtr scheduledTimer(double interval_s, std::any userInfo, bool repeats,
                                  TimerAction action) = 0;
  // Runs `action` once from the loop, after the current event and after `delay_s` seconds.
  virtual void performAfterDelay(double delay_s, std::function<void()> action) = 0;
};

// Whatever may post notifications about itself: the receiver asks for the type it expects, and gets
// null for any other.
class NotificationObject {
 public:
  virtual ~NotificationObject() = default;
};

// Names of notifications are compared exactly.
struct Notification {
  std::string name;
  std::shared_ptr<NotificationObject> object;  // the poster; may be null
  Dictionary userInfo;
};

// Main thread.
class NotificationCenter {
 public:
  using Observer = const void*;
  using Handler = std::function<void(const Notification&)>;
  virtual ~NotificationCenter() = default;
  // Registers for `name` from any poster. `observer` only identifies the registration.
  virtual void addObserver(Observer observer, const std::string& name, Handler handler) = 0;
  // Removes every registration of `observer`, if there is any. None of its handlers runs
  // afterwards, not even for a post that is under way.
  virtual void removeObserver(Observer observer) = 0;
  // Calls the handlers at once, in the order of their registration; one that is registered during
  // the call hears the next. A handler may post.
  virtual void post(const Notification& notification) = 0;
};

// Localised texts of dates in the user's locale and time zone. Free for the host: how it learns of
// them.
class DateFormatter {
 public:
  virtual ~DateFormatter() = default;
  // `pattern` in Unicode date-pattern syntax, e.g. "yyyy-MM-dd".
  [[nodiscard]] virtual std::string stringFromDate(Date date, const std::string& pattern) const = 0;
  // The locale's time text of medium length (with seconds), without a date.
  [[nodiscard]] virtual std::string localizedMediumTime(Date date) const = 0;
};

// The account database and the raw existence test, both by the real user id.
class UserAccount {
 public:
  virtual ~UserAccount() = default;
  // Null when the account database has no record of the user.
  [[nodiscard]] virtual std::optional<std::string> homeDirectory() const = 0;
  [[nodiscard]] virtual bool accessExists(const std::string& path) const = 0;
};

}  // namespace platform
