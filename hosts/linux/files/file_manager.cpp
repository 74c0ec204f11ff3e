// SPDX-License-Identifier: MIT
#include "hosts/linux/files/file_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"

namespace linux_host {
namespace {

// Others can read the temporary folder; moving the file opens it to them.
constexpr mode_t kNewFileMode = 0600;
constexpr const char* kTemporaryDirectory = "/var/tmp";

// Whether nobody else can remove files from the folder: it belongs to this user or the system, or
// only owners may remove their files. Another user's folder, which `su` leaves in the environment,
// is not safe.
bool isSafeFromOthers(const struct stat& folder) {
  return folder.st_uid == geteuid() || folder.st_uid == 0 || (folder.st_mode & S_ISVTX) != 0;
}

class LinuxFileHandle : public platform::FileHandle {
 public:
  explicit LinuxFileHandle(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}

  std::uint64_t seekToEndOfFile() override {
    position_bytes_ = file_->size_bytes();
    return position_bytes_;
  }

  std::string writeData(std::span<const std::byte> data) override {
    const Status written = file_->pwriteAt(position_bytes_, data);
    if (!written) return written.error();
    position_bytes_ += data.size();
    return {};
  }

  void closeFile() override {
    if (const Status closed = file_->close(); !closed) {
      logMessage(LogLevel::kError, closed.error());
    }
  }

 private:
  const std::shared_ptr<OpenFile> file_;
  std::uint64_t position_bytes_ = 0;
};

}  // namespace

Status LinuxFileManager::call(std::string_view doing, const std::string& path,
                              int (*work)(const char*)) const {
  const auto calls = openFiles_.calls().shared_from_this();
  const auto ended = calls->within([calls, path, work]() -> SystemStatus {
    const FileCalls::Call underWay(*calls, path);
    if (work(path.c_str()) != 0) return systemError();
    return {};
  });
  if (!ended) return Unexpected(noAnswerText(doing, path));
  if (!*ended) return Unexpected(errorText(doing, path, ended->error()));
  return {};
}

bool LinuxFileManager::fileExists(const std::string& path) const {
  const Status found = call("look for", path, [](const char* name) {
    struct stat status {};
    return stat(name, &status);
  });
  return found.has_value();
}

bool LinuxFileManager::createFile(const std::string& path) {
  const Status created = call("create the file", path, [](const char* name) {
    loopback::UniqueFd file(open(
        name, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kNewFileMode));
    if (!file.valid()) return -1;
    errno = file.closeNow();
    return errno == 0 ? 0 : -1;
  });
  if (!created) logMessage(LogLevel::kError, created.error());
  return created.has_value();
}

std::unique_ptr<platform::FileHandle> LinuxFileManager::fileHandleForUpdating(
    const std::string& path) {
  auto file = openFiles_.open(path, OpenFiles::Mode::kExisting);
  if (!file) {
    logMessage(LogLevel::kError, file.error());
    return nullptr;
  }
  return std::make_unique<LinuxFileHandle>(*std::move(file));
}

std::string LinuxFileManager::moveItem(const std::string& from, const std::string& to) {
  const Status moved = openFiles_.move(from, to);
  return moved ? std::string() : moved.error();
}

std::string LinuxFileManager::removeItem(const std::string& path) {
  const Status removed = call("remove", path, &unlink);
  return removed ? std::string() : removed.error();
}

std::string LinuxFileManager::temporaryDirectory() const {
  const char* variable = std::getenv("TMPDIR");
  std::string chosen = variable != nullptr && *variable == '/' ? variable : kTemporaryDirectory;
  while (chosen.size() > 1 && chosen.back() == '/') chosen.pop_back();
  if (chosen == kTemporaryDirectory) return chosen;
  const platform::MutexLock lock(temporaryMutex_);
  if (chosen != chosenTemporaryDirectory_) {
    chosenTemporaryDirectory_ = chosen;
    usableTemporaryDirectory_ = isUsableForTemporaryFiles(chosen) ? chosen : kTemporaryDirectory;
  }
  return usableTemporaryDirectory_;
}

bool LinuxFileManager::isUsableForTemporaryFiles(const std::string& folder) const {
  const Status usable = call("use TMPDIR", folder, [](const char* name) {
    struct stat status {};
    if (stat(name, &status) != 0) return -1;
    errno = S_ISDIR(status.st_mode) ? EACCES : ENOTDIR;
    if (!S_ISDIR(status.st_mode) || !isSafeFromOthers(status)) return -1;
    return access(name, W_OK | X_OK);
  });
  if (usable) return true;
  logOnce(LogLevel::kWarning, "TMPDIR " + folder,
          usable.error() + " Recordings are written to " + kTemporaryDirectory + " instead.");
  return false;
}

}  // namespace linux_host
