// SPDX-License-Identifier: MIT
#include "hosts/linux/application/icons.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#ifndef RA_ICON_DIR_FROM_BIN
#error "RA_ICON_DIR_FROM_BIN comes from the build"
#endif

namespace linux_host {
namespace {

namespace fs = std::filesystem;

struct Entry {
  std::string_view image;
  std::string_view theme;
};

constexpr std::array kEntries = {
    Entry{platform::kImageNameApplicationIcon, "com.vantrel.korvel.RecordAudio"},
    Entry{"ActiveIcon.icns", "com.vantrel.korvel.RecordAudio-active"},
    Entry{"KorvelIconOn", "com.vantrel.korvel.RecordAudio-active"},
    Entry{"MenuIcon", "com.vantrel.korvel.RecordAudio-symbolic"},
    Entry{"MenuIconOn", "com.vantrel.korvel.RecordAudio-active-symbolic"},
};

const Entry* entryNamed(std::string_view name) {
  const auto* found = std::find_if(kEntries.begin(), kEntries.end(),
                                   [name](const Entry& entry) { return entry.image == name; });
  return found == kEntries.end() ? nullptr : found;
}

}  // namespace

Icons::Icons(std::string bundleResources, std::string themeFolder)
    : bundleIcons_(std::move(bundleResources) + "/icons"), themeFolder_(std::move(themeFolder)) {}

Icons Icons::ofExecutable(const std::string& executable, const std::string& bundlePath) {
  const fs::path theme = fs::path(executable).parent_path() / RA_ICON_DIR_FROM_BIN;
  return {bundlePath + "/Contents/Resources", theme.lexically_normal().string()};
}

std::string Icons::themeRoot() const {
  return fs::exists(bundleIcons_) ? bundleIcons_ : fs::path(themeFolder_).parent_path().string();
}

platform::ImagePtr Icons::imageNamed(const std::string& name) {
  if (entryNamed(name) == nullptr) return nullptr;
  return std::make_shared<const platform::Image>(platform::Image{name});
}

std::string Icons::themeName(const platform::ImagePtr& image) {
  const Entry* entry = image == nullptr ? nullptr : entryNamed(image->name);
  return entry == nullptr ? std::string() : std::string(entry->theme);
}

std::string Icons::file(const platform::ImagePtr& image) const {
  const std::string name = themeName(image);
  if (name.empty()) return {};
  const std::string kind = name.ends_with("-symbolic") ? "symbolic" : "scalable";
  std::error_code ignored;
  for (const fs::path& path : {fs::path(bundleIcons_) / "hicolor" / kind / "apps" / (name + ".svg"),
                               fs::path(themeFolder_) / kind / "apps" / (name + ".svg")}) {
    if (fs::exists(path, ignored)) return path.string();
  }
  return {};
}

}  // namespace linux_host
