// SPDX-License-Identifier: MIT
#include "tests/support/driven_sink.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <utility>

#include "tests/support/driven_device.h"

namespace test_support {

struct DrivenSink::Impl {
  Impl(std::string nodeName, double speed_ppm, double room_s)
      : samples(static_cast<std::size_t>(room_s * DrivenDevice::kRate_Hz)),
        device(wiring(std::move(nodeName), speed_ppm)) {}

  DrivenDevice::Wiring wiring(std::string nodeName, double speed_ppm) {
    DrivenDevice::Wiring result;
    result.nodeName = std::move(nodeName);
    result.isSink = true;
    result.positions = {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR};
    result.speed = 1 + speed_ppm * 1e-6;
    result.exchange = [this](const spa_buffer& buffer, std::uint64_t, std::uint32_t) {
      keep(buffer.datas[0]);
    };
    return result;
  }

  void keep(const spa_data& plane) {
    const std::uint32_t count = plane.chunk->size / static_cast<std::uint32_t>(sizeof(float));
    const std::size_t before = frames.load(std::memory_order_relaxed);
    if (plane.data == nullptr || before + count > samples.size()) return;
    std::copy_n(static_cast<const float*>(plane.data), count, samples.data() + before);
    frames.store(before + count, std::memory_order_release);
  }

  std::vector<float> samples;
  std::atomic<std::size_t> frames{0};
  DrivenDevice device;  // last, so destroyed first, which ends all calls
};

DrivenSink::DrivenSink(std::string nodeName, double speed_ppm, double room_s)
    : impl_(std::make_unique<Impl>(std::move(nodeName), speed_ppm, room_s)) {}

DrivenSink::~DrivenSink() = default;

std::size_t DrivenSink::frames() const {
  return impl_->frames.load(std::memory_order_acquire);
}

std::vector<float> DrivenSink::samples(std::size_t from, std::size_t to) const {
  const std::size_t end = std::min(to, frames());
  if (from >= end) return {};
  return {impl_->samples.begin() + static_cast<std::ptrdiff_t>(from),
          impl_->samples.begin() + static_cast<std::ptrdiff_t>(end)};
}

int DrivenSink::lateCycles() const {
  return impl_->device.lateCycles();
}

}  // namespace test_support
