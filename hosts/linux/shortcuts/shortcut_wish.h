// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/settings_store/json_file.h"

namespace linux_host {

// Whether the user wants a key of the desktop's: <config>/com.vantrel.korvel.RecordAudio/
// desktop.json, which holds what concerns this desktop alone. Main thread.
class ShortcutWish {
 public:
  explicit ShortcutWish(std::string path) : file_(std::move(path)) {}

  // Reads the file each time; false when it cannot be read, which the log says.
  [[nodiscard]] bool isWanted() const;
  // Writes the file only for a change. A failure is logged: the wish is then forgotten at the end.
  void want(bool wanted);

 private:
  JsonFile file_;
};

}  // namespace linux_host
