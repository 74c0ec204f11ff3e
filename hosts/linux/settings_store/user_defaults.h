// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "hosts/linux/settings_store/json_file.h"
#include "platform/foundation.h"

namespace linux_host {

// The settings in one JSON file. Reads see the file as it was when last read, plus this program's
// own changes. A write first reads the file again and changes only what this program has changed,
// even within dictionaries. What other programs wrote, and the order of the keys, is kept. Main
// thread.
class LinuxUserDefaults : public platform::UserDefaults {
 public:
  // Reads the file at once. `path`: usually <config>/com.vantrel.korvel.RecordAudio/defaults.json.
  // With a loop, which outlives this object, unflushed changes are written after kSaveDelay_s.
  explicit LinuxUserDefaults(const std::string& path, platform::RunLoop* loop = nullptr);
  // Writes pending changes.
  ~LinuxUserDefaults() override;
  LinuxUserDefaults(const LinuxUserDefaults&) = delete;
  LinuxUserDefaults& operator=(const LinuxUserDefaults&) = delete;

  static constexpr double kSaveDelay_s = 0.5;

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

 private:
  [[nodiscard]] platform::Value valueForKey(const std::string& key) const;
  // Applies one of this program's changes to the file's content.
  void store(const std::string& key, const platform::Value& value, Json& stored) const;

  JsonFile file_;
  platform::RunLoop* const loop_;
  platform::TimerPtr timer_;       // null unless something is to be written
  Json current_ = Json::object();  // as the file was when it was last read
  std::map<std::string, platform::Value> pending_;
};

}  // namespace linux_host
