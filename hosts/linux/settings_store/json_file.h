// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "hosts/linux/base/json_values.h"

namespace linux_host {

// A small JSON object on the disk that other programs and people may change too. Main thread.
// Symbolic links stay links: the file they lead to is read and replaced.
//
// Only what is a regular file of this user's is ever replaced or renamed: whatever else lies at the
// path, or where a link there leads, is somebody else's business.
class JsonFile {
 public:
  explicit JsonFile(std::string path) : path_(std::move(path)) {}

  // What the file holds now; an empty object when there is none.
  //
  // A file that cannot be read or holds anything else is set aside, under its name with ".damaged-"
  // and the time behind it, and the object is empty. Where that is impossible, or the file is not
  // this user's own or lies behind a link, the result is null: it must then not be written, since
  // that would destroy it. Either is logged.
  std::optional<Json> read();

  // Null where the file cannot be read; leaves it where it is. For those who only want to know.
  [[nodiscard]] std::optional<Json> peek(std::string* error) const;

  // Reads the file as read() does, has `change` change what it holds, and replaces it in one step,
  // readable by its user alone. Returns what the file holds now; null, with *error telling why,
  // when it could not be changed.
  //
  // Programs that change it in this way take turns: each locks the folder that the path lies in
  // (flock) meanwhile. One that keeps the lock longer than kLockLimit has hung, and is
  // not waited for any more.
  std::optional<Json> change(const std::function<void(Json&)>& change, std::string* error);

  [[nodiscard]] const std::string& path() const { return path_; }

  static constexpr int kLockLimit_ms = 3000;

 private:
  bool setAside(const std::string& reason);
  // Returns an error text, empty on success.
  [[nodiscard]] std::string write(const Json& json);

  const std::string path_;
};

}  // namespace linux_host
