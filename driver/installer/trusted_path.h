// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>

#include "driver/unique_fd.h"

namespace loopback {

// A file or folder that only its trusted owner can have written, or the reason why it is refused.
struct TrustedFile {
  UniqueFd fd;
  std::string refusal;  // empty when fd is valid
};

// Opens the absolute `path` below the folder `root` for reading, one step at a time. Refuses
// symbolic links anywhere, "." and "..", and anything on the way (including the root and the file
// itself) that `owner` does not own or that others may write. Opens only regular files and folders;
// never waits on a pipe or device in their place.
[[nodiscard]] TrustedFile openTrusted(int root, const std::string& path, uid_t owner);

// The same from the file system's root, with root as the owner.
[[nodiscard]] TrustedFile openTrustedBySystem(const std::string& path);

// Why the open file or folder is not trusted; empty when it is. `path` is for the message.
[[nodiscard]] std::string refusalOf(int fd, const std::string& path, uid_t owner);

}  // namespace loopback
