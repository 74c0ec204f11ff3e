// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_ring.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "hosts/linux/audio/populated_pages.h"
#include "platform/resident_memory.h"

namespace linux_host {

CaptureRing::CaptureRing(std::uint32_t channels, std::uint32_t capacity_frames)
    : channels_(channels),
      capacity_frames_(capacity_frames),
      size_bytes_(std::size_t{channels} * capacity_frames * sizeof(float)) {
  void* memory = mmap(nullptr, size_bytes_, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  samples_ = static_cast<float*>(memory);
}

CaptureRing::~CaptureRing() {
  munmap(samples_, size_bytes_);
}

void CaptureRing::prefault() {
  if (!populatePages(samples_, size_bytes_)) platform::makeResident(samples_, size_bytes_);
}

bool CaptureRing::write(const float* const* planes, std::uint32_t frames) {
  writer_.assertHeld();
  const std::uint64_t written = written_.load(std::memory_order_relaxed);
  const std::uint64_t read = read_.load(std::memory_order_acquire);
  if (frames > capacity_frames_ - (written - read)) {
    dropped_.fetch_add(frames, std::memory_order_relaxed);
    openGap_frames_ += frames;
    return false;
  }
  if (openGap_frames_ > 0) publishGap(written);
  const auto start = static_cast<std::uint32_t>(written % capacity_frames_);
  const std::uint32_t untilEnd = std::min(frames, capacity_frames_ - start);
  for (std::uint32_t channel = 0; channel < channels_; ++channel) {
    float* plane = planeStart(channel);
    std::memcpy(plane + start, planes[channel], untilEnd * sizeof(float));
    std::memcpy(plane, planes[channel] + untilEnd, (frames - untilEnd) * sizeof(float));
  }
  written_.store(written + frames, std::memory_order_release);
  return true;
}

void CaptureRing::miss(std::uint64_t frames) {
  writer_.assertHeld();
  missed_.fetch_add(frames, std::memory_order_relaxed);
  openGap_frames_ += frames;
}

void CaptureRing::publishGap(std::uint64_t at_frames) {
  const std::uint64_t number = gapsWritten_.load(std::memory_order_relaxed);
  if (number - gapsRead_.load(std::memory_order_acquire) == kMostGaps) return;
  gaps_[number % kMostGaps] = {at_frames, openGap_frames_};
  openGap_frames_ = 0;
  gapsWritten_.store(number + 1, std::memory_order_release);
}

std::optional<CaptureRing::Gap> CaptureRing::nextGap() const {
  reader_.assertHeld();
  const std::uint64_t number = gapsRead_.load(std::memory_order_relaxed);
  if (number == gapsWritten_.load(std::memory_order_acquire)) return std::nullopt;
  return gaps_[number % kMostGaps];
}

void CaptureRing::takeGap() {
  reader_.assertHeld();
  gapsRead_.store(gapsRead_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

std::uint32_t CaptureRing::readable_frames() const {
  reader_.assertHeld();
  return static_cast<std::uint32_t>(written_.load(std::memory_order_acquire) -
                                    read_.load(std::memory_order_relaxed));
}

std::uint32_t CaptureRing::contiguous_frames() const {
  const std::uint32_t readable = readable_frames();
  const auto start =
      static_cast<std::uint32_t>(read_.load(std::memory_order_relaxed) % capacity_frames_);
  return std::min(readable, capacity_frames_ - start);
}

const float* CaptureRing::plane(std::uint32_t channel) const {
  reader_.assertHeld();
  return planeStart(channel) + read_.load(std::memory_order_relaxed) % capacity_frames_;
}

void CaptureRing::consume(std::uint32_t frames) {
  reader_.assertHeld();
  read_.store(read_.load(std::memory_order_relaxed) + frames, std::memory_order_release);
}

std::uint64_t CaptureRing::consumed_frames() const {
  reader_.assertHeld();
  return read_.load(std::memory_order_relaxed);
}

}  // namespace linux_host
