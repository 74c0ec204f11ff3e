// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace linux_host {

// With syslog's numbers.
enum class LogLevel : int { kError = 3, kWarning = 4, kInfo = 6 };

// Writes to stderr with one system call: "record-audio: text", or "<level>text" line by line when
// stderr is the journal. Any thread except an audio callback.
void logMessage(LogLevel level, std::string_view text);

// The same, but once per process for each `topic`; for things that the system lacks.
void logOnce(LogLevel level, const std::string& topic, std::string_view text);

// What logMessage() would write; `toJournal` selects the format.
std::string formattedLog(LogLevel level, std::string_view text, bool toJournal);

}  // namespace linux_host
