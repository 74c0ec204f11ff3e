#pragma once

#include <optional>
#include <string>

#include "hosts/linux/base/json_values.h"

namespace linux_host {

// A small JSON object on the disk that other programs and people may change too. Main thread.
// Symbolic links stay links: the file they lead to is read and replaced.
class JsonFile {
 public:
  explicit JsonFile(std::string path) : path_(std::move(path)) {}

  // What the file holds now; an empty object when there is none.
  //
  // A file that cannot be read or holds anything else is set aside, under its name with ".damaged-"
  // and the time behind it, and the object is empty. Where that is impossible the result is null:
  // the file must then not be written, since that would destroy it. Either is logged.
  std::optional<Json> read();

  // Null where the file cannot be read; leaves it where it is. For those who only want to know.
  [[nodiscard]] std::optional<Json> peek(std::string* error) const;

  // Replaces the file in one step, readable by its user alone. Returns an error text, empty on
  // success.
  [[nodiscard]] std::string write(const Json& json);

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  bool setAside(const std::string& reason);

  const std::string path_;
};

}  // namespace linux_host
