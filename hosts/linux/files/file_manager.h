// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "hosts/linux/files/open_file.h"
#include "platform/foundation.h"

namespace linux_host {

// Files of the real machine. Recordings and all else that is written while it may move go through
// openFiles(). Where a disk or a network folder does not answer, every call fails after
// FileCalls::kPatience; a file is then said not to exist.
class LinuxFileManager : public platform::FileManager {
 public:
  [[nodiscard]] bool fileExists(const std::string& path) const override;
  // Readable by its owner alone; a symbolic link at the path is refused.
  bool createFile(const std::string& path) override;
  [[nodiscard]] std::unique_ptr<platform::FileHandle> fileHandleForUpdating(
      const std::string& path) override;
  [[nodiscard]] std::string moveItem(const std::string& from, const std::string& to) override;
  std::string removeItem(const std::string& path) override;
  // $TMPDIR if it is the absolute path of a folder that can be written and is no other user's, else
  // /var/tmp; the log then says why.
  [[nodiscard]] std::string temporaryDirectory() const override;

  [[nodiscard]] OpenFiles& openFiles() { return openFiles_; }

 private:
  // errno of what `work` does with the path, 0 when it returned 0, null when it did not return.
  std::optional<int> call(const std::string& path, int (*work)(const char*)) const;

  [[nodiscard]] bool isUsableForTemporaryFiles(const std::string& folder) const;

  OpenFiles openFiles_;
  // Of the last look; guarded by temporaryMutex_.
  mutable std::string chosenTemporaryDirectory_;
  mutable std::string usableTemporaryDirectory_;
  mutable std::mutex temporaryMutex_;
};

}  // namespace linux_host
