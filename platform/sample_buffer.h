// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/audio_types.h"

namespace platform {

// Memory that holds the samples of one sample buffer, in one piece.
class BlockBuffer {
 public:
  virtual ~BlockBuffer() = default;
  [[nodiscard]] virtual std::size_t getDataLength() const = 0;  // bytes
  // The byte at `offset`, or null when there is no data; valid as long as the block buffer.
  [[nodiscard]] virtual const std::byte* getDataPointer(std::size_t offset_bytes) const = 0;
};

// One entry per format that the samples may be read as; the first is the format they are in.
struct AudioFormatDescription {
  std::vector<AudioStreamBasicDescription> formatList;
};

// A block of captured audio. Lives on the data-output queue; immutable.
class SampleBuffer {
 public:
  virtual ~SampleBuffer() = default;
  [[nodiscard]] virtual std::int64_t getNumSamples() const = 0;  // frames
  [[nodiscard]] virtual const AudioFormatDescription& getFormatDescription() const = 0;
  // Either pointer may be null: sizeNeeded_bytes receives the size of the buffer list;
  // `outList` (room: listSize_bytes, which must be at least that size) receives the list, its data
  // pointers into the block buffer, of which *outBlockBuffer receives a reference. Non-interleaved
  // planes lie one behind the other in the block.
  virtual OSStatus getAudioBufferListWithRetainedBlockBuffer(
      std::size_t* sizeNeeded_bytes, AudioBufferList* outList, std::size_t listSize_bytes,
      std::shared_ptr<BlockBuffer>* outBlockBuffer) const = 0;
};

}  // namespace platform
