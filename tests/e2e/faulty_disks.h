// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

// Real file systems in which something goes wrong. Each is mounted on a folder that exists and is
// empty, and is gone with its object. All need a user who may mount; where that, or what else they
// need, is not to be had, refusal() says why and the object does nothing.

namespace e2e {

class MountedDisk {
 public:
  virtual ~MountedDisk();
  MountedDisk(const MountedDisk&) = delete;
  MountedDisk& operator=(const MountedDisk&) = delete;

  // Why this machine cannot have such a disk; empty when it has.
  [[nodiscard]] const std::string& refusal() const { return refusal_; }

 protected:
  // `scratch`: a folder for the disk's image and for what commands say.
  MountedDisk(std::string folder, std::string scratch);

  // Runs the command, unless an earlier one has failed; what it said becomes the refusal.
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
  // From now on that many bytes may lie there in all.
  void limitTo(std::uint64_t size_bytes);
};

// Ext4 on a loop device.
class ExtDisk : public MountedDisk {
 public:
  ExtDisk(std::string folder, std::string scratch);
  // What the kernel does with a disk on which it has found an error.
  void becomeReadOnly();
  // As if it were pulled out without a word: what is not on it now never comes there.
  void pullOut();
  // Pulled out after all, and put in again.
  void putBack();
};

// A folder of another computer, as it were: every call goes to a program that answers it, and waits
// for it.
class NetworkFolder : public MountedDisk {
 public:
  // `served` is what the other computer keeps in it.
  NetworkFolder(std::string folder, std::string served, std::string scratch);
  ~NetworkFolder() override;
  // The other computer no longer answers, or does again.
  void hang();
  void answer();

 private:
  std::unique_ptr<test_support::ChildProcess> server_;
};

}  // namespace e2e
