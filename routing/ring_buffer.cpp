// SPDX-License-Identifier: MIT
#include "routing/ring_buffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "routing/racing_copy.h"

namespace record_audio {

namespace {

constexpr std::uint32_t kSlotMask = kRingBufferSlotCount - 1;
constexpr int kBoundsTries = 8;

// Sample times wrap instead of overflowing.
std::int64_t plus(std::int64_t time, std::int64_t frames) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(time) +
                                   static_cast<std::uint64_t>(frames));
}
std::int64_t minus(std::int64_t time, std::int64_t frames) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(time) -
                                   static_cast<std::uint64_t>(frames));
}

// The smallest power of two that is not less; for 0, the one after the largest value.
std::uint64_t nextPowerOfTwo(std::uint32_t value) {
  return std::uint64_t{1} << std::bit_width(value - 1);
}

// Calls action(index, the buffer's bytes from the offset on, how many of the wanted bytes it has
// room for) for each buffer of the list, until one ends before the offset.
template <typename Action>
void forEachPart(const platform::AudioBufferList& list, std::uint32_t offset_bytes,
                 std::uint32_t size_bytes, Action action) {
  const auto offset = static_cast<std::int32_t>(offset_bytes);
  if (offset < 0) return;
  const platform::AudioBuffer* const listBuffers = list.mBuffers;
  for (std::uint32_t i = 0; i < list.mNumberBuffers; ++i) {
    const auto bufferSize = static_cast<std::int32_t>(listBuffers[i].mDataByteSize);
    if (offset > bufferSize) return;
    const auto room = static_cast<std::uint32_t>(bufferSize - offset);
    action(i, static_cast<std::byte*>(listBuffers[i].mData) + offset, std::min(size_bytes, room));
  }
}

void zeroList(const platform::AudioBufferList& list, std::uint32_t offset_bytes,
              std::uint32_t size_bytes) {
  forEachPart(list, offset_bytes, size_bytes,
              [](std::uint32_t, std::byte* part, std::uint32_t partSize_bytes) {
                std::memset(part, 0, partSize_bytes);
              });
}

}  // namespace

void RingBuffer::allocate(std::int32_t channels, std::uint32_t frameSize_bytes,
                          std::uint32_t capacity) {
  const std::uint64_t frames = nextPowerOfTwo(capacity);
  const std::uint64_t channel_bytes = frames * frameSize_bytes;
  // As a number without a sign, a negative one of channels is too large.
  const std::uint64_t total_bytes =
      (channel_bytes + sizeof(std::byte*)) * static_cast<std::uint64_t>(channels);
  if (!std::in_range<std::uint32_t>(frames) || !std::in_range<std::uint32_t>(channel_bytes) ||
      !std::in_range<std::uint32_t>(total_bytes)) {
    return;
  }

  // Copies are fastest when the channels begin at a cache line. The table ends where they begin.
  const std::size_t table_bytes = static_cast<std::size_t>(channels) * sizeof(std::byte*);
  const std::size_t tableLines = cacheLinesFor(table_bytes);
  const std::size_t lines = tableLines + cacheLinesFor(total_bytes - table_bytes);
  storage_.reset(new (std::nothrow) CacheLine[lines]());
  if (storage_ == nullptr) return;
  std::byte* channel = storage_[tableLines].bytes;
  buffers = reinterpret_cast<std::byte**>(channel - table_bytes);
  channelCount = channels;
  bytesPerFrame = frameSize_bytes;
  capacityFrames = static_cast<std::uint32_t>(frames);
  capacityFramesMask = capacityFrames - 1;
  capacityBytes = static_cast<std::uint32_t>(channel_bytes);
  for (std::int32_t i = 0; i < channels; ++i, channel += channel_bytes) buffers[i] = channel;

  for (RingBufferTimeBounds& slot : timeBounds) {
    slot.startTime.store(0, std::memory_order_relaxed);
    slot.endTime.store(0, std::memory_order_relaxed);
    slot.updateCounter.store(0, std::memory_order_relaxed);
  }
  timeBoundsIndex.store(0, std::memory_order_relaxed);
}

