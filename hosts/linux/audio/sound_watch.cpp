// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/sound_watch.h"

#include <algorithm>
#include <span>

namespace linux_host {
namespace {

// The number of zero samples at the end. Stops at the first sound.
std::uint32_t silenceAtEnd(std::span<const float> samples) {
  const auto sound = std::find_if(samples.rbegin(), samples.rend(), [](float s) { return s != 0; });
  return static_cast<std::uint32_t>(sound - samples.rbegin());
}

}  // namespace

void SoundWatch::listen(const float* const* planes, std::uint32_t channels, std::uint32_t recorded,
                        std::uint32_t frames) {
  std::uint32_t silent = frames;
  for (std::uint32_t channel = 0; channel < recorded; ++channel) {
    silent = std::min(silent, silenceAtEnd({planes[channel], frames}));
  }
  if (silent < frames) {
    hasHeardSound_ = true;
    silent_frames_ = 0;
  }
  silent_frames_ += silent;
  const std::uint64_t limit_s = hasHeardSound_ ? kLongSilence_s : kSilentStart_s;
  const bool isSilent = silent_frames_ >= limit_s * rate_Hz_;
  isSilent_.store(isSilent, std::memory_order_relaxed);
  hasSoundElsewhere_ = false;
  for (std::uint32_t channel = recorded; isSilent && channel < channels; ++channel) {
    hasSoundElsewhere_ |= silenceAtEnd({planes[channel], frames}) < frames;
  }
}

}  // namespace linux_host
