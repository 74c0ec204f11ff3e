// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/thread_role.h"

// The samples between the audio thread and the drain thread.
//
// Invariants
// - One audio thread writes, one drain thread reads; no other thread does. Debug builds assert it.
// - `written_` counts the frames stored, `read_` those consumed, both since the start and never
//   reset; 0 <= written - read <= capacity at all times. Frame n lies at n modulo capacity in every
//   plane.
// - The writer touches only frames in [written, read + capacity), the
//   reader only those in [read, written).
// - A block that does not fit is dropped as a whole and counted; stored frames stay untouched.
// - Sound that is missing between two stored frames is noted as a gap: its position and length.
//   `gapsWritten_` and `gapsRead_` count the gaps as the two above count the frames. If there is no
//   room for another gap, it is merged with the next.
//
// Memory order
// - `written_` is stored with release after the samples: a reader that loads it with acquire sees
//   the samples of all frames it counts.
// - `read_` is stored with release after the last access to the samples, and loaded with acquire by
//   the writer before it overwrites them.
// - A gap is published with release before the first frame after it: a reader that sees that frame
//   sees the gap.
// - Each side loads its own counter relaxed, as no other thread stores it. The losses are mere
//   counts.

namespace linux_host {

class CaptureRing {
 public:
  // Reserves address space for `capacity_frames` of each of `channels` planes. The memory itself
  // comes with prefault(), or page by page with the first writes. Throws std::bad_alloc.
  CaptureRing(std::uint32_t channels, std::uint32_t capacity_frames);
  ~CaptureRing();
  CaptureRing(const CaptureRing&) = delete;
  CaptureRing& operator=(const CaptureRing&) = delete;

  // Backs the whole ring with memory so that the audio thread never waits for a page. Call before
  // the ring is used; not on an audio thread.
  void prefault();

  [[nodiscard]] std::uint32_t channels() const { return channels_; }
  [[nodiscard]] std::uint32_t capacity_frames() const { return capacity_frames_; }

  // REAL-TIME: allocates nothing, takes no lock, makes no system call. Audio thread only. Stores
  // `frames` of every plane; false when there is no room, and the frames count as lost.
  bool write(const float* const* planes, std::uint32_t frames);
  // REAL-TIME: as write(). Reports frames that never came; they also count as lost.
  void miss(std::uint64_t frames);
  // From now on another thread is the audio thread. The one before must have ended.
  void changeWriter() { writer_.release(); }

  // Frames ready to be read. Drain thread only.
  [[nodiscard]] std::uint32_t readable_frames() const;
  // How many of the readable frames are contiguous. Drain thread only.
  [[nodiscard]] std::uint32_t contiguous_frames() const;
  // The oldest readable sample of a channel; contiguous_frames() may be read from there until
  // consume(). Drain thread only.
  [[nodiscard]] const float* plane(std::uint32_t channel) const;
  // Releases the oldest `frames`. Drain thread only.
  void consume(std::uint32_t frames);
  // Frames consumed since the start. Drain thread only.
  [[nodiscard]] std::uint64_t consumed_frames() const;

  // Sound that is missing before frame number `at_frames`, counted from the start.
  struct Gap {
    std::uint64_t at_frames = 0;
    std::uint64_t frames = 0;
  };
  // The oldest gap that has not been taken yet. Call after the frames behind it were seen. Drain
  // thread only.
  [[nodiscard]] std::optional<Gap> nextGap() const;
  void takeGap();

  // Any thread. All since the start: frames stored, frames dropped for lack of room, frames that
  // never came, and the sum of both losses.
  [[nodiscard]] std::uint64_t written_frames() const {
    return written_.load(std::memory_order_acquire);
  }
  [[nodiscard]] std::uint64_t dropped_frames() const {
    return dropped_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t missed_frames() const {
    return missed_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t lost_frames() const { return dropped_frames() + missed_frames(); }

 private:
  static constexpr std::uint64_t kMostGaps = 64;

  void publishGap(std::uint64_t at_frames) RA_REQUIRES(writer_);

  [[nodiscard]] float* planeStart(std::uint32_t channel) const {
    return samples_ + static_cast<std::size_t>(channel) * capacity_frames_;
  }

  [[no_unique_address]] platform::ThreadRole writer_;  // the audio thread
  [[no_unique_address]] platform::ThreadRole reader_;  // the drain thread

  const std::uint32_t channels_;
  const std::uint32_t capacity_frames_;
  std::size_t size_bytes_ = 0;
  float* samples_ = nullptr;

  // On separate cache lines: each is written by one side only.
  alignas(64) std::atomic<std::uint64_t> written_{0};
  std::atomic<std::uint64_t> dropped_{0};
  std::atomic<std::uint64_t> missed_{0};
  std::atomic<std::uint64_t> gapsWritten_{0};
  std::uint64_t openGap_frames_ RA_GUARDED_BY(writer_) = 0;  // lost since the last frame stored
  std::array<Gap, kMostGaps> gaps_{};
  alignas(64) std::atomic<std::uint64_t> read_{0};
  std::atomic<std::uint64_t> gapsRead_{0};
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace linux_host
