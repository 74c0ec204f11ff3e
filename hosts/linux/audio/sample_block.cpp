// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/sample_block.h"

#include <cstring>
#include <utility>
#include <vector>

namespace linux_host {
namespace {

using platform::AudioBuffer;
using platform::AudioBufferList;
using platform::OSStatus;

// A parameter that is probably a mistake.
constexpr OSStatus kInvalidParameterError = -50;

// The planes one after the other.
class PlanarBlock : public platform::BlockBuffer {
 public:
  PlanarBlock(const float* const* planes, std::uint32_t channels, std::uint32_t frames)
      : frames_(frames),
        samples_(std::make_unique_for_overwrite<float[]>(std::size_t{channels} * frames)),
        size_bytes_(std::size_t{channels} * frames * sizeof(float)) {
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
      std::memcpy(plane(channel), planes[channel], frames * sizeof(float));
    }
  }

  [[nodiscard]] std::size_t getDataLength() const override { return size_bytes_; }
  [[nodiscard]] const std::byte* getDataPointer(std::size_t offset_bytes) const override {
    if (offset_bytes >= size_bytes_) return nullptr;
    return reinterpret_cast<const std::byte*>(samples_.get()) + offset_bytes;
  }
  [[nodiscard]] float* plane(std::uint32_t channel) const {
    return samples_.get() + std::size_t{channel} * frames_;
  }

 private:
  const std::uint32_t frames_;
  const std::unique_ptr<float[]> samples_;
  const std::size_t size_bytes_;
};

class PlanarSampleBuffer : public platform::SampleBuffer {
 public:
  PlanarSampleBuffer(std::shared_ptr<PlanarBlock> block, std::uint32_t channels,
                     std::uint32_t frames, double rate_Hz)
      : block_(std::move(block)),
        channels_(channels),
        frames_(frames),
        format_{{platform::planarFloat(rate_Hz, channels)}} {}

  [[nodiscard]] std::int64_t getNumSamples() const override { return frames_; }
  [[nodiscard]] const platform::AudioFormatDescription& getFormatDescription() const override {
    return format_;
  }

  OSStatus getAudioBufferListWithRetainedBlockBuffer(
      std::size_t* sizeNeeded_bytes, AudioBufferList* outList, std::size_t listSize_bytes,
      std::shared_ptr<platform::BlockBuffer>* outBlockBuffer) const override {
    const std::size_t needed_bytes = platform::audioBufferListSize_bytes(channels_);
    if (sizeNeeded_bytes != nullptr) *sizeNeeded_bytes = needed_bytes;
    if (outList != nullptr) {
      if (listSize_bytes < needed_bytes) return kInvalidParameterError;
      fill(outList);
    }
    if (outBlockBuffer != nullptr) *outBlockBuffer = block_;
    return platform::noErr;
  }

 private:
  void fill(AudioBufferList* list) const {
    list->mNumberBuffers = channels_;
    auto* buffers = reinterpret_cast<std::byte*>(list) + offsetof(AudioBufferList, mBuffers);
    for (std::uint32_t channel = 0; channel < channels_; ++channel) {
      const AudioBuffer buffer{1, frames_ * static_cast<std::uint32_t>(sizeof(float)),
                               block_->plane(channel)};
      std::memcpy(buffers + channel * sizeof buffer, &buffer, sizeof buffer);
    }
  }

  const std::shared_ptr<PlanarBlock> block_;
  const std::uint32_t channels_;
  const std::uint32_t frames_;
  const platform::AudioFormatDescription format_;
};

}  // namespace

std::shared_ptr<platform::SampleBuffer> makeSampleBuffer(const float* const* planes,
                                                         std::uint32_t channels,
                                                         std::uint32_t frames, double rate_Hz) {
  auto block = std::make_shared<PlanarBlock>(planes, channels, frames);
  return std::make_shared<PlanarSampleBuffer>(std::move(block), channels, frames, rate_Hz);
}

}  // namespace linux_host
