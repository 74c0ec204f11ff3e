// SPDX-License-Identifier: MIT
#include "driver/choice_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

#include "driver/loopback_protocol.h"
#include "driver/report.h"
#include "driver/unique_fd.h"

namespace loopback {
namespace {

// The first line says what follows: nothing, or one line with the type and one with the value.
constexpr const char* kNoChoice = "none";
constexpr const char* kChoice = "configured";

std::string serialized(const DefaultChoice& choice) {
  if (!choice) return std::string(kNoChoice) + "\n";
  return std::string(kChoice) + "\n" + choice->type + "\n" + choice->value + "\n";
}

bool writeAll(int fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(fd, text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    written += static_cast<std::size_t>(count);
  }
  return true;
}

bool replaceFile(const std::string& path, const std::string& text) {
  const std::string temporary = path + ".new";
  // A leftover of a crash, or anything else: removed, so that it is neither waited for nor written
  // through.
  unlink(temporary.c_str());
  UniqueFd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file.valid() || !writeAll(file.get(), text) || fsync(file.get()) != 0) return false;
  return rename(temporary.c_str(), path.c_str()) == 0;
}

// Empty if it is not an ordinary file, or too large to be ours.
std::string contentsOf(const std::string& path) {
  constexpr std::size_t kMost_bytes = 64 * 1024;
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  std::string text(kMost_bytes, '\0');
  const ssize_t count = read(file.get(), text.data(), text.size());
  text.resize(static_cast<std::size_t>(std::max(count, ssize_t{})));
  return text.size() == kMost_bytes ? std::string() : text;
}

const char* environmentPath(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] == '/' ? value : nullptr;
}

}  // namespace

DefaultChoice ChoiceFile::load() {
  std::istringstream file(contentsOf(path_));
  std::string kind;
  MetadataValue choice;
  if (!std::getline(file, kind) || kind != kChoice) return std::nullopt;
  if (!std::getline(file, choice.type) || !std::getline(file, choice.value)) return std::nullopt;
  if (deviceNameOf(choice) == kLoopbackDeviceUID) return std::nullopt;
  return choice;
}

void ChoiceFile::store(const DefaultChoice& choice) {
  if (path_.empty()) return;
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), failed);
  if (replaceFile(path_, serialized(choice))) return;
  reportErrno("cannot write " + path_ +
              " (after a crash the default output may have to be chosen by hand)");
}

std::string ChoiceFile::defaultPath() {
  constexpr const char* kName = "/com.vantrel.loopbackdevice/configured-default";
  if (const char* state = environmentPath("XDG_STATE_HOME")) return std::string(state) + kName;
  if (const char* home = environmentPath("HOME")) {
    return std::string(home) + "/.local/state" + kName;
  }
  if (const char* runtime = environmentPath("XDG_RUNTIME_DIR")) return std::string(runtime) + kName;
  return {};
}

}  // namespace loopback
