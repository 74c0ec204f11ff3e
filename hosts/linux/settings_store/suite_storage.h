// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "hosts/linux/files/file_calls.h"
#include "hosts/linux/settings_store/json_file.h"
#include "hosts/linux/settings_store/xdg_folders.h"
#include "platform/thread_role.h"
#include "suite/storage.h"

namespace linux_host {

// The suite's files in the user's home: <config>/com.vantrel.korvel/locations.json and
// <state>/com.vantrel.korvel/events.jsonl. Main thread, except writeLog().
class SuiteStorage : public suite::Storage {
 public:
  explicit SuiteStorage(XdgFolders folders);

  void appendEvent(const suite::UsageEvent& event) override;
  std::optional<std::string> outputFolder(const std::string& tool) override;
  std::string setOutputFolder(const std::string& tool, const std::string& folder) override;
  // The last result of outputFolder(); empty before the first.
  [[nodiscard]] const std::string& lastOutputFolder() const { return lastOutputFolder_; }
  // Why the folder could not be written to in the last outputFolder(), even if that returned null;
  // empty when it could.
  [[nodiscard]] const std::string& outputFolderProblem() const { return outputFolderProblem_; }
  void writeLog(std::string_view line) override;
  [[nodiscard]] bool isExtendedLoggingOn() const override { return extendedLogging_; }

 private:
  [[nodiscard]] std::string chosenFolder(const std::string& tool) const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const XdgFolders folders_;
  const std::shared_ptr<FileCalls> folderCalls_ = std::make_shared<FileCalls>();
  std::string lastOutputFolder_;
  std::string outputFolderProblem_;
  JsonFile locations_;
  const std::string events_;
  const bool extendedLogging_;
};

// The folder for `tool` in the locations file: an absolute path without a trailing slash; null when
// there is none or the value is anything else.
std::optional<std::string> folderIn(const Json& locations, const std::string& tool);

// Empty when files can be created in `folder`, else what is wrong and what to do.
std::string whyNotWritable(const std::string& folder);

}  // namespace linux_host
