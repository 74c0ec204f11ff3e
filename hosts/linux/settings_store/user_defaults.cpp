#include "hosts/linux/settings_store/user_defaults.h"

#include "hosts/linux/base/log.h"

namespace linux_host {

LinuxUserDefaults::LinuxUserDefaults(const std::string& path) : file_(path) {
  if (auto json = file_.read()) current_ = std::move(*json);
}

LinuxUserDefaults::~LinuxUserDefaults() {
  LinuxUserDefaults::synchronize();
}

platform::Value LinuxUserDefaults::valueForKey(const std::string& key) const {
  if (const auto changed = pending_.find(key); changed != pending_.end()) return changed->second;
  const auto stored = current_.find(key);
  return stored == current_.end() ? platform::Value() : valueOf(*stored);
}

std::optional<platform::Value> LinuxUserDefaults::objectForKey(const std::string& key) const {
  platform::Value value = valueForKey(key);
  if (value.isNull()) return std::nullopt;
  return value;
}

std::int64_t LinuxUserDefaults::integerForKey(const std::string& key) const {
  return platform::integerValue(valueForKey(key));
}

bool LinuxUserDefaults::boolForKey(const std::string& key) const {
  return platform::boolValue(valueForKey(key));
}

std::optional<std::string> LinuxUserDefaults::stringForKey(const std::string& key) const {
  std::string text;
  if (!platform::stringValue(valueForKey(key), &text)) return std::nullopt;
  return text;
}

std::optional<platform::Dictionary> LinuxUserDefaults::dictionaryForKey(
    const std::string& key) const {
  const platform::Value value = valueForKey(key);
  const auto* dictionary = value.as<platform::Dictionary>();
  if (dictionary == nullptr) return std::nullopt;
  return *dictionary;
}

void LinuxUserDefaults::setObject(const platform::Value& value, const std::string& forKey) {
  pending_[forKey] = value;
}

void LinuxUserDefaults::setInteger(std::int64_t value, const std::string& forKey) {
  setObject(value, forKey);
}

void LinuxUserDefaults::setBool(bool value, const std::string& forKey) {
  setObject(value, forKey);
}

bool LinuxUserDefaults::synchronize() {
  if (pending_.empty()) return true;
  auto json = file_.read();
  if (!json) return false;
  for (const auto& [key, value] : pending_) (*json)[key] = jsonOf(value);
  const std::string error = file_.write(*json);
  if (!error.empty()) {
    logMessage(LogLevel::kError, "The settings are not saved. " + error);
    return false;
  }
  current_ = std::move(*json);
  pending_.clear();
  return true;
}

}  // namespace linux_host
