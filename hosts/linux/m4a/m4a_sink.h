// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "hosts/linux/base/expected.h"

namespace linux_host {

// Where an m4a writer's bytes go: a file that grows at its end and is patched near its start. It is
// the same file for the sink's whole life, though it may be moved to another folder or disk
// meanwhile. One thread at a time.
class M4aSink {
 public:
  virtual ~M4aSink() = default;
  // Appends all of `data`. After a failure, whose text names the file, a leading part of `data` may
  // have been appended, as size_bytes() shows.
  virtual Status append(std::span<const std::byte> data) = 0;
  // Overwrites existing bytes. A failure's text names the file.
  virtual Status pwriteAt(std::uint64_t offset_bytes, std::span<const std::byte> data) = 0;
  [[nodiscard]] virtual std::uint64_t size_bytes() const = 0;
  // Drops everything from `size_bytes` on. After a failure the file is unchanged.
  virtual Status truncate(std::uint64_t size_bytes) = 0;
};

}  // namespace linux_host
