// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <system_error>

#include "hosts/linux/base/expected.h"

// Reads and replaces small files as a whole: settings, tables. Any thread.

namespace linux_host {

struct FileContents {
  std::string bytes;
  int error = 0;  // errno of the failure; ENOENT when there is no file
  // The path leads to something other than a file: a folder, a pipe, a device. It was not opened.
  bool isNoFile = false;
};

// Refuses files of more than 16 MiB (EFBIG), as none of ours is that large, and anything that is
// not a regular file, because reading it could block or have an effect.
FileContents readSmallFile(const std::string& path);

// Replaces the file at `path` in one step: writes a temporary file beside it, flushes it to the
// disk and renames it. Readers, even after a crash, see either the whole old content or the whole
// new one. After a failure the old file is unchanged.
Status writeSmallFile(const std::string& path, std::string_view bytes, mode_t mode);

// The path behind symbolic links at the end of `path`, even if there is no file there (yet).
std::string behindLinks(const std::string& path);

// Creates the folder and its parents.
Status makeFolders(const std::string& path, mode_t mode);

// "Cannot <doing> <path>: what is wrong. What to do."
std::string errorText(std::string_view doing, const std::string& path, int error);

// How a system call ended, for a caller that decides by the errno or knows what was attempted.
using SystemStatus = Expected<void, std::errc>;
// errno, to be returned in place of a value.
Unexpected<std::errc> systemError();
// As above, for that errno.
std::string errorText(std::string_view doing, const std::string& path, std::errc error);

}  // namespace linux_host
