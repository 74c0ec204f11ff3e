// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/json_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <thread>

#include "driver/unique_fd.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/file_transfer.h"

namespace linux_host {
namespace {

constexpr mode_t kPrivate = 0600;
constexpr mode_t kPrivateFolder = 0700;
constexpr int kMostSetAsideInOneSecond = 100;

std::string timeForName() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &utc)};
}

// Whether it is this user's own regular file, not a link.
bool isOwnFile(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

bool isNameTaken(const SystemStatus& renamed) {
  return !renamed && renamed.error() == std::errc::file_exists;
}

std::string keptText(const std::string& path) {
  return path +
         " is left as it is: it is not an ordinary file of yours at that very path. Remove it, or "
         "correct the file that it leads to.";
}

// Only one program at a time changes files in the folder. The lock is on the folder, because a lock
// file would be clutter and a file that gets replaced cannot be locked.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : fd_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!fd_.valid()) return;
    const auto limit =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(JsonFile::kLockLimit_ms);
    while (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
      // The file system has no locks, or another program holds on to it.
      if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > limit) {
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  const loopback::UniqueFd fd_;
};

}  // namespace

Expected<Json> JsonFile::peek() const {
  const FileContents contents = readSmallFile(path_);
  if (contents.error == ENOENT) return Json::object();
  if (contents.isNoFile) return Unexpected(path_ + " is not an ordinary file.");
  if (contents.error != 0) return Unexpected(errorText("read", path_, contents.error));
  auto json = parsedJsonObject(contents.bytes);
  if (!json) return Unexpected(path_ + " is damaged: " + json.error() + ".");
  return json;
}

std::optional<Json> JsonFile::read() {
  auto json = peek();
  if (json) return *std::move(json);
  if (!setAside(json.error())) return std::nullopt;
  return Json::object();
}

bool JsonFile::setAside(const std::string& reason) {
  const std::string aside = path_ + ".damaged-" + timeForName();
  if (!isOwnFile(path_)) {
    logMessage(LogLevel::kError,
               reason + " " + keptText(path_) + " Until then nothing is saved there.");
    return false;
  }
  SystemStatus renamed = Unexpected(std::errc::file_exists);
  std::string name = aside;
  for (int i = 1; i <= kMostSetAsideInOneSecond && isNameTaken(renamed); ++i) {
    renamed = renameWithoutReplacing(path_, name);
    if (renamed) {
      logMessage(LogLevel::kError,
                 reason + " It was set aside as " + name +
                     " and the defaults are used; correct it and move it back, or "
                     "remove it.");
      return true;
    }
    name = aside + "-" + std::to_string(i);
  }
  logMessage(LogLevel::kError, reason + " " + errorText("set it aside as", aside, renamed.error()) +
                                   " Until then nothing is saved there.");
  return false;
}

Expected<Json> JsonFile::change(const std::function<void(Json&)>& change) {
  const std::string folder = std::filesystem::path(path_).parent_path().string();
  if (const Status made = makeFolders(folder, kPrivateFolder); !made) {
    return Unexpected(made.error());
  }
  const FolderLock lock(folder);
  auto json = read();
  if (!json) return Unexpected("Cannot change " + path_ + ". Correct or remove that file.");
  change(*json);
  if (const Status written = write(*json); !written) return Unexpected(written.error());
  return *std::move(json);
}

Status JsonFile::write(const Json& json) {
  const std::string file = behindLinks(path_);
  struct stat status {};
  const bool isThere = lstat(file.c_str(), &status) == 0;
  if (isThere && !isOwnFile(file)) return Unexpected(keptText(file));
  return writeSmallFile(file, jsonText(json), kPrivate);
}

}  // namespace linux_host
