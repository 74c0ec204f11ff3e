// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

// Real file systems in which something goes wrong. Each is mounted on an existing empty folder for
// its object's lifetime. All need the right to mount; without it, or anything else that they need,
// refusal() says why and the object does nothing.

namespace e2e {

class MountedDisk {
 public:
  virtual ~MountedDisk();
  MountedDisk(const MountedDisk&) = delete;
  MountedDisk& operator=(const MountedDisk&) = delete;

  // Why this machine cannot have such a disk; empty when it can.
  [[nodiscard]] const std::string& refusal() const { return refusal_; }

 protected:
  // `scratch`: a folder for the disk's image and the commands' output.
  MountedDisk(std::string folder, std::string scratch);

  // Runs the command, unless an earlier one has failed; a failed command's output becomes the
  // refusal.
  bool run(const std::vector<std::string>& command);
  void makeImage(std::uint64_t size_bytes);
  [[nodiscard]] std::string image() const { return scratch_ + "/image"; }
  [[nodiscard]] const std::string& folder() const { return folder_; }
  [[nodiscard]] const std::string& scratch() const { return scratch_; }
  void refuse(const std::string& why) { refusal_ = why; }

 private:
  const std::string folder_;
  const std::string scratch_;
  std::string refusal_;
};

// Btrfs on a loop device, with a quota.
class QuotaDisk : public MountedDisk {
 public:
  QuotaDisk(std::string folder, std::string scratch);
  // Limits the total size from now on.
  void limitTo(std::uint64_t size_bytes);
};

// Ext4 on a loop device.
class ExtDisk : public MountedDisk {
 public:
  ExtDisk(std::string folder, std::string scratch);
  // Like a disk on which the kernel has found an error.
  void becomeReadOnly();
  // Like a disk that is pulled out: nothing is written to it any more.
  void pullOut();
  // Plugs the disk in again.
  void putBack();
};

// Simulates a network folder: every call goes to a server process and waits for its answer.
class NetworkFolder : public MountedDisk {
 public:
  // `served` is the folder on the server.
  NetworkFolder(std::string folder, std::string served, std::string scratch);
  ~NetworkFolder() override;
  // The server stops answering, or answers again.
  void hang();
  void answer();

 private:
  std::unique_ptr<test_support::ChildProcess> server_;
};

}  // namespace e2e
