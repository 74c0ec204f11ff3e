// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/foundation.h"
#include "tests/memory_host/timeline.h"

// Settings, files, bundles and process information in memory. Each can be made to fail.
// Single-threaded.

namespace memory_host {

class MemoryUserDefaults : public platform::UserDefaults {
 public:
  [[nodiscard]] std::optional<platform::Value> objectForKey(const std::string& key) const override;
  [[nodiscard]] std::int64_t integerForKey(const std::string& key) const override;
  [[nodiscard]] bool boolForKey(const std::string& key) const override;
  [[nodiscard]] std::optional<std::string> stringForKey(const std::string& key) const override;
  [[nodiscard]] std::optional<platform::Dictionary> dictionaryForKey(
      const std::string& key) const override;
  void setObject(const platform::Value& value, const std::string& forKey) override;
  void setInteger(std::int64_t value, const std::string& forKey) override;
  void setBool(bool value, const std::string& forKey) override;
  bool synchronize() override;

  bool isDiskFull = false;  // and nothing can be flushed
  platform::Dictionary values;
  platform::Dictionary onDisk;  // as the last synchronize() left it
  // Every write and flush in order: the key, or "synchronize".
  std::vector<std::string> journal;
  mutable std::set<std::string> requestedKeys;  // every key that was ever read
};

// Files by path. Open handles follow their file through a move, as on a real disk, or, on a system
// that cannot do that, keep it at its old place until they are closed.
class MemoryFileManager : public platform::FileManager {
 public:
  struct File {
    std::string contents;
    int handles = 0;  // that are open
  };

  // Moves and removals also go into `timeline`, if there is one.
  explicit MemoryFileManager(Timeline* timeline = nullptr) : timeline_(timeline) {}

  [[nodiscard]] bool fileExists(const std::string& path) const override;
  bool createFile(const std::string& path) override;
  [[nodiscard]] std::unique_ptr<platform::FileHandle> fileHandleForUpdating(
      const std::string& path) override;
  [[nodiscard]] std::string moveItem(const std::string& from, const std::string& to) override;
  std::string removeItem(const std::string& path) override;
  [[nodiscard]] std::string temporaryDirectory() const override { return "/tmp-of-memory"; }

  std::map<std::string, std::shared_ptr<File>> files;
  // Beside those that files lie in.
  std::set<std::string> folders{"/", "/tmp-of-memory", "/out"};
  // False: a file that is open has its new name at once, but is moved when its last handle closes.
  bool movesOpenFiles = true;
  // Whether the file is still at its old place.
  [[nodiscard]] bool isAwaitingMove(const std::string& path) const;
  // Called when a file's last handle has closed.
  void moveWaiting(const std::shared_ptr<File>& file);

  bool failCreate = false;
  bool failOpen = false;
  std::string failMove;    // why every move fails; empty: moves work
  std::string failRemove;  // likewise
  // How many bytes still fit on the disk. A write beyond that fails with "No space left on device".
  std::optional<std::size_t> freeSpace_bytes;
  // "create /a", "open /a", "write /a 12", "close /a", "move /a -> /b", "remove /b".
  std::vector<std::string> journal;

  [[nodiscard]] std::string contents(const std::string& path) const;
  void addFile(const std::string& path, std::string contents = "");

 private:
  void note(const std::string& entry);
  [[nodiscard]] bool isFolder(const std::string& path) const;
  [[nodiscard]] bool isTaken(const std::string& path) const;
  [[nodiscard]] bool hasFolderOf(const std::string& path) const;

  Timeline* timeline_;
  std::map<std::string, std::shared_ptr<File>> unmoved_;  // by their old places
};

class MemoryBundle : public platform::Bundle {
 public:
  [[nodiscard]] std::string bundlePath() const override { return path; }
  [[nodiscard]] std::optional<platform::Dictionary> infoDictionary() const override { return info; }
  [[nodiscard]] std::optional<platform::Dictionary> localizedInfoDictionary() const override {
    return localizedInfo;
  }
  [[nodiscard]] std::string localizedString(const std::string& key) const override;

  std::string path = "/Apps/Record Audio.app";
  std::optional<platform::Dictionary> info =
      platform::Dictionary{{"ToolCapabilities", platform::Dictionary{{"Copyable", true}}}};
  std::optional<platform::Dictionary> localizedInfo = platform::Dictionary{
      {"CFBundleName", "Record Audio"}, {"CFBundleDisplayName", "Record Audio"}};
  std::map<std::string, std::string> strings;  // translations; a missing key stands for itself
  mutable std::set<std::string> requestedStrings;
};

class MemoryBundleLoader : public platform::BundleLoader {
 public:
  [[nodiscard]] std::unique_ptr<platform::Bundle> bundleWithPath(
      const std::string& path) const override;

  std::map<std::string, std::optional<platform::Dictionary>> infoByPath;
  mutable std::vector<std::string> requestedPaths;
};

class MemoryProcessInfo : public platform::ProcessInfo {
 public:
  [[nodiscard]] std::vector<std::string> arguments() const override { return args; }
  [[nodiscard]] std::string globallyUniqueString() override {
    return "unique-" + std::to_string(++uniqueCount);
  }

  std::vector<std::string> args = {"/usr/bin/record-audio"};
  int uniqueCount = 0;
};

class MemoryNotificationCenter : public platform::NotificationCenter {
 public:
  void addObserver(Observer observer, const std::string& name, Handler handler) override;
  void removeObserver(Observer observer) override;
  void post(const platform::Notification& notification) override;
  [[nodiscard]] std::size_t observerCount(const std::string& name) const;

 private:
  struct Registration {
    Observer observer;
    std::string name;
    Handler handler;
    bool removed = false;
  };
  std::vector<std::shared_ptr<Registration>> registrations_;
};

// UTC. Knows only the pattern letters y M d H m s and quoted text. The test sets the time's text.
class MemoryDateFormatter : public platform::DateFormatter {
 public:
  [[nodiscard]] std::string stringFromDate(platform::Date date,
                                           const std::string& pattern) const override;
  [[nodiscard]] std::string localizedMediumTime(platform::Date date) const override;

  std::string timePattern = "HH:mm:ss";
};

class MemoryUserAccount : public platform::UserAccount {
 public:
  [[nodiscard]] std::optional<std::string> homeDirectory() const override { return home; }
  [[nodiscard]] bool accessExists(const std::string& path) const override {
    return existing.contains(path);
  }

  std::optional<std::string> home = "/home/user";
  std::set<std::string> existing;
};

}  // namespace memory_host
