#pragma once

#include <atomic>
#include <string>

#include "hosts/linux/files/file_calls.h"

// The system's side of moving a file. Any thread; return errno, 0 on success.

namespace linux_host {

// Renames, and fails with EEXIST rather than replace a file, on file systems that cannot promise
// that in one step too. EXDEV: another file system.
int renameWithoutReplacing(const std::string& from, const std::string& to);

// Copies the bytes of `sourceFd` into a new file at `to` which must not exist, with the source's
// permissions, flushed to the disk. Until it is complete the file has a hidden name in the same
// folder; after an error nothing is left of it. *copyFd receives a descriptor of the copy, open for
// reading and writing. Goes in steps, each a call of `calls` that ends on the disk; ECANCELED when
// `isGivenUp` has become true.
int copyWithoutReplacing(int sourceFd, const std::string& to, FileCalls& calls,
                         const std::atomic<bool>& isGivenUp, int* copyFd);

}  // namespace linux_host