void RingBuffer::deallocate() {
  storage_.reset();
  buffers = nullptr;
  channelCount = 0;
  capacityBytes = 0;
  capacityFrames = 0;
}

void RingBuffer::setTimeBounds(std::int64_t start, std::int64_t end) {
  writer_.assertHeld();
  const std::uint32_t next = timeBoundsIndex.load(std::memory_order_relaxed) + 1;
  RingBufferTimeBounds& slot = timeBounds[next & kSlotMask];
  slot.updateCounter.store(next, std::memory_order_relaxed);
  slot.startTime.store(start, std::memory_order_release);
  slot.endTime.store(end, std::memory_order_release);
  timeBoundsIndex.store(next, std::memory_order_release);
}

RingBufferError RingBuffer::getTimeBounds(std::int64_t& start, std::int64_t& end) const {
  const std::uint32_t current = timeBoundsIndex.load(std::memory_order_acquire);
  const RingBufferTimeBounds& slot = timeBounds[current & kSlotMask];
  for (int i = 0; i < kBoundsTries; ++i) {
    start = slot.startTime.load(std::memory_order_acquire);
    end = slot.endTime.load(std::memory_order_acquire);
    if (slot.updateCounter.load(std::memory_order_relaxed) == current) return RingBufferErrorNone;
  }
  return RingBufferErrorBoundsUnstable;
}

RingBufferError RingBuffer::clipTimeBounds(std::int64_t& start, std::int64_t& end) {
  reader_.assertHeld();
  std::int64_t heldStart{};
  std::int64_t heldEnd{};
  const RingBufferError error = getTimeBounds(heldStart, heldEnd);
  if (error != RingBufferErrorNone) return error;
  if (end < heldStart) {
    end = start;
    return RingBufferErrorNone;
  }
  start = std::max(start, heldStart);
  end = std::max(std::min(end, heldEnd), start);
  return RingBufferErrorNone;
}

std::size_t RingBuffer::cacheLinesFor(std::size_t size_bytes) {
  return (size_bytes + sizeof(CacheLine) - 1) / sizeof(CacheLine);
}

const RingBufferTimeBounds& RingBuffer::ownSlot() const {
  return timeBounds[timeBoundsIndex.load(std::memory_order_relaxed) & kSlotMask];
}

std::uint32_t RingBuffer::byteOffset(std::int64_t sampleTime) const {
  return (static_cast<std::uint32_t>(sampleTime) & capacityFramesMask) * bytesPerFrame;
}

void RingBuffer::makeRoom(std::int64_t startTime, std::int64_t endTime) {
  const std::int64_t heldStart = ownSlot().startTime.load(std::memory_order_relaxed);
  const std::int64_t heldEnd = ownSlot().endTime.load(std::memory_order_relaxed);
  if (heldEnd > startTime) {
    setTimeBounds(startTime, startTime);
  } else if (minus(endTime, heldStart) > capacityFrames) {
    const std::int64_t oldestKept = minus(endTime, capacityFrames);
    setTimeBounds(oldestKept, std::max(oldestKept, heldEnd));
  }
}

// Calls action(offset in each channel, size, bytes before it) for the one or two pieces that a
// range of sample times occupies. It is not empty, and not longer than the capacity.
template <typename Action>
void RingBuffer::forEachPiece(std::int64_t startTime, std::int64_t endTime, Action action) const {
  const std::uint32_t offset0 = byteOffset(startTime);
  const std::uint32_t offset1 = byteOffset(endTime);
  if (offset0 < offset1) {
    action(offset0, offset1 - offset0, 0);
  } else {
    const std::uint32_t first_bytes = capacityBytes - offset0;
    action(offset0, first_bytes, 0);
    action(0, offset1, first_bytes);
  }
}

void RingBuffer::zeroGap(std::int64_t fromTime, std::int64_t toTime) {
  forEachPiece(fromTime, toTime,
               [&](std::uint32_t offset_bytes, std::uint32_t size_bytes, std::uint32_t) {
                 for (std::int32_t i = 0; i < channelCount; ++i) {
                   racing::zero(buffers[i] + offset_bytes, size_bytes);
                 }
               });
}

