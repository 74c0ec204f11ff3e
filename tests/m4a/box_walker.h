// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The tests' own reader of MP4 boxes, so that nothing is checked with the code under test.

namespace linux_host::test {

struct WalkedBox {
  std::string type;
  std::uint64_t offset = 0;  // of the header
  std::uint64_t header = 0;  // bytes
  std::uint64_t size = 0;    // bytes, header included
};

using FileBytes = std::span<const std::byte>;

[[nodiscard]] std::uint64_t bigEndian(FileBytes bytes, std::uint64_t offset, int width);

// The boxes from `begin` to `end`. Null when a box does not fit or bytes are left over.
[[nodiscard]] std::optional<std::vector<WalkedBox>> walkBoxes(FileBytes bytes, std::uint64_t begin,
                                                              std::uint64_t end);
[[nodiscard]] std::optional<std::vector<WalkedBox>> walkBoxes(FileBytes bytes);

// The types of the boxes on the top level, e.g. "ftyp mdat moov"; "damaged" when they do not fit.
[[nodiscard]] std::string topLevel(FileBytes bytes);

// Follows "moov/trak/mdia"; null when there is none.
[[nodiscard]] std::optional<WalkedBox> boxAt(FileBytes bytes, const std::string& path);

struct IndexedPacket {
  std::uint64_t offset;
  std::uint32_t size;
};

struct WalkedIndex {
  std::vector<IndexedPacket> packets;
  std::uint64_t mediaDuration = 0;  // by stts
  std::uint64_t mediaHeaderDuration = 0;
  std::uint64_t movieDuration = 0;
  std::uint64_t trackDuration = 0;
  std::uint32_t mediaTimescale = 0;
  std::uint32_t movieTimescale = 0;
  std::uint64_t editDuration = 0;
  std::uint64_t editStart = 0;
  std::uint32_t edits = 0;
  std::uint64_t creationTime = 0;
};

// Resolves the sample tables of a complete file. Null with *why set when they contradict each other
// or point outside the media data.
[[nodiscard]] std::optional<WalkedIndex> walkIndex(FileBytes bytes, std::string* why);

}  // namespace linux_host::test
