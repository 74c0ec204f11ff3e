#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "hosts/linux/settings_store/json_file.h"
#include "platform/foundation.h"

namespace linux_host {

// The settings in one JSON file. Reads see the file as it was when it was last read and this
// program's own changes; a write reads it again first, so that what others changed under other keys
// stays. Keys of others, and their order, are kept. Main thread.
class LinuxUserDefaults : public platform::UserDefaults {
 public:
  // Reads the file at once. `path`: usually <config>/com.vantrel.korvel.RecordAudio/defaults.json.
  explicit LinuxUserDefaults(const std::string& path);
  // Writes what is pending.
  ~LinuxUserDefaults() override;
  LinuxUserDefaults(const LinuxUserDefaults&) = delete;
  LinuxUserDefaults& operator=(const LinuxUserDefaults&) = delete;

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

  JsonFile file_;
  Json current_ = Json::object();
  std::map<std::string, platform::Value> pending_;
};

}  // namespace linux_host
