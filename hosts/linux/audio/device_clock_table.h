// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cassert>
#include <cstdint>
#include <optional>

#include "platform/audio_hardware.h"

// The clocks of the running devices, as their streams see them.
//
// Each running stream claims one entry for its device and publishes the graph's clock into it once
// per cycle. Any audio callback may read any device's clock.
//
// Invariants
// - An entry is claimed and released on ordinary threads; between the two exactly one audio thread
//   publishes into it.
// - `sequence` is odd while the entry's values are being written, even when they belong together.
// - `device` is 0 in a free entry.
//
// Memory order
// - The writer makes `sequence` odd with a relaxed store and then stores each value with release: a
//   reader that loads any of the new values, with acquire, therefore sees the odd or a later
//   sequence when it loads that again, which it does after the values. The even sequence is stored
//   with release: a reader that loads it with acquire sees all values written before.
// - The values are atomics because a torn set of them is detected only afterwards, by the sequence,
//   and each alone must not be a data race. (Fences would do with relaxed values; thread sanitizers
//   do not understand them, and on the machines we run on both cost the same.)
// - `device` is stored with release after the entry has been reset, and loaded with acquire, so a
//   reader never takes the former owner's values for the new device's.

namespace linux_host {

// A reading of a device's clock.
struct DeviceClock {
  std::uint64_t host_ns = 0;  // CLOCK_MONOTONIC
  double sampleTime = 0;      // frames, at host_ns
  double rate_Hz = 0;         // nominal
  double rateScalar = 1;  // the device's speed relative to its nominal rate, by the host's clock
};

class DeviceClockTable {
 public:
  static constexpr std::size_t kEntries = 16;

  // One stream's entry in the table, released with this object. May be empty if the table is full;
  // then it publishes nothing. Can be moved between ordinary threads while its stream is stopped.
  class Publisher {
   public:
    Publisher() = default;
    ~Publisher() { release(); }
    Publisher(Publisher&& other) noexcept : table_(other.table_), index_(other.index_) {
      other.table_ = nullptr;
    }
    Publisher& operator=(Publisher&& other) noexcept {
      if (this == &other) return *this;
      release();
      table_ = other.table_;
      index_ = other.index_;
      other.table_ = nullptr;
      return *this;
    }
    // REAL-TIME: allocates nothing, takes no lock, makes no system call. One thread at a time.
    void publish(const DeviceClock& clock) {
      if (table_ != nullptr) table_->entries_[index_].write(clock);
    }

   private:
    friend class DeviceClockTable;
    Publisher(DeviceClockTable* table, std::size_t index) : table_(table), index_(index) {}
    void release() {
      if (table_ == nullptr) return;
      table_->entries_[index_].device.store(0, std::memory_order_release);
      table_ = nullptr;
    }

    DeviceClockTable* table_ = nullptr;
    std::size_t index_ = 0;
  };

  // Claims an entry for a stream of the device. Not on an audio thread.
  Publisher claim(platform::AudioDeviceID device) {
    assert(device != platform::kAudioObjectUnknown);
    for (std::size_t i = 0; i < kEntries; ++i) {
      std::uint32_t free = 0;
      Entry& entry = entries_[i];
      // Marked with an id that no device has while the old values are cleared.
      if (!entry.device.compare_exchange_strong(free, kBeingClaimed, std::memory_order_acquire,
                                                std::memory_order_relaxed)) {
        continue;
      }
      entry.write(DeviceClock{});
      entry.device.store(device, std::memory_order_release);
      return {this, i};
    }
    return {};
  }

  // REAL-TIME: allocates nothing, takes no lock, makes no system call; a bounded number of steps.
  // The latest reading published for the device; null when none of its streams has run yet.
  [[nodiscard]] std::optional<DeviceClock> read(platform::AudioDeviceID device) const {
    for (const Entry& entry : entries_) {
      if (entry.device.load(std::memory_order_acquire) != device) continue;
      const std::optional<DeviceClock> clock = entry.read();
      if (clock && clock->host_ns != 0) return clock;
    }
    return std::nullopt;
  }

 private:
  static constexpr std::uint32_t kBeingClaimed = 1;  // the system object has no clock
  // A writer takes about ten instructions. If it is suspended in the middle, the reader does not
  // wait for it.
  static constexpr int kReadAttempts = 100;

  struct Entry {
    std::atomic<std::uint32_t> device{0};
    std::atomic<std::uint32_t> sequence{0};
    std::atomic<std::uint64_t> host_ns{0};
    std::atomic<double> sampleTime{0};
    std::atomic<double> rate_Hz{0};
    std::atomic<double> rateScalar{1};

    void write(const DeviceClock& clock) {
      const std::uint32_t before = sequence.load(std::memory_order_relaxed);
      assert(before % 2 == 0 && "two writers");
      sequence.store(before + 1, std::memory_order_relaxed);
      host_ns.store(clock.host_ns, std::memory_order_release);
      sampleTime.store(clock.sampleTime, std::memory_order_release);
      rate_Hz.store(clock.rate_Hz, std::memory_order_release);
      rateScalar.store(clock.rateScalar, std::memory_order_release);
      sequence.store(before + 2, std::memory_order_release);
    }

    [[nodiscard]] std::optional<DeviceClock> read() const {
      for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        const std::uint32_t before = sequence.load(std::memory_order_acquire);
        if (before % 2 != 0) continue;
        const DeviceClock clock{
            host_ns.load(std::memory_order_acquire), sampleTime.load(std::memory_order_acquire),
            rate_Hz.load(std::memory_order_acquire), rateScalar.load(std::memory_order_acquire)};
        if (sequence.load(std::memory_order_relaxed) == before) return clock;
      }
      return std::nullopt;
    }
  };

  std::array<Entry, kEntries> entries_;
};
static_assert(std::atomic<double>::is_always_lock_free);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace linux_host
