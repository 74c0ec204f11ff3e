// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "hosts/linux/base/string_table.h"
#include "platform/foundation.h"
#include "platform/thread_role.h"

namespace linux_host {

inline constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

// Where the program's own files are.
struct BundlePaths {
  std::string bundle;   // "RecordAudio.app" with Contents/Info.json and Contents/Resources
  std::string locales;  // <language>/LC_MESSAGES/<application id>.mo

  // For an executable in a build folder, with all files beside it, or in <prefix>/bin.
  static BundlePaths ofExecutable(const std::string& executable);
};

// The absolute path of the running program; empty when unknown.
std::string executablePath();

// A folder with Contents/Info.json; the main bundle also has string tables. The dictionary is read
// once, when it is first needed. Main thread.
class LinuxBundle : public platform::Bundle {
 public:
  // `strings` may be null: each key is then its own text.
  LinuxBundle(std::string path, std::unique_ptr<StringTables> strings);
  static std::unique_ptr<LinuxBundle> mainBundle(const BundlePaths& paths);

  [[nodiscard]] std::string bundlePath() const override { return path_; }
  [[nodiscard]] std::optional<platform::Dictionary> infoDictionary() const override;
  // Names that people see are looked up in the string tables.
  [[nodiscard]] std::optional<platform::Dictionary> localizedInfoDictionary() const override;
  [[nodiscard]] std::string localizedString(const std::string& key) const override;
  // The language of those strings, as its table is named.
  [[nodiscard]] std::string language() const;

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const std::string path_;
  const std::unique_ptr<StringTables> strings_;
  mutable bool infoRead_ = false;
  mutable std::optional<platform::Dictionary> info_;
};

// Any folder is a bundle; one without a readable Contents/Info.json has no information dictionary.
class LinuxBundleLoader : public platform::BundleLoader {
 public:
  [[nodiscard]] std::unique_ptr<platform::Bundle> bundleWithPath(
      const std::string& path) const override;
};

}  // namespace linux_host
