// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hosts/linux/m4a/m4a_sink.h"

// The layout of a recording in its file, while it grows and when it is complete.
//
//   growing    ftyp free moov(no samples) { moof mdat } { moof mdat } ...
//   complete   ftyp mdat[              ...                        ] moov(all samples)
//
// The eight spare bytes of `free` let its header grow into an mdat header with a 64-bit size, so
// that one small write at offset 0 hides the first index and all fragments inside media data.
// Before that write the file is a fragmented MP4 with an extra box at its end that players skip;
// after it the file is a plain MP4. There is no moment at which it is neither.

namespace linux_host {

inline constexpr std::uint32_t kAacPacket_frames = 1024;
// The delay that libavcodec's AAC encoder puts before the first recorded frame.
inline constexpr std::uint32_t kAacPriming_frames = 1024;

// The position of each AAC packet: four bytes per packet, eight bytes per chunk.
class M4aPacketIndex {
 public:
  struct ChunkRun {
    std::uint32_t firstChunk;  // counted from 0
    std::uint32_t packetsPerChunk;
  };

  // Adds consecutive packets from `offset_bytes` on; no packets, no chunk.
  void addChunk(std::uint64_t offset_bytes, std::span<const std::uint32_t> packetSizes_bytes);

  [[nodiscard]] std::span<const std::uint32_t> packetSizes_bytes() const { return packetSizes_; }
  [[nodiscard]] std::span<const std::uint64_t> chunkOffsets_bytes() const { return chunkOffsets_; }
  [[nodiscard]] std::span<const ChunkRun> runs() const { return runs_; }

 private:
  std::vector<std::uint32_t> packetSizes_;
  std::vector<std::uint64_t> chunkOffsets_;
  std::vector<ChunkRun> runs_;
};

// What the index says about the whole recording.
struct M4aTrack {
  std::uint32_t sampleRate_hz = 0;   // also the unit of all durations, so that none is rounded
  std::uint32_t priming_frames = 0;  // the decoder's output before the first recorded frame
  std::uint64_t frames = 0;          // recorded; the packets may contain more at their end
  std::uint64_t creationTime_s = 0;  // since 1904-01-01 UTC
  std::uint64_t modificationTime_s = 0;
  std::vector<std::byte> sampleDescription;  // the stsd box
  std::vector<std::byte> labels;             // the udta box with title and date; empty: none
};

inline constexpr std::uint32_t kM4aTrackId = 1;

// Seconds from 1904-01-01, the origin of MP4's times, to 1970-01-01.
inline constexpr std::uint64_t kMp4Epoch_s = 2082844800;

inline constexpr std::size_t kM4aHeadSize_bytes = 48;
inline constexpr std::size_t kM4aMediaHeader_bytes = 32;  // where the free or mdat header begins

// The first kM4aHeadSize_bytes of a growing file (null), or of a complete file whose media data
// ends and whose index begins at `indexOffset_bytes`.
[[nodiscard]] std::vector<std::byte> m4aHead(std::optional<std::uint64_t> indexOffset_bytes);

// The moov box of a growing file, whose packets are described by the fragments after it.
[[nodiscard]] std::vector<std::byte> m4aGrowingIndexBox(const M4aTrack& track);

// The moov box of a complete file.
[[nodiscard]] std::vector<std::byte> m4aIndexBox(const M4aTrack& track,
                                                 const M4aPacketIndex& packets);

// Turns the growing file into a complete one. After a failure it is still a growing one.
Status completeM4a(M4aSink& sink, const M4aTrack& track, const M4aPacketIndex& packets);

}  // namespace linux_host
