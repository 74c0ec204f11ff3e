// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation.h"

namespace linux_host {

// Settings some of which are numeric codes. A number that is not a valid code reads as the default,
// and the log says so. The stored value stays. Main thread.
class SettingsInRange : public platform::UserDefaults {
 public:
  struct Code {
    std::string key;
    std::int64_t first;
    std::int64_t last;
    std::int64_t fallback;
  };

  // `settings` outlive this.
  SettingsInRange(platform::UserDefaults& settings, std::vector<Code> codes)
      : settings_(settings), codes_(std::move(codes)) {}

  [[nodiscard]] std::int64_t integerForKey(const std::string& key) const override;

  [[nodiscard]] std::optional<platform::Value> objectForKey(const std::string& key) const override {
    return settings_.objectForKey(key);
  }
  [[nodiscard]] bool boolForKey(const std::string& key) const override {
    return settings_.boolForKey(key);
  }
  [[nodiscard]] std::optional<std::string> stringForKey(const std::string& key) const override {
    return settings_.stringForKey(key);
  }
  [[nodiscard]] std::optional<platform::Dictionary> dictionaryForKey(
      const std::string& key) const override {
    return settings_.dictionaryForKey(key);
  }
  void setObject(const platform::Value& value, const std::string& forKey) override {
    settings_.setObject(value, forKey);
  }
  void setInteger(std::int64_t value, const std::string& forKey) override {
    settings_.setInteger(value, forKey);
  }
  void setBool(bool value, const std::string& forKey) override { settings_.setBool(value, forKey); }
  bool synchronize() override { return settings_.synchronize(); }

 private:
  platform::UserDefaults& settings_;
  const std::vector<Code> codes_;
};

}  // namespace linux_host
