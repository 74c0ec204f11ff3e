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

// What the embedded suite needs of the machine. Main thread, except writeLog(). Nothing throws:
// failures are logged by the storage itself unless said otherwise.
class Storage {
 public:
  virtual ~Storage() = default;
  virtual void appendEvent(const UsageEvent& event) = 0;
  // The folder chosen for `tool`, else the user's folder for music: an absolute path without a
  // trailing slash. Made if missing. One that cannot be made or written just now (unplugged,
  // without permission) is answered all the same; null when there is none: nothing is chosen, and
  // the folder for music is not there and cannot be made.
  virtual std::optional<std::string> outputFolder(const std::string& tool) = 0;
  // Chooses the folder, which must exist. Returns an error text, empty on success; the folder
  // chosen before then stays.
  virtual std::string setOutputFolder(const std::string& tool, const std::string& folder) = 0;
  // Any thread except audio callbacks.
  virtual void writeLog(std::string_view line) = 0;
  [[nodiscard]] virtual bool isExtendedLoggingOn() const = 0;
};

}  // namespace suite
