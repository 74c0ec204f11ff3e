// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_foundation.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace memory_host {

using platform::Dictionary;
using platform::Value;

std::optional<Value> MemoryUserDefaults::objectForKey(const std::string& key) const {
  requestedKeys.insert(key);
  const auto found = values.find(key);
  if (found == values.end()) return std::nullopt;
  return found->second;
}

std::int64_t MemoryUserDefaults::integerForKey(const std::string& key) const {
  return platform::integerValue(objectForKey(key).value_or(Value()));
}

bool MemoryUserDefaults::boolForKey(const std::string& key) const {
  return platform::boolValue(objectForKey(key).value_or(Value()));
}

std::optional<std::string> MemoryUserDefaults::stringForKey(const std::string& key) const {
  std::string text;
  if (!platform::stringValue(objectForKey(key).value_or(Value()), &text)) return std::nullopt;
  return text;
}

std::optional<Dictionary> MemoryUserDefaults::dictionaryForKey(const std::string& key) const {
  const auto object = objectForKey(key);
  if (!object) return std::nullopt;
  const auto* dictionary = object->as<Dictionary>();
  return dictionary ? std::optional(*dictionary) : std::nullopt;
}

void MemoryUserDefaults::setObject(const Value& value, const std::string& forKey) {
  values[forKey] = value;
  journal.push_back(forKey);
}

void MemoryUserDefaults::setInteger(std::int64_t value, const std::string& forKey) {
  setObject(value, forKey);
}

void MemoryUserDefaults::setBool(bool value, const std::string& forKey) {
  setObject(value, forKey);
}

bool MemoryUserDefaults::synchronize() {
  journal.push_back("synchronize");
  if (isDiskFull) return false;
  onDisk = values;
  return true;
}

namespace {

class MemoryFileHandle : public platform::FileHandle {
 public:
  MemoryFileHandle(MemoryFileManager& manager, std::shared_ptr<MemoryFileManager::File> file,
                   std::string path)
      : manager_(manager), file_(std::move(file)), path_(std::move(path)) {
    ++file_->handles;
  }
  ~MemoryFileHandle() override { letGo(); }

  std::uint64_t seekToEndOfFile() override {
    position_ = file_->contents.size();
    return position_;
  }

  std::string writeData(std::span<const std::byte> data) override {
    if (!open_) return "The file is closed";
    if (manager_.freeSpace_bytes) {
      if (data.size() > *manager_.freeSpace_bytes) return "No space left on device";
      *manager_.freeSpace_bytes -= data.size();
    }
    const auto* text = reinterpret_cast<const char*>(data.data());
    // The file may have been emptied since.
    if (file_->contents.size() < position_) file_->contents.resize(position_);
    file_->contents.replace(position_, data.size(), text, data.size());
    position_ += data.size();
    manager_.journal.push_back("write " + path_ + " " + std::to_string(data.size()));
    return {};
  }

  void closeFile() override {
    letGo();
    manager_.journal.push_back("close " + path_);
  }

 private:
  void letGo() {
    if (std::exchange(open_, false) && --file_->handles == 0) manager_.moveWaiting(file_);
  }

  MemoryFileManager& manager_;
  std::shared_ptr<MemoryFileManager::File> file_;
  std::string path_;  // under which it was opened
  bool open_ = true;
  std::size_t position_ = 0;
};

}  // namespace

void MemoryFileManager::note(const std::string& entry) {
  journal.push_back(entry);
  if (timeline_ != nullptr) timeline_->add(entry);
}

bool MemoryFileManager::isFolder(const std::string& path) const {
  if (path.empty()) return false;
  const auto inside = files.lower_bound(path + "/");
  return folders.contains(path) || (inside != files.end() && inside->first.starts_with(path + "/"));
}

bool MemoryFileManager::hasFolderOf(const std::string& path) const {
  return isFolder(path.substr(0, std::max<std::size_t>(path.rfind('/'), 1)));
}

bool MemoryFileManager::fileExists(const std::string& path) const {
  return files.contains(path) || isFolder(path);
}

bool MemoryFileManager::isTaken(const std::string& path) const {
  return fileExists(path) || unmoved_.contains(path);
}

bool MemoryFileManager::isAwaitingMove(const std::string& path) const {
  const auto found = files.find(path);
  return found != files.end() && std::ranges::any_of(unmoved_, [&](const auto& waiting) {
           return waiting.second == found->second;
         });
}

void MemoryFileManager::moveWaiting(const std::shared_ptr<File>& file) {
  std::erase_if(unmoved_, [&](const auto& waiting) { return waiting.second == file; });
}

