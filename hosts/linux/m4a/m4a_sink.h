// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace linux_host {

// Where an m4a writer's bytes go: a file that grows at its end and is mended near its start. The
// bytes lie in one file for all the sink's life, though that file may move to another folder or
// disk in the meantime. One thread at a time.
class M4aSink {
 public:
  virtual ~M4aSink() = default;
  // Adds all of `data` behind the last byte. Returns an error text that names the file, empty on
  // success; after an error a leading part of `data` may have been added, which size_bytes() shows.
  [[nodiscard]] virtual std::string append(std::span<const std::byte> data) = 0;
  // Replaces bytes that exist already. Returns an error text that names the file, empty on success.
  [[nodiscard]] virtual std::string pwriteAt(std::uint64_t offset_bytes,
                                             std::span<const std::byte> data) = 0;
  [[nodiscard]] virtual std::uint64_t size_bytes() const = 0;
  // Drops everything from `size_bytes` on. False when that failed; the file is then as it was.
  virtual bool truncate(std::uint64_t size_bytes) = 0;
};

}  // namespace linux_host
