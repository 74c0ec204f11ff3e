// SPDX-License-Identifier: MIT
#include "tests/e2e/faulty_disks.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "tests/e2e/finished_command.h"
#include "tests/support/private_pipewire.h"

namespace e2e {
namespace {

constexpr std::uint64_t kMegabyte_bytes = 1 << 20;
// The kernel's own way to test how a file system reacts when its device is gone. (Not in the
// headers; XFS had it first, and the others use the same number.)
constexpr unsigned long kShutDown = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t kWithoutFlushing = 2;

bool isMountPoint(const std::string& folder) {
  const auto device = [](const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
  };
  return device(folder) != device(folder + "/..");
}

}  // namespace

MountedDisk::MountedDisk(std::string folder, std::string scratch)
    : folder_(std::move(folder)), scratch_(std::move(scratch)) {
  std::filesystem::create_directories(scratch_);
}

MountedDisk::~MountedDisk() {
  umount2(folder_.c_str(), MNT_DETACH);
}

bool MountedDisk::run(const std::vector<std::string>& command) {
  if (!refusal_.empty()) return false;
  const FinishedCommand result = runToEnd(command, {}, scratch_);
  if (result.exitStatus == 0) return true;
  for (const std::string& word : command) refusal_ += word + " ";
  refusal_ += "ended with " + std::to_string(result.exitStatus) + ": " + result.errors;
  return false;
}

void MountedDisk::makeImage(std::uint64_t size_bytes) {
  std::ofstream(image()).close();
  std::filesystem::resize_file(image(), size_bytes);
}

QuotaDisk::QuotaDisk(std::string folder, std::string scratch)
    : MountedDisk(std::move(folder), std::move(scratch)) {
  makeImage(128 * kMegabyte_bytes);
  run({"mkfs.btrfs", "-q", image()});
  run({"mount", "-o", "loop", image(), this->folder()});
  run({"btrfs", "quota", "enable", this->folder()});
}

void QuotaDisk::limitTo(std::uint64_t size_bytes) {
  if (!run({"btrfs", "qgroup", "limit", std::to_string(size_bytes), folder()})) {
    throw std::runtime_error(refusal());
  }
}

ExtDisk::ExtDisk(std::string folder, std::string scratch)
    : MountedDisk(std::move(folder), std::move(scratch)) {
  makeImage(64 * kMegabyte_bytes);
  run({"mkfs.ext4", "-q", "-F", image()});
  putBack();
}

void ExtDisk::becomeReadOnly() {
  const FinishedCommand source = runToEnd({"findmnt", "-no", "SOURCE", folder()}, {}, scratch());
  std::filesystem::path device = source.output.substr(0, source.output.find('\n'));
  std::ofstream trigger("/sys/fs/ext4" / device.filename() / "trigger_fs_error");
  trigger << "1" << std::flush;
  if (!trigger) throw std::runtime_error("the kernel takes no errors for " + device.string());
}

void ExtDisk::pullOut() {
  const int fd = open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::uint32_t how = kWithoutFlushing;
  const bool isOut = fd >= 0 && ioctl(fd, kShutDown, &how) == 0;
  if (fd >= 0) close(fd);
  if (!isOut) throw std::runtime_error("the disk cannot be pulled out of " + folder());
}

void ExtDisk::putBack() {
  umount2(folder().c_str(), MNT_DETACH);
  run({"mount", "-o", "loop,errors=remount-ro", image(), folder()});
}

NetworkFolder::NetworkFolder(std::string folder, std::string served, std::string scratch)
    : MountedDisk(std::move(folder), std::move(scratch)) {
  std::filesystem::create_directories(served);
  server_ = std::make_unique<test_support::ChildProcess>(test_support::ChildProcess::Command{
      {"bindfs", "-f", "--no-allow-other", served, this->folder()},
      {},
      this->scratch() + "/server.log"});
  const bool isMounted = test_support::waitUntil(
      [this] { return isMountPoint(this->folder()) || !server_->isRunning(); }, kStepLimit);
  if (isMounted && server_->isRunning()) return;
  refuse("bindfs, which plays the network folder: " + contentsOf(this->scratch() + "/server.log"));
}

NetworkFolder::~NetworkFolder() {
  // Detached before the server ends, which releases calls that still wait for it.
  umount2(folder().c_str(), MNT_DETACH);
  server_->kill();
}

void NetworkFolder::hang() {
  server_->sendSignal(SIGSTOP);
}

void NetworkFolder::answer() {
  server_->sendSignal(SIGCONT);
}

}  // namespace e2e