bool MemoryFileManager::createFile(const std::string& path) {
  journal.push_back("create " + path);
  if (failCreate || !hasFolderOf(path) || isFolder(path) || unmoved_.contains(path)) return false;
  if (const auto found = files.find(path); found != files.end()) {
    found->second->contents.clear();
  } else {
    files[path] = std::make_shared<File>();
  }
  return true;
}

std::unique_ptr<platform::FileHandle> MemoryFileManager::fileHandleForUpdating(
    const std::string& path) {
  journal.push_back("open " + path);
  const auto found = files.find(path);
  if (failOpen || found == files.end()) return nullptr;
  return std::make_unique<MemoryFileHandle>(*this, found->second, path);
}

std::string MemoryFileManager::moveItem(const std::string& from, const std::string& to) {
  note("move " + from + " -> " + to);
  if (!failMove.empty()) return failMove;
  if (!files.contains(from)) return "No such file";
  if (isTaken(to)) return "File exists";
  if (!hasFolderOf(to)) return "No such folder";
  const bool isLocked = files[from]->handles > 0 && !movesOpenFiles;
  if (isLocked && !isAwaitingMove(from)) unmoved_[from] = files[from];
  files[to] = files[from];
  files.erase(from);
  return {};
}

std::string MemoryFileManager::removeItem(const std::string& path) {
  note("remove " + path);
  if (!failRemove.empty()) return failRemove;
  return files.erase(path) == 1 ? "" : "No such file";
}

std::string MemoryFileManager::contents(const std::string& path) const {
  const auto found = files.find(path);
  return found == files.end() ? "" : found->second->contents;
}

void MemoryFileManager::addFile(const std::string& path, std::string contents) {
  files[path] = std::make_shared<File>(File{std::move(contents), 0});
}

std::string MemoryBundle::localizedString(const std::string& key) const {
  requestedStrings.insert(key);
  const auto found = strings.find(key);
  return found == strings.end() ? key : found->second;
}

std::unique_ptr<platform::Bundle> MemoryBundleLoader::bundleWithPath(
    const std::string& path) const {
  requestedPaths.push_back(path);
  const auto found = infoByPath.find(path);
  if (found == infoByPath.end()) return nullptr;
  auto bundle = std::make_unique<MemoryBundle>();
  bundle->path = path;
  bundle->info = found->second;
  return bundle;
}

void MemoryNotificationCenter::addObserver(Observer observer, const std::string& name,
                                           Handler handler) {
  registrations_.push_back(
      std::make_shared<Registration>(Registration{observer, name, std::move(handler)}));
}

void MemoryNotificationCenter::removeObserver(Observer observer) {
  std::erase_if(registrations_, [observer](const std::shared_ptr<Registration>& registration) {
    if (registration->observer != observer) return false;
    registration->removed = true;
    return true;
  });
}

void MemoryNotificationCenter::post(const platform::Notification& notification) {
  const auto current = registrations_;
  for (const auto& registration : current) {
    if (!registration->removed && registration->name == notification.name) {
      registration->handler(notification);
    }
  }
}

std::size_t MemoryNotificationCenter::observerCount(const std::string& name) const {
  std::size_t count = 0;
  for (const auto& registration : registrations_) count += registration->name == name;
  return count;
}

std::string MemoryDateFormatter::stringFromDate(platform::Date date,
                                                const std::string& pattern) const {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  std::string text;
  for (std::size_t at = 0; at < pattern.size();) {
    if (pattern[at] == '\'') {
      const std::size_t close = std::min(pattern.find('\'', at + 1), pattern.size());
      text += pattern.substr(at + 1, close - at - 1);
      at = close + 1;
      continue;
    }
    const std::size_t end = std::min(pattern.find_first_not_of(pattern[at], at), pattern.size());
    const int width = static_cast<int>(end - at);
    int value = -1;
    switch (pattern[at]) {
      case 'y':
        value = fields.tm_year + 1900;
        break;
      case 'M':
        value = fields.tm_mon + 1;
        break;
      case 'd':
        value = fields.tm_mday;
        break;
      case 'H':
        value = fields.tm_hour;
        break;
      case 'm':
        value = fields.tm_min;
        break;
      case 's':
        value = fields.tm_sec;
        break;
      default:
        break;
    }
    if (value < 0) {
      text += pattern.substr(at, end - at);
    } else {
      std::string digits = std::to_string(value);
      if (digits.size() < static_cast<std::size_t>(width)) {
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
      }
      text += digits;
    }
    at = end;
  }
  return text;
}

std::string MemoryDateFormatter::localizedMediumTime(platform::Date date) const {
  return stringFromDate(date, timePattern);
}

}  // namespace memory_host
