// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "hosts/linux/base/json_values.h"

namespace linux_host {

// A small JSON object on the disk that other programs and people may change, too. Main thread.
// Symbolic links stay links: the file that they lead to is read and replaced.
//
// Only a regular file of this user is ever replaced or renamed. Anything else at the path, or
// behind a link there, is left alone.
class JsonFile {
 public:
  explicit JsonFile(std::string path) : path_(std::move(path)) {}

  // The file's current content; an empty object when there is no file.
  //
  // A file that cannot be read or contains anything else is renamed, with ".damaged-" and the time
  // appended, and the object is empty. If that is impossible, or the file is not this user's own or
  // is behind a link, the result is null: it must not be written then, since that would destroy it.
  // Both cases are logged.
  std::optional<Json> read();

  // Only looks: fails when the file cannot be read, which stays where it is.
  [[nodiscard]] Expected<Json> peek() const;

  // Reads the file as read() does, lets `change` change the content, and replaces the file in one
  // step, readable only by its user. Returns the new content.
  //
  // Programs that change the file in this way take turns: each locks the folder of the path (flock)
  // meanwhile. A program that keeps the lock longer than kLockLimit_ms is taken to hang, and the
  // others stop waiting for it.
  Expected<Json> change(const std::function<void(Json&)>& change);

  [[nodiscard]] const std::string& path() const { return path_; }

  static constexpr int kLockLimit_ms = 3000;

 private:
  bool setAside(const std::string& reason);
  Status write(const Json& json);

  const std::string path_;
};

}  // namespace linux_host
