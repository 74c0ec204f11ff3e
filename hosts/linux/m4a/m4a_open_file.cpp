// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_open_file.h"

#include <utility>

namespace linux_host {

namespace {

template <typename Base>
class OpenFileSink : public Base {
 public:
  explicit OpenFileSink(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}

  std::string append(std::span<const std::byte> data) override { return file_->append(data); }
  std::string pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    return file_->pwriteAt(offset_bytes, data);
  }
  [[nodiscard]] std::uint64_t size_bytes() const override { return file_->size_bytes(); }
  bool truncate(std::uint64_t size_bytes) override { return file_->truncate(size_bytes).empty(); }

 protected:
  const std::shared_ptr<OpenFile> file_;
};

class InterruptedFile final : public OpenFileSink<M4aRepairableFile> {
 public:
  using OpenFileSink::OpenFileSink;

  std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) override {
    return file_->readAt(offset_bytes, to);
  }

  // The data must be on the disk before anything that refers to it.
  std::string pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    std::string error = file_->waitForDisk();
    return error.empty() ? OpenFileSink::pwriteAt(offset_bytes, data) : error;
  }
};

}  // namespace

std::unique_ptr<M4aSink> m4aSinkFor(std::shared_ptr<OpenFile> file) {
  return std::make_unique<OpenFileSink<M4aSink>>(std::move(file));
}

std::optional<M4aFindings> findM4aPackets(const std::shared_ptr<OpenFile>& file) {
  InterruptedFile interrupted(file);
  return findM4aPackets(interrupted);
}

M4aRecovery recoverInterruptedM4a(const std::shared_ptr<OpenFile>& file) {
  InterruptedFile interrupted(file);
  M4aRecovery recovery = recoverInterruptedM4a(interrupted);
  if (recovery.outcome != M4aRecovery::Outcome::completed) return recovery;
  recovery.error = file->waitForDisk();
  if (!recovery.error.empty()) recovery.outcome = M4aRecovery::Outcome::failed;
  return recovery;
}

}  // namespace linux_host
