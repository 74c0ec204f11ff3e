// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace loopback {

// Throws InstallError with the text and the reason from errno.
[[noreturn]] void fail(const std::string& what);

// Files and folders relative to open folders. Symbolic links are never followed. The functions that
// change something throw InstallError.

// Null when there is no such regular file, or it is larger than any of the driver's files can be.
[[nodiscard]] std::optional<std::string> readFile(int directory, const std::string& path);
// The whole content of the open file.
[[nodiscard]] std::optional<std::string> readOpenFile(int fd);

// Creates a file that nobody else can open before it is complete, and flushes it to the disk.
void writeNewFile(int directory, const std::string& name, const std::string& content, mode_t mode);
void makeDirectory(int directory, const std::string& name);
void syncDirectory(int fd);
// Does nothing when it is not there.
void removeTree(int directory, const std::string& name);
[[nodiscard]] bool exists(int directory, const std::string& name);
// The number of files and folders below the folder; none when it is not there.
[[nodiscard]] std::optional<std::size_t> countTree(int directory, const std::string& name);

}  // namespace loopback