void RingBuffer::copyIn(const platform::AudioBufferList& list, std::uint32_t listOffset_bytes,
                        std::uint32_t ringOffset_bytes, std::uint32_t size_bytes) {
  forEachPart(list, listOffset_bytes, size_bytes,
              [&](std::uint32_t i, const std::byte* part, std::uint32_t partSize_bytes) {
                if (i >= static_cast<std::uint32_t>(channelCount)) return;
                racing::copyIn(buffers[i] + ringOffset_bytes, part, partSize_bytes);
              });
}

void RingBuffer::copyOut(platform::AudioBufferList& list, std::uint32_t listOffset_bytes,
                         std::uint32_t ringOffset_bytes, std::uint32_t size_bytes) {
  forEachPart(list, listOffset_bytes, size_bytes,
              [&](std::uint32_t i, std::byte* part, std::uint32_t partSize_bytes) {
                if (i >= static_cast<std::uint32_t>(channelCount)) return;
                racing::copyOut(part, buffers[i] + ringOffset_bytes, partSize_bytes);
              });
}

RingBufferError RingBuffer::store(const platform::AudioBufferList& list, std::uint32_t frameCount,
                                  std::int64_t startTime) {
  writer_.assertHeld();
  if (frameCount == 0) return RingBufferErrorNone;
  if (frameCount > capacityFrames) return RingBufferErrorTooManyFrames;

  const std::int64_t endTime = plus(startTime, frameCount);
  makeRoom(startTime, endTime);
  const std::int64_t heldEnd = ownSlot().endTime.load(std::memory_order_relaxed);
  if (heldEnd < startTime) zeroGap(heldEnd, startTime);

  forEachPiece(
      startTime, endTime,
      [&](std::uint32_t offset_bytes, std::uint32_t size_bytes, std::uint32_t before_bytes) {
        copyIn(list, before_bytes, offset_bytes, size_bytes);
      });
  setTimeBounds(ownSlot().startTime.load(std::memory_order_relaxed), endTime);
  return RingBufferErrorNone;
}

RingBufferError RingBuffer::fetch(platform::AudioBufferList& list, std::uint32_t frameCount,
                                  std::int64_t startTime) {
  reader_.assertHeld();
  if (frameCount == 0) return RingBufferErrorNone;
  if (buffers == nullptr) {
    zeroList(list, 0, std::numeric_limits<std::uint32_t>::max());
    return RingBufferErrorNone;
  }
  const std::int64_t startRead = std::max<std::int64_t>(startTime, 0);
  const std::int64_t endRead = plus(startRead, frameCount);
  std::int64_t start = startRead;
  std::int64_t end = endRead;
  const RingBufferError error = clipTimeBounds(start, end);
  if (error != RingBufferErrorNone) return error;
  if (start == end) {
    zeroList(list, 0, frameCount * bytesPerFrame);
    return RingBufferErrorNone;
  }

  const auto lead_bytes = static_cast<std::int32_t>(
      static_cast<std::uint32_t>(minus(start, startRead)) * bytesPerFrame);
  const std::uint32_t destStart = static_cast<std::uint32_t>(std::max(lead_bytes, 0));
  zeroList(list, 0, std::min(frameCount * bytesPerFrame, destStart));
  const std::uint32_t held_bytes = static_cast<std::uint32_t>(minus(end, start)) * bytesPerFrame;
  const std::uint32_t tail_bytes = static_cast<std::uint32_t>(minus(endRead, end)) * bytesPerFrame;
  zeroList(list, destStart + held_bytes, tail_bytes);

  std::uint32_t copied_bytes = 0;
  forEachPiece(
      start, end,
      [&](std::uint32_t offset_bytes, std::uint32_t size_bytes, std::uint32_t before_bytes) {
        copyOut(list, destStart + before_bytes, offset_bytes, size_bytes);
        copied_bytes += size_bytes;
      });
  platform::AudioBuffer* const listBuffers = list.mBuffers;
  for (std::uint32_t i = 0; i < list.mNumberBuffers; ++i) {
    listBuffers[i].mDataByteSize = copied_bytes;
  }
  return RingBufferErrorNone;
}

}  // namespace record_audio
