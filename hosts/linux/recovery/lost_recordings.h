// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "hosts/linux/files/open_file.h"
#include "platform/interrupted_recordings.h"

namespace linux_host {

// Recordings in a temporary folder that no process is writing any more, as the locks of OpenFiles
// show. Their files are kept apart from those of a running recording, which never waits for them to
// be copied.
class LostRecordings : public platform::InterruptedRecordings {
 public:
  // `folder` is called for each search, on the searching thread, because the folder may hang.
  explicit LostRecordings(std::function<std::string()> folder) : folder_(std::move(folder)) {}
  explicit LostRecordings(const std::string& folder)
      : LostRecordings([folder] { return folder; }) {}

  [[nodiscard]] std::vector<std::string> find(const std::string& namePrefix,
                                              std::string* error) override;
  [[nodiscard]] Claim claim(const std::string& path) override;
  void yieldToOthers() override;

  // Any thread.
  [[nodiscard]] OpenFiles& openFiles() { return files_; }

 private:
  const std::function<std::string()> folder_;
  OpenFiles files_;
};

}  // namespace linux_host
