// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/audio_types.h"
#include "platform/thread_role.h"

// Passes audio from one real-time thread to another without locks, addressed by sample time.
//
// Invariants
// - One writer thread (store, setTimeBounds) and one reader thread (fetch, clipTimeBounds);
//   getTimeBounds may be called on any. Debug builds assert the two roles.
// - capacityFrames is a power of two; in each channel, sample time t lives at byte
//   (t & capacityFramesMask) * bytesPerFrame.
// - The range of sample times held is the start/end pair in slot timeBoundsIndex & 31. Data is
//   written before the bounds that cover it are published. Frames about to be overwritten are
//   removed from the bounds first.
// - A slot is rewritten only 32 publications later. A reader is disturbed only if that many happen
//   while it reads, and the slot's counter tells it so.
// - The samples themselves are not guarded. A reader that took the bounds just before a store may
//   find the oldest frames of the range overwritten. It then gets samples of the wrong time, but
//   always samples (racing_copy.h).
//
// Memory orders, each the weakest that is enough
// - timeBoundsIndex is published by release and read by acquire. A thread that sees an index also
//   sees its slot as written for it or later, and all samples that the slot's bounds cover. Only
//   the writer changes the index, so a plain store does the work of a compare-and-swap, which would
//   cost a tenth of the whole copy. The writer reads the index and its own slots relaxed. An order
//   that kept later sample writes behind the index would not help: with any order, a reader may
//   take the old bounds and be delayed until their frames are overwritten.
// - updateCounter is written relaxed and BEFORE the bounds. The bounds are written by release and
//   read by acquire, and the counter is read after them, relaxed. A reader that got either bound of
//   a later publication has therefore acquired that publication's counter, which differs from the
//   index it read. So a matching counter proves that both bounds are from one publication. (If the
//   counter were written last, a reader between the writes would see mixed bounds with the old
//   counter.)

namespace record_audio {

enum RingBufferError : std::int32_t {
  RingBufferErrorNone = 0,
  RingBufferErrorTooManyFrames = 3,   // a store of more frames than the capacity
  RingBufferErrorBoundsUnstable = 4,  // no consistent bounds within 8 reads
};

struct RingBufferTimeBounds {
  std::atomic<std::int64_t> startTime{0};       // first sample time held
  std::atomic<std::int64_t> endTime{0};         // just past the last frame held
  std::atomic<std::uint32_t> updateCounter{0};  // the index under which this slot was written
};

inline constexpr std::uint32_t kRingBufferSlotCount = 32;

struct RingBuffer {
  RingBuffer() = default;
  ~RingBuffer() { deallocate(); }
  RingBuffer(const RingBuffer&) = delete;
  RingBuffer& operator=(const RingBuffer&) = delete;

  // Called once on a new ring, before it is shared, on a thread that may wait. When it returns, all
  // memory is resident. The capacity is rounded up to a power of two; all samples and bounds start
  // at 0. If memory runs out, or the size does not fit into 32 bits, `buffers` stays null and the
  // ring holds nothing: every store is refused, every fetch is silence.
  void allocate(std::int32_t channelCount, std::uint32_t bytesPerFrame,
                std::uint32_t capacityFrames);
  // Frees the storage. No thread may be using the ring.
  void deallocate();

  // REAL-TIME (all below): no allocation, no lock, no system call. Buffer i of a list belongs to
  // channel i. A list must not have more buffers than the ring has channels; extra buffers are not
  // touched. A list buffer that is shorter than the current offset ends the walk through the list.

  // Writer. Stores `frameCount` frames from the list as those from `startTime` on. A gap after what
  // is held is filled with zeros. A step back drops everything held.
  RingBufferError store(const platform::AudioBufferList& list, std::uint32_t frameCount,
                        std::int64_t startTime);
  // Reader. Fills the list with the frames from `startTime` on, or from 0 if that is negative. What
  // is not held is silence. Unless everything is, each buffer's byte size becomes the number of
  // bytes that came from the ring. On an error the list stays as it is.
  RingBufferError fetch(platform::AudioBufferList& list, std::uint32_t frameCount,
                        std::int64_t startTime);
  // Any thread. On an error the outputs hold what was read last.
  RingBufferError getTimeBounds(std::int64_t& start, std::int64_t& end) const;
  // Writer.
  void setTimeBounds(std::int64_t start, std::int64_t end);
  // Reader. Cuts a range to what is held. If they do not meet, the range becomes empty
  // (end == start). On an error it stays as it is.
  RingBufferError clipTimeBounds(std::int64_t& start, std::int64_t& end);

  std::byte** buffers = nullptr;  // the channels follow the table; both lie in storage_
  std::int32_t channelCount = 0;
  std::uint32_t bytesPerFrame = 0;  // within one channel
  std::uint32_t capacityFrames = 0;
  std::uint32_t capacityFramesMask = 0;
  std::uint32_t capacityBytes = 0;  // of one channel
  RingBufferTimeBounds timeBounds[kRingBufferSlotCount];
  std::atomic<std::uint32_t> timeBoundsIndex{0};

 private:
  struct alignas(64) CacheLine {
    std::byte bytes[64];
  };
  [[nodiscard]] static std::size_t cacheLinesFor(std::size_t size_bytes);
  [[nodiscard]] const RingBufferTimeBounds& ownSlot() const;
  [[nodiscard]] std::uint32_t byteOffset(std::int64_t sampleTime) const;
  void makeRoom(std::int64_t startTime, std::int64_t endTime);
  template <typename Action>
  void forEachPiece(std::int64_t startTime, std::int64_t endTime, Action action) const;
  void zeroGap(std::int64_t fromTime, std::int64_t toTime);
  void copyIn(const platform::AudioBufferList& list, std::uint32_t listOffset_bytes,
              std::uint32_t ringOffset_bytes, std::uint32_t size_bytes);
  void copyOut(platform::AudioBufferList& list, std::uint32_t listOffset_bytes,
               std::uint32_t ringOffset_bytes, std::uint32_t size_bytes);

  std::unique_ptr<CacheLine[]> storage_;
  [[no_unique_address]] platform::ThreadRole writer_;
  [[no_unique_address]] platform::ThreadRole reader_;
};

static_assert(std::atomic<std::int64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(sizeof(RingBufferTimeBounds) == 24);

}  // namespace record_audio
