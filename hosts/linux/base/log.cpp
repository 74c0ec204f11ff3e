// SPDX-License-Identifier: MIT
#include "hosts/linux/base/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "platform/mutex.h"

namespace linux_host {
namespace {

constexpr std::string_view kProgram = "record-audio: ";

// A program can inherit JOURNAL_STREAM although its stderr has been redirected since, so stderr
// must be exactly the stream that it names.
bool stderrIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

}  // namespace

std::string formattedLog(LogLevel level, std::string_view text, bool toJournal) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  if (!toJournal) return std::string(kProgram).append(text).append("\n");
  const std::string prefix = "<" + std::to_string(static_cast<int>(level)) + ">";
  std::string out = prefix;
  for (const char character : text) {
    out += character;
    if (character == '\n') out += prefix;
  }
  return out + "\n";
}

void logMessage(LogLevel level, std::string_view text) {
  const std::string line = formattedLog(level, text, stderrIsJournal());
  // There is no way to report a failed log message.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

void logOnce(LogLevel level, const std::string& topic, std::string_view text) {
  static platform::Mutex mutex;
  static std::set<std::string> said;
  {
    const platform::MutexLock lock(mutex);
    if (!said.insert(topic).second) return;
  }
  logMessage(level, text);
}

}  // namespace linux_host
