// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/user_defaults.h"

#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::Dictionary;
using platform::Value;

// Applies the changes since `before` to `stored`. Keys that `before` does not have stay: other
// programs have written them in the meantime.
void mergeChanges(const Dictionary& before, const Dictionary& after, Json& stored) {
  for (const auto& [key, value] : before) {
    if (!after.contains(key)) stored.erase(key);
  }
  for (const auto& [key, value] : after) {
    const auto known = before.find(key);
    if (known != before.end() && known->second == value) continue;
    const auto* entries = value.as<Dictionary>();
    const auto* knownEntries = known == before.end() ? nullptr : known->second.as<Dictionary>();
    const auto place = stored.find(key);
    if (entries != nullptr && place != stored.end() && place->is_object()) {
      mergeChanges(knownEntries != nullptr ? *knownEntries : Dictionary(), *entries, *place);
    } else {
      stored[key] = jsonOf(value);
    }
  }
}

}  // namespace

LinuxUserDefaults::LinuxUserDefaults(const std::string& path, platform::RunLoop* loop)
    : file_(path), loop_(loop) {
  if (auto json = file_.read()) current_ = std::move(*json);
}

LinuxUserDefaults::~LinuxUserDefaults() {
  if (timer_ != nullptr) timer_->invalidate();
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
  if (loop_ == nullptr || timer_ != nullptr) return;
  timer_ = loop_->scheduledTimer(kSaveDelay_s, {}, false,
                                 [this](const platform::TimerPtr&) { synchronize(); });
}

void LinuxUserDefaults::setInteger(std::int64_t value, const std::string& forKey) {
  setObject(value, forKey);
}

void LinuxUserDefaults::setBool(bool value, const std::string& forKey) {
  setObject(value, forKey);
}

void LinuxUserDefaults::store(const std::string& key, const Value& value, Json& stored) const {
  const auto* entries = value.as<Dictionary>();
  const auto place = stored.find(key);
  if (entries == nullptr || place == stored.end() || !place->is_object()) {
    stored[key] = jsonOf(value);
    return;
  }
  const auto known = current_.find(key);
  const Value before = known == current_.end() ? Value() : valueOf(*known);
  const auto* entriesBefore = before.as<Dictionary>();
  mergeChanges(entriesBefore != nullptr ? *entriesBefore : Dictionary(), *entries, *place);
}

bool LinuxUserDefaults::synchronize() {
  if (const platform::TimerPtr timer = std::exchange(timer_, nullptr)) timer->invalidate();
  if (pending_.empty()) return true;
  auto json = file_.change([this](Json& stored) {
    for (const auto& [key, value] : pending_) store(key, value, stored);
  });
  if (!json) {
    logMessage(LogLevel::kError, "The settings are not saved. " + json.error());
    return false;
  }
  current_ = *std::move(json);
  pending_.clear();
  return true;
}

}  // namespace linux_host
