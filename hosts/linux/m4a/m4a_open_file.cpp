// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_open_file.h"

#include <utility>

namespace linux_host {

namespace {

template <typename Base>
class OpenFileSink : public Base {
 public:
  explicit OpenFileSink(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}

  Status append(std::span<const std::byte> data) override { return file_->append(data); }
  Status pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    return file_->pwriteAt(offset_bytes, data);
  }
  [[nodiscard]] std::uint64_t size_bytes() const override { return file_->size_bytes(); }
  Status truncate(std::uint64_t size_bytes) override { return file_->truncate(size_bytes); }

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
  Status pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    if (Status flushed = file_->waitForDisk(); !flushed) return flushed;
    return OpenFileSink::pwriteAt(offset_bytes, data);
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

Expected<M4aRecovery> recoverInterruptedM4a(const std::shared_ptr<OpenFile>& file) {
  InterruptedFile interrupted(file);
  Expected<M4aRecovery> recovery = recoverInterruptedM4a(interrupted);
  if (!recovery || recovery->outcome != M4aRecovery::Outcome::completed) return recovery;
  if (const Status flushed = file->waitForDisk(); !flushed) return Unexpected(flushed.error());
  return recovery;
}

}  // namespace linux_host
