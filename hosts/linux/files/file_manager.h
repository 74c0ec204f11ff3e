// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "hosts/linux/files/open_file.h"
#include "platform/foundation.h"
#include "platform/mutex.h"

namespace linux_host {

// The real machine's files. Recordings and other files that may be moved while they are written go
// through openFiles(). If a disk or a network folder does not answer, every call fails after
// FileCalls::kPatience; a file then counts as missing.
class LinuxFileManager : public platform::FileManager {
 public:
  [[nodiscard]] bool fileExists(const std::string& path) const override;
  // Readable only by its owner; a symbolic link at the path is refused.
  bool createFile(const std::string& path) override;
  [[nodiscard]] std::unique_ptr<platform::FileHandle> fileHandleForUpdating(
      const std::string& path) override;
  [[nodiscard]] std::string moveItem(const std::string& from, const std::string& to) override;
  std::string removeItem(const std::string& path) override;
  // $TMPDIR if it is the absolute path of a writable folder that does not belong to another user.
  // Otherwise /var/tmp, and the log says why.
  [[nodiscard]] std::string temporaryDirectory() const override;

  [[nodiscard]] OpenFiles& openFiles() { return openFiles_; }

 private:
  // Calls `work`, which returns 0 or sets errno, with the path. `doing` says what that is. Gives up
  // if it does not return.
  Status call(std::string_view doing, const std::string& path, int (*work)(const char*)) const;

  [[nodiscard]] bool isUsableForTemporaryFiles(const std::string& folder) const;

  OpenFiles openFiles_;
  mutable platform::Mutex temporaryMutex_;
  // From the last check.
  mutable std::string chosenTemporaryDirectory_ RA_GUARDED_BY(temporaryMutex_);
  mutable std::string usableTemporaryDirectory_ RA_GUARDED_BY(temporaryMutex_);
};

}  // namespace linux_host
