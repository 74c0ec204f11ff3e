// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "hosts/linux/files/open_file.h"
#include "platform/interrupted_recordings.h"

namespace linux_host {

// Recordings in a temporary folder that nobody writes any more, as OpenFiles's locks tell. They are
// kept apart from the files of a running recording, which never waits for the copying of one.
class LostRecordings : public platform::InterruptedRecordings {
 public:
  // `folder` is asked for at each search, on its thread: the folder may hang.
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
