// SPDX-License-Identifier: MIT
#include "tests/support/driven_microphone.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "tests/support/driven_device.h"
#include "tests/support/signal_feed.h"

namespace test_support {
namespace {

void fill(spa_buffer& buffer, std::uint64_t frame, std::uint32_t frames) {
  const spa_data& plane = buffer.datas[0];
  const auto count = std::min(frames, plane.maxsize / static_cast<std::uint32_t>(sizeof(float)));
  auto* samples = static_cast<float*>(plane.data);
  for (std::uint32_t i = 0; samples != nullptr && i < count; ++i) {
    samples[i] = frameNumber(frame + i, 0);
  }
  plane.chunk->offset = 0;
  plane.chunk->stride = sizeof(float);
  plane.chunk->size = count * static_cast<std::uint32_t>(sizeof(float));
}

}  // namespace

struct DrivenMicrophone::Impl {
  explicit Impl(std::string nodeName) : device(wiring(std::move(nodeName))) {}

  DrivenDevice::Wiring wiring(std::string nodeName) {
    DrivenDevice::Wiring result;
    result.nodeName = std::move(nodeName);
    result.positions = {SPA_AUDIO_CHANNEL_MONO};
    result.exchange = fill;
    result.leftOut = [this](std::uint64_t cycle_frames) {
      const auto cycles = static_cast<std::uint64_t>(toSkip.exchange(0));
      skipped_frames += cycles * cycle_frames;
      return cycles;
    };
    return result;
  }

  std::atomic<int> toSkip{0};
  std::atomic<std::uint64_t> skipped_frames{0};
  DrivenDevice device;  // last, so destroyed first, which ends all calls
};

DrivenMicrophone::DrivenMicrophone(std::string nodeName)
    : impl_(std::make_unique<Impl>(std::move(nodeName))) {}

DrivenMicrophone::~DrivenMicrophone() = default;

void DrivenMicrophone::skip(int cycles) {
  impl_->toSkip = cycles;
}

std::uint64_t DrivenMicrophone::skippedFrames() const {
  return impl_->skipped_frames;
}

}  // namespace test_support
