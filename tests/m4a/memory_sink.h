// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "hosts/linux/m4a/m4a_recovery.h"

namespace linux_host::test {

// A file in memory that outlives its sinks. Any operation can be made to fail.
struct MemoryFile {
  std::vector<std::byte> bytes;
  std::size_t capacity_bytes = std::numeric_limits<std::size_t>::max();
  int operations = 0;
  int failingOperation = 0;  // counted from 1; 0: none
  bool failsFromThenOn = false;
  bool closed = false;

  bool nextFails() {
    ++operations;
    return failingOperation != 0 &&
           (operations == failingOperation || (failsFromThenOn && operations > failingOperation));
  }
};

class MemorySink final : public M4aRepairableFile {
 public:
  explicit MemorySink(std::shared_ptr<MemoryFile> file) : file_(std::move(file)) {}
  ~MemorySink() override { file_->closed = true; }

  // A failing append leaves half of its bytes, one on a full disk as many as fit.
  Status append(std::span<const std::byte> data) override {
    const bool fails = file_->nextFails();
    const std::size_t room =
        file_->capacity_bytes - std::min(file_->capacity_bytes, file_->bytes.size());
    const std::size_t taken = std::min(fails ? data.size() / 2 : data.size(), room);
    file_->bytes.insert(file_->bytes.end(), data.begin(),
                        data.begin() + static_cast<std::ptrdiff_t>(taken));
    if (fails) return Unexpected("Cannot write tone.m4a: the test says so.");
    if (taken < data.size()) return Unexpected("Cannot write tone.m4a: no room. Make room.");
    return {};
  }
  Status pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) override {
    if (file_->nextFails()) return Unexpected("Cannot write tone.m4a: the test says so.");
    if (offset_bytes + data.size() > file_->bytes.size()) {
      return Unexpected("Written past the end.");
    }
    std::copy(data.begin(), data.end(),
              file_->bytes.begin() + static_cast<std::ptrdiff_t>(offset_bytes));
    return {};
  }
  [[nodiscard]] std::uint64_t size_bytes() const override { return file_->bytes.size(); }
  Status truncate(std::uint64_t size_bytes) override {
    if (file_->nextFails()) return Unexpected("Cannot cut tone.m4a: the test says so.");
    file_->bytes.resize(std::min<std::size_t>(file_->bytes.size(), size_bytes));
    return {};
  }
  std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) override {
    if (offset_bytes >= file_->bytes.size()) return 0;
    const std::size_t count = std::min<std::size_t>(to.size(), file_->bytes.size() - offset_bytes);
    if (count > 0) std::memcpy(to.data(), file_->bytes.data() + offset_bytes, count);
    return count;
  }

 private:
  const std::shared_ptr<MemoryFile> file_;
};

}  // namespace linux_host::test
