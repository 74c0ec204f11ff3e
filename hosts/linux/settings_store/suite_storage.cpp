// SPDX-License-Identifier: MIT
#include "hosts/linux/settings_store/suite_storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "driver/unique_fd.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/base/small_files.h"

namespace linux_host {
namespace {

constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kPrivateSuiteFolder = 0700;
// Reduced by the umask.
constexpr mode_t kFolderForRecordings = 0777;

Json objectOrNull(const std::optional<platform::Dictionary>& dictionary) {
  return dictionary ? jsonOf(platform::Value(*dictionary)) : Json();
}

std::string eventLine(const suite::UsageEvent& event) {
  Json json = Json::object();
  json["time"] = event.time;
  json["tool"] = event.tool;
  json["event"] = event.event;
  json["prefs"] = objectOrNull(event.prefs);
  json["details"] = objectOrNull(event.details);
  return jsonLine(json) + "\n";
}

// A line that a full disk or a crash cut short must not merge with the next one.
bool endsWithinLine(int fd) {
  struct stat status {};
  char last = '\n';
  return fstat(fd, &status) == 0 && status.st_size > 0 &&
         pread(fd, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

// A single write, so that lines of several programs do not mix.
SystemStatus appendLine(const std::string& path, std::string line) {
  const loopback::UniqueFd fd(
      open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, kPrivateFile));
  if (!fd.valid()) return systemError();
  if (endsWithinLine(fd.get())) line.insert(0, "\n");
  ssize_t written = 0;
  do {
    written = write(fd.get(), line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written < 0) return systemError();
  if (written < std::ssize(line)) return Unexpected(std::errc::no_space_on_device);
  return {};
}

// Permissions alone do not tell: some file systems refuse in spite of them.
SystemStatus makeAndForgetFile(const std::string& folder) {
  loopback::UniqueFd fd(open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kPrivateFile));
  if (!fd.valid() && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT)) {
    // The file system does not support files without a name.
    std::string name = folder + "/.record-audio-XXXXXX";
    fd = loopback::UniqueFd(mkostemp(name.data(), O_CLOEXEC));
    if (fd.valid()) unlink(name.c_str());
  }
  if (!fd.valid()) return systemError();
  return {};
}

struct FolderLook {
  bool exists;
  std::string problem;  // why nothing can be written there; empty when it can
};

bool saysYes(const char* value) {
  return value != nullptr && std::string_view(value) == "1";
}

}  // namespace

SuiteStorage::SuiteStorage(XdgFolders folders)
    : folders_(std::move(folders)),
      locations_(folders_.config + "/com.vantrel.korvel/locations.json"),
      events_(folders_.state + "/com.vantrel.korvel/events.jsonl"),
      extendedLogging_(saysYes(std::getenv("KORVEL_EXTENDED_LOGGING"))) {}

void SuiteStorage::appendEvent(const suite::UsageEvent& event) {
  mainThread_.assertHeld();
  const std::string folder = std::filesystem::path(events_).parent_path().string();
  const auto warn = [&event](const std::string& why) {
    logMessage(LogLevel::kWarning, "The event " + event.event + " is not logged. " + why);
  };
  if (const Status made = makeFolders(folder, kPrivateSuiteFolder); !made)
    return warn(made.error());
  const SystemStatus appended = appendLine(events_, eventLine(event));
  if (!appended) warn(errorText("write", events_, appended.error()));
}

std::string SuiteStorage::chosenFolder(const std::string& tool) const {
  const auto locations = locations_.peek();
  if (!locations) {
    logMessage(LogLevel::kWarning, locations.error() +
                                       " The music folder is used instead: " + folders_.music +
                                       ". Correct the file or choose a folder again.");
    return {};
  }
  if (!locations->contains(tool)) return {};
  if (const auto folder = folderIn(*locations, tool)) return *folder;
  logMessage(LogLevel::kWarning,
             "The output folder in " + locations_.path() +
                 " is not an absolute path; the music folder is used instead: " + folders_.music +
                 ". Choose a folder again.");
  return {};
}

std::optional<std::string> SuiteStorage::outputFolder(const std::string& tool) {
  mainThread_.assertHeld();
  std::string folder = chosenFolder(tool);
  const bool isChosen = !folder.empty();
  if (!isChosen) folder = folders_.music;
  const auto look = folderCalls_->within([folder] {
    const Status made = makeFolders(folder, kFolderForRecordings);
    if (made) return FolderLook{true, whyNotWritable(folder)};
    std::error_code unknown;
    return FolderLook{std::filesystem::exists(folder, unknown), made.error()};
  });
  outputFolderProblem_ = look ? look->problem : noAnswerText("use", folder);
  const bool isThere = isChosen || !look || look->exists;
  if (!isThere) {
    logMessage(LogLevel::kError, "There is no folder for recordings. " + outputFolderProblem_);
    return std::nullopt;
  }
  if (!outputFolderProblem_.empty()) {
    logMessage(LogLevel::kError,
               "The output folder cannot be used just now. " + outputFolderProblem_ +
                   " Until then recordings are kept in the temporary folder, and a later start "
                   "saves them. You can also choose another folder in the preferences.");
  }
  return lastOutputFolder_ = folder;
}

std::string SuiteStorage::setOutputFolder(const std::string& tool, const std::string& folder) {
  mainThread_.assertHeld();
  if (!folder.starts_with('/')) return "Cannot use " + folder + ": it is not an absolute path.";
  const std::string plain = withoutTrailingSlash(folder);
  const auto failure = folderCalls_->within([plain] { return whyNotWritable(plain); });
  if (!failure) return noAnswerText("use", plain);
  if (!failure->empty()) return *failure;
  const auto changed = locations_.change([&](Json& locations) { locations[tool] = plain; });
  return changed ? std::string() : changed.error();
}

void SuiteStorage::writeLog(std::string_view line) {
  logMessage(LogLevel::kInfo, line);
}

std::optional<std::string> folderIn(const Json& locations, const std::string& tool) {
  const auto entry = locations.find(tool);
  if (entry == locations.end()) return std::nullopt;
  const auto* folder = entry->get_ptr<const std::string*>();
  if (folder == nullptr || !folder->starts_with('/')) return std::nullopt;
  return withoutTrailingSlash(*folder);
}

std::string whyNotWritable(const std::string& folder) {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) return errorText("use", folder, errno);
  if (!S_ISDIR(status.st_mode)) return errorText("use", folder, ENOTDIR);
  const SystemStatus made = makeAndForgetFile(folder);
  return made ? std::string() : errorText("write into", folder, made.error());
}

}  // namespace linux_host
