// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/desktop_launch_services.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>

#include "driver/installed_paths.h"
#include "hosts/linux/base/glib_owners.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

namespace fs = std::filesystem;

struct KeyFileFree {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};

std::string entryValue(GKeyFile* file, const char* key) {
  const TextPtr value(g_key_file_get_string(file, G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
  return value != nullptr ? value.get() : "";
}

// The application's path without a trailing slash; empty when the entry is not for that identifier
// or has no absolute path.
std::string applicationIn(const fs::path& entry, const std::string& identifier) {
  const std::unique_ptr<GKeyFile, KeyFileFree> file(g_key_file_new());
  if (!g_key_file_load_from_file(file.get(), entry.c_str(), G_KEY_FILE_NONE, nullptr)) return {};
  if (entryValue(file.get(), "X-Vantrel-BundleIdentifier") != identifier) return {};
  std::string path = entryValue(file.get(), "X-Vantrel-BundlePath");
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path.starts_with('/') ? path : std::string();
}

std::vector<fs::path> desktopEntries(const std::string& dataDirectory) {
  std::vector<fs::path> entries;
  std::error_code failed;
  for (const auto& entry : fs::directory_iterator(dataDirectory + "/applications", failed)) {
    if (entry.path().extension() == ".desktop") entries.push_back(entry.path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace

std::vector<std::string> DesktopLaunchServices::copyApplicationPathsForBundleIdentifier(
    const std::string& identifier) {
  std::vector<std::string> paths;
  // An entry hides entries of the same name in later folders.
  std::set<fs::path> seenNames;
  for (const std::string& directory : dataDirectories_) {
    for (const fs::path& entry : desktopEntries(directory)) {
      if (!seenNames.insert(entry.filename()).second) continue;
      const std::string path = applicationIn(entry, identifier);
      if (path.empty() || std::find(paths.begin(), paths.end(), path) != paths.end()) continue;
      if (isTrusted(path)) paths.push_back(path);
    }
  }
  return paths;
}

bool DesktopLaunchServices::isTrusted(const std::string& application) const {
  if (!allowed_.empty() && application != allowed_) {
    logMessage(LogLevel::kWarning, "the application at " + application +
                                       " is not used: the right to install is for the one at " +
                                       allowed_);
    return false;
  }
  for (const char* part : {loopback::kSuiteDriverBundle, loopback::kSuiteInstaller}) {
    const std::string refusal = trust_(application + '/' + part);
    if (refusal.empty()) continue;
    logMessage(LogLevel::kWarning,
               "the application at " + application + " is not used: " + refusal);
    return false;
  }
  return true;
}

std::vector<std::string> DesktopLaunchServices::systemDataDirectories() {
  const char* variable = std::getenv("XDG_DATA_DIRS");
  const bool isSet = variable != nullptr && variable[0] != '\0';
  std::istringstream list(isSet ? variable : "/usr/local/share:/usr/share");
  std::vector<std::string> directories;
  for (std::string directory; std::getline(list, directory, ':');) {
    if (directory.starts_with('/')) directories.push_back(directory);
  }
  return directories;
}

}  // namespace linux_host
