// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace linux_host {

// As syslog numbers them.
enum class LogLevel : int { kError = 3, kWarning = 4, kInfo = 6, kDebug = 7 };

// Writes to stderr with one system call: "record-audio: text", or "<level>text" line by line when
// stderr is the journal. Any thread except an audio callback.
void logMessage(LogLevel level, std::string_view text);

// The same once a process for each `topic`, for what is missing in the surroundings.
void logOnce(LogLevel level, const std::string& topic, std::string_view text);

// What logMessage() would write; `toJournal` decides the form.
std::string formattedLog(LogLevel level, std::string_view text, bool toJournal);

}  // namespace linux_host
