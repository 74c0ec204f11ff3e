// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace suite {

// One entry of the usage-event log.
struct UsageEvent {
  std::string time;  // ISO 8601, UTC, milliseconds: "2024-05-17T12:03:27.042Z"
  std::string tool;
  std::string event;
  std::optional<platform::Dictionary> prefs;
  std::optional<platform::Dictionary> details;
};

// What the embedded suite needs from the machine. Main thread, except writeLog(). Nothing throws.
// Unless a function says otherwise, the storage itself logs what fails.
class Storage {
 public:
  virtual ~Storage() = default;
  virtual void appendEvent(const UsageEvent& event) = 0;
  // The folder chosen for `tool`, or else the user's music folder: an absolute path without a
  // trailing slash. A missing folder is created. One that cannot be created or written now (because
  // it is unplugged or not permitted) is returned all the same. Null when no folder is chosen and
  // the music folder does not exist and cannot be created.
  virtual std::optional<std::string> outputFolder(const std::string& tool) = 0;
  // Chooses the folder, which must exist. Returns an empty text, or an error text; then the folder
  // chosen before is kept.
  virtual std::string setOutputFolder(const std::string& tool, const std::string& folder) = 0;
  // Any thread except audio callbacks.
  virtual void writeLog(std::string_view line) = 0;
  [[nodiscard]] virtual bool isExtendedLoggingOn() const = 0;
};

}  // namespace suite
