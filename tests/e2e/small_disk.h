// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace e2e {

// A folder on a disk of its own that can be full. Where this machine lets nobody mount one, the
// limit on a process's files takes its place: both make a write fail in its middle.
class SmallDisk {
 public:
  // `folder` exists and is empty.
  explicit SmallDisk(std::string folder);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  // From now on `process` can write about `left_bytes` more into `file`, which lies in the folder.
  void fillUp(pid_t process, const std::string& file, std::uint64_t left_bytes) const;
  // For a mounted disk only: leaves that much of it free; its new size, as mount(8) takes it.
  void fill(std::uint64_t left_bytes) const;
  void resize(const std::string& size) const;
  // Takes it out of the folders; what is open goes on there.
  void detach();
  [[nodiscard]] bool isMounted() const { return mounted_; }
  [[nodiscard]] const std::string& folder() const { return folder_; }

 private:
  const std::string folder_;
  bool mounted_ = false;
};

}  // namespace e2e
