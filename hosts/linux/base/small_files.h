// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

// Reading and replacing small files whole: settings, tables. Any thread.

namespace linux_host {

struct FileContents {
  std::string bytes;
  int error = 0;  // errno of the failure; ENOENT when there is no file
  // There is something else than a file: a folder, a pipe, a device. It was not opened for reading.
  bool isNoFile = false;
};

// Refuses (EFBIG) files of more than 16 MiB: none of ours is that large, and memory is finite; and
// what is no regular file, which could keep the reader waiting or do something when it is read.
FileContents readSmallFile(const std::string& path);

// Replaces the file at `path` in one step: a temporary file beside it, flushed to the disk, then
// renamed; readers and crashes see the old or the new content whole. Returns an error text, empty
// on success; the old file is then as it was.
std::string writeSmallFile(const std::string& path, std::string_view bytes, mode_t mode);

// Where `path` leads through symbolic links at its end, also when there is no file there (yet).
std::string behindLinks(const std::string& path);

// Makes the folder and those above it. Returns an error text, empty on success.
std::string makeFolders(const std::string& path, mode_t mode);

// "Cannot <doing> <path>: what is wrong. What to do."
std::string errorText(std::string_view doing, const std::string& path, int error);

}  // namespace linux_host
