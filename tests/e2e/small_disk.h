// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace e2e {

// A folder on a separate disk that can be filled up. Without the right to mount one, a limit on the
// process's file size is used instead: both make a write fail halfway.
class SmallDisk {
 public:
  // `folder` exists and is empty.
  explicit SmallDisk(std::string folder);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  // From now on `process` can write about `left_bytes` more into `file`, which is in the folder.
  void fillUp(pid_t process, const std::string& file, std::uint64_t left_bytes) const;
  // Only for a mounted disk: leaves this much of it free.
  void fill(std::uint64_t left_bytes) const;
  void resize(const std::string& size) const;
  // Detaches the disk; open files stay usable.
  void detach();
  [[nodiscard]] bool isMounted() const { return mounted_; }
  [[nodiscard]] const std::string& folder() const { return folder_; }

 private:
  const std::string folder_;
  bool mounted_ = false;
};

}  // namespace e2e
