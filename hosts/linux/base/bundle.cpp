// SPDX-License-Identifier: MIT
#include "hosts/linux/base/bundle.h"

#include <array>
#include <filesystem>
#include <utility>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"

#ifndef RA_DATA_DIR_FROM_BIN
#error "RA_DATA_DIR_FROM_BIN and RA_LOCALE_DIR_FROM_BIN come from the build"
#endif

namespace linux_host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kBundleName = "RecordAudio.app";
constexpr std::array kLocalizedKeys = {"CFBundleName", "CFBundleDisplayName"};

std::optional<platform::Dictionary> readInfo(const std::string& path) {
  const FileContents contents = readSmallFile(path);
  if (contents.error != 0) return std::nullopt;
  const auto json = parsedJsonObject(contents.bytes);
  if (!json) {
    logMessage(LogLevel::kWarning,
               "Cannot use " + path + ": " + json.error() + ". Reinstall Record Audio.");
    return std::nullopt;
  }
  platform::Dictionary info;
  for (const auto& [key, value] : json->items()) info[key] = valueOf(value);
  return info;
}

}  // namespace

std::string executablePath() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).string();
}

BundlePaths BundlePaths::ofExecutable(const std::string& executable) {
  const fs::path folder = fs::path(executable).parent_path();
  std::error_code error;
  const fs::path beside = folder / kBundleName;
  if (fs::is_directory(beside, error)) {
    return {beside.string(), (beside / "Contents/Resources/locale").string()};
  }
  return {(folder / RA_DATA_DIR_FROM_BIN / "record-audio" / kBundleName).lexically_normal(),
          (folder / RA_LOCALE_DIR_FROM_BIN).lexically_normal()};
}

LinuxBundle::LinuxBundle(std::string path, std::unique_ptr<StringTables> strings)
    : path_(std::move(path)), strings_(std::move(strings)) {}

std::unique_ptr<LinuxBundle> LinuxBundle::mainBundle(const BundlePaths& paths) {
  return std::make_unique<LinuxBundle>(
      paths.bundle, std::make_unique<StringTables>(paths.locales, kApplicationId,
                                                   StringTables::usersLanguages()));
}

std::optional<platform::Dictionary> LinuxBundle::infoDictionary() const {
  mainThread_.assertHeld();
  if (!infoRead_) info_ = readInfo(path_ + "/Contents/Info.json");
  infoRead_ = true;
  return info_;
}

std::optional<platform::Dictionary> LinuxBundle::localizedInfoDictionary() const {
  mainThread_.assertHeld();
  auto info = infoDictionary();
  if (!info) return std::nullopt;
  for (const char* key : kLocalizedKeys) {
    const auto entry = info->find(key);
    if (entry == info->end()) continue;
    if (const auto* text = entry->second.as<std::string>()) entry->second = localizedString(*text);
  }
  return info;
}

std::string LinuxBundle::localizedString(const std::string& key) const {
  const std::string* text = strings_ == nullptr ? nullptr : strings_->lookUp(key);
  return text == nullptr ? key : *text;
}

std::string LinuxBundle::language() const {
  return strings_ == nullptr ? "en" : strings_->language();
}

std::unique_ptr<platform::Bundle> LinuxBundleLoader::bundleWithPath(const std::string& path) const {
  std::error_code error;
  if (!fs::is_directory(path, error)) return nullptr;
  std::string plain = path;
  while (plain.size() > 1 && plain.back() == '/') plain.pop_back();
  return std::make_unique<LinuxBundle>(std::move(plain), nullptr);
}

}  // namespace linux_host
