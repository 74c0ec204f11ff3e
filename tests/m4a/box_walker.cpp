// SPDX-License-Identifier: MIT
#include "tests/m4a/box_walker.h"

#include <algorithm>

namespace linux_host::test {

std::uint64_t bigEndian(FileBytes bytes, std::uint64_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) {
    value =
        value * 256 + std::to_integer<std::uint64_t>(bytes[offset + static_cast<std::uint64_t>(i)]);
  }
  return value;
}

std::optional<std::vector<WalkedBox>> walkBoxes(FileBytes bytes, std::uint64_t begin,
                                                std::uint64_t end) {
  std::vector<WalkedBox> boxes;
  while (begin < end) {
    if (end - begin < 8) return std::nullopt;
    WalkedBox box;
    box.offset = begin;
    box.header = 8;
    box.size = bigEndian(bytes, begin, 4);
    for (std::uint64_t i = 4; i < 8; ++i) box.type += static_cast<char>(bytes[begin + i]);
    if (box.size == 1) {
      if (end - begin < 16) return std::nullopt;
      box.header = 16;
      box.size = bigEndian(bytes, begin + 8, 8);
    }
    if (box.size < box.header || box.size > end - begin) return std::nullopt;
    boxes.push_back(box);
    begin += box.size;
  }
  return boxes;
}

std::optional<std::vector<WalkedBox>> walkBoxes(FileBytes bytes) {
  return walkBoxes(bytes, 0, bytes.size());
}

std::string topLevel(FileBytes bytes) {
  const auto boxes = walkBoxes(bytes);
  if (!boxes) return "damaged";
  std::string types;
  for (const auto& box : *boxes) types += (types.empty() ? "" : " ") + box.type;
  return types;
}

std::optional<WalkedBox> boxAt(FileBytes bytes, const std::string& path) {
  WalkedBox parent;
  parent.size = bytes.size();
  for (std::size_t at = 0; at <= path.size(); at += 5) {
    const auto boxes = walkBoxes(bytes, parent.offset + parent.header, parent.offset + parent.size);
    if (!boxes) return std::nullopt;
    const auto found = std::find_if(boxes->begin(), boxes->end(), [&](const WalkedBox& box) {
      return box.type == path.substr(at, 4);
    });
    if (found == boxes->end()) return std::nullopt;
    parent = *found;
  }
  return parent;
}

namespace {

struct Table {
  std::uint64_t at = 0;  // of the first byte after version and flags
  std::uint64_t entries = 0;
  bool wide = false;  // version 1
};

// A box with version, flags, a count and that many entries, which must fill it exactly.
std::optional<Table> tableAt(FileBytes bytes, const std::string& path, std::uint64_t before,
                             std::uint64_t entrySize) {
  const auto box = boxAt(bytes, path);
  if (!box || box->size < box->header + 8 + before) return std::nullopt;
  const std::uint64_t content = box->offset + box->header;
  Table table{content + 4 + before + 4, bigEndian(bytes, content + 4 + before, 4),
              bigEndian(bytes, content, 1) == 1};
  if (table.entries * entrySize != box->offset + box->size - table.at) return std::nullopt;
  return table;
}

bool readHeaders(FileBytes bytes, WalkedIndex* index) {
  const auto movie = boxAt(bytes, "moov/mvhd");
  const auto track = boxAt(bytes, "moov/trak/tkhd");
  const auto media = boxAt(bytes, "moov/trak/mdia/mdhd");
  if (!movie || !track || !media) return false;
  const auto wide = [&](const WalkedBox& box) { return bigEndian(bytes, box.offset + 8, 1) == 1; };
  const auto at = [&](const WalkedBox& box, std::uint64_t narrowOffset, std::uint64_t wideOffset) {
    return box.offset + 12 + (wide(box) ? wideOffset : narrowOffset);
  };
  const auto width = [&](const WalkedBox& box) { return wide(box) ? 8 : 4; };
  index->creationTime = bigEndian(bytes, at(*movie, 0, 0), width(*movie));
  index->movieTimescale = static_cast<std::uint32_t>(bigEndian(bytes, at(*movie, 8, 16), 4));
  index->movieDuration = bigEndian(bytes, at(*movie, 12, 20), width(*movie));
  index->trackDuration = bigEndian(bytes, at(*track, 16, 24), width(*track));
  index->mediaTimescale = static_cast<std::uint32_t>(bigEndian(bytes, at(*media, 8, 16), 4));
  index->mediaHeaderDuration = bigEndian(bytes, at(*media, 12, 20), width(*media));
  return true;
}

}  // namespace

std::optional<WalkedIndex> walkIndex(FileBytes bytes, std::string* why) {
  const std::string tables = "moov/trak/mdia/minf/stbl/";
  WalkedIndex index;
  const auto fail = [why](const char* text) {
    *why = text;
    return std::nullopt;
  };
  const auto mdat = boxAt(bytes, "mdat");
  if (!mdat) return fail("no media data");
  if (!readHeaders(bytes, &index)) return fail("a header is missing");
  const auto durations = tableAt(bytes, tables + "stts", 0, 8);
  const auto chunkRuns = tableAt(bytes, tables + "stsc", 0, 12);
  const auto sizes = tableAt(bytes, tables + "stsz", 4, 4);
  const auto offsets = tableAt(bytes, tables + "co64", 0, 8);
  if (!durations || !chunkRuns || !sizes || !offsets) return fail("a table does not fit its box");
  if (!boxAt(bytes, tables + "stsd")) return fail("no sample description");

  std::uint64_t described = 0;
  for (std::uint64_t i = 0; i < durations->entries; ++i) {
    const std::uint64_t count = bigEndian(bytes, durations->at + 8 * i, 4);
    described += count;
    index.mediaDuration += count * bigEndian(bytes, durations->at + 8 * i + 4, 4);
  }
  if (described != sizes->entries) return fail("stts and stsz count differently");

  std::uint64_t sample = 0;
  for (std::uint64_t chunk = 0; chunk < offsets->entries; ++chunk) {
    std::uint64_t inChunk = 0;
    for (std::uint64_t i = 0; i < chunkRuns->entries; ++i) {
      if (bigEndian(bytes, chunkRuns->at + 12 * i, 4) <= chunk + 1) {
        inChunk = bigEndian(bytes, chunkRuns->at + 12 * i + 4, 4);
      }
    }
    std::uint64_t position = bigEndian(bytes, offsets->at + 8 * chunk, 8);
    for (; inChunk > 0; --inChunk, ++sample) {
      if (sample >= sizes->entries) return fail("stsc has more packets than stsz");
      const auto size = static_cast<std::uint32_t>(bigEndian(bytes, sizes->at + 4 * sample, 4));
      if (position < mdat->offset + mdat->header || position + size > mdat->offset + mdat->size) {
        return fail("a packet lies outside the media data");
      }
      index.packets.push_back({position, size});
      position += size;
    }
  }
  if (sample != sizes->entries) return fail("stsc has fewer packets than stsz");

  if (const auto edits = tableAt(bytes, "moov/trak/edts/elst", 0, 12)) {
    index.edits = static_cast<std::uint32_t>(edits->entries);
    index.editDuration = bigEndian(bytes, edits->at, 4);
    index.editStart = bigEndian(bytes, edits->at + 4, 4);
  }
  return index;
}

}  // namespace linux_host::test
