#include "hosts/linux/settings_store/json_file.h"

#include <cerrno>
#include <chrono>
#include <ctime>

#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/file_transfer.h"

namespace linux_host {
namespace {

constexpr mode_t kPrivate = 0600;
constexpr int kMostSetAsideInOneSecond = 100;

std::string timeForName() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &utc)};
}

}  // namespace

std::optional<Json> JsonFile::peek(std::string* error) const {
  const FileContents contents = readSmallFile(path_);
  if (contents.error == ENOENT) return Json::object();
  if (contents.error != 0) {
    *error = errorText("read", path_, contents.error);
    return std::nullopt;
  }
  auto json = parsedJsonObject(contents.bytes, error);
  if (!json) *error = path_ + " is damaged: " + *error + ".";
  return json;
}

std::optional<Json> JsonFile::read() {
  std::string error;
  auto json = peek(&error);
  if (json) return json;
  if (!setAside(error)) return std::nullopt;
  return Json::object();
}

bool JsonFile::setAside(const std::string& reason) {
  const std::string file = behindLinks(path_);
  const std::string aside = file + ".damaged-" + timeForName();
  int error = EEXIST;
  std::string name = aside;
  for (int i = 1; i <= kMostSetAsideInOneSecond && error == EEXIST; ++i) {
    error = renameWithoutReplacing(file, name);
    if (error == 0) {
      logMessage(LogLevel::kError, reason + " It was set aside as " + name +
                                       " and the defaults are used; mend it and move it back, or "
                                       "remove it.");
      return true;
    }
    name = aside + "-" + std::to_string(i);
  }
  logMessage(LogLevel::kError, reason + " " + errorText("set it aside as", aside, error) +
                                   " Until then nothing is saved there.");
  return false;
}

std::string JsonFile::write(const Json& json) {
  return writeSmallFile(behindLinks(path_), jsonText(json), kPrivate);
}

}  // namespace linux_host
