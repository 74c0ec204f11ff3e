// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/stream_format.h"

#include <new>

#include "hosts/linux/audio/stream_connection.h"

namespace linux_host {

using platform::AudioBufferList;
using platform::AudioStreamBasicDescription;

bool isPlanarFloat(const AudioStreamBasicDescription& format) {
  constexpr std::uint32_t kNeeded =
      platform::kAudioFormatFlagIsFloat | platform::kAudioFormatFlagIsNonInterleaved;
  // Rates outside this range are not sound; the comparison also refuses NaN.
  const bool isRate = format.mSampleRate >= 1000 && format.mSampleRate <= 1'000'000;
  return isRate && format.mFormatID == platform::kAudioFormatLinearPCM &&
         (format.mFormatFlags & kNeeded) == kNeeded && format.mBytesPerFrame == sizeof(float) &&
         format.mBitsPerChannel == 32 && format.mChannelsPerFrame >= 1 &&
         format.mChannelsPerFrame <= kMostStreamChannels;
}

PlaneList::PlaneList(std::uint32_t channels)
    : channels_(channels), bytes_(platform::audioBufferListSize_bytes(channels)) {
  list().mNumberBuffers = channels;
  for (std::uint32_t channel = 0; channel < channels; ++channel) setPlane(channel, nullptr, 0);
}

void PlaneList::setPlane(std::uint32_t channel, float* samples, std::uint32_t frames) {
  platform::AudioBuffer* const buffers = list().mBuffers;
  buffers[channel] = {1, frames * static_cast<std::uint32_t>(sizeof(float)), samples};
}

AudioBufferList& PlaneList::list() {
  // The memory of a byte vector is aligned for any type.
  return *std::launder(reinterpret_cast<AudioBufferList*>(bytes_.data()));
}

float* PlaneList::plane(std::uint32_t channel) {
  const platform::AudioBuffer* const buffers = list().mBuffers;
  return static_cast<float*>(buffers[channel].mData);
}

std::uint32_t PlaneList::frames(std::uint32_t channel) {
  const platform::AudioBuffer* const buffers = list().mBuffers;
  return buffers[channel].mDataByteSize / static_cast<std::uint32_t>(sizeof(float));
}

}  // namespace linux_host
