// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/settings_store/json_file.h"

namespace linux_host {

// Whether the user wants a key from the desktop, stored in
// <config>/com.vantrel.korvel.RecordAudio/desktop.json, the file for settings of the desktop. Main
// thread.
class ShortcutWish {
 public:
  explicit ShortcutWish(std::string path) : file_(std::move(path)) {}

  // Reads the file each time. If it cannot be read, logs that and returns false.
  [[nodiscard]] bool isWanted() const;
  // Writes the file only for a change. A failure is logged; the wish then lasts only until the
  // program ends.
  void want(bool wanted);

 private:
  JsonFile file_;
};

}  // namespace linux_host
