// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/channel_layout.h"

#include <spa/param/audio/raw.h>

#include <cstring>

#include "platform/audio_types.h"

namespace linux_host {
namespace {

// Labels of channels in a layout.
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;
constexpr std::uint32_t kMono = 42;
constexpr std::uint32_t kUseChannelDescriptions = 0;

std::uint32_t labelOf(std::uint32_t position) {
  switch (position) {
    case SPA_AUDIO_CHANNEL_MONO:
      return kMono;
    case SPA_AUDIO_CHANNEL_FL:
      return 1;
    case SPA_AUDIO_CHANNEL_FR:
      return 2;
    case SPA_AUDIO_CHANNEL_FC:
      return 3;
    case SPA_AUDIO_CHANNEL_LFE:
      return 4;
    case SPA_AUDIO_CHANNEL_RL:
    case SPA_AUDIO_CHANNEL_SL:
      return position == SPA_AUDIO_CHANNEL_SL ? 10 : 5;
    case SPA_AUDIO_CHANNEL_RR:
    case SPA_AUDIO_CHANNEL_SR:
      return position == SPA_AUDIO_CHANNEL_SR ? 11 : 6;
    case SPA_AUDIO_CHANNEL_FLC:
      return 7;
    case SPA_AUDIO_CHANNEL_FRC:
      return 8;
    case SPA_AUDIO_CHANNEL_RC:
      return 9;
    default:
      return kUnknown;
  }
}

Speaker speakerAt(std::uint32_t position) {
  switch (position) {
    case SPA_AUDIO_CHANNEL_FL:
      return Speaker::kFrontLeft;
    case SPA_AUDIO_CHANNEL_FR:
      return Speaker::kFrontRight;
    case SPA_AUDIO_CHANNEL_FC:
      return Speaker::kFrontCenter;
    case SPA_AUDIO_CHANNEL_LFE:
      return Speaker::kLowFrequency;
    case SPA_AUDIO_CHANNEL_RL:
      return Speaker::kBackLeft;
    case SPA_AUDIO_CHANNEL_RR:
      return Speaker::kBackRight;
    case SPA_AUDIO_CHANNEL_RC:
      return Speaker::kBackCenter;
    case SPA_AUDIO_CHANNEL_SL:
      return Speaker::kSideLeft;
    case SPA_AUDIO_CHANNEL_SR:
      return Speaker::kSideRight;
    case SPA_AUDIO_CHANNEL_FLC:
    case SPA_AUDIO_CHANNEL_FLW:
    case SPA_AUDIO_CHANNEL_FLH:
    case SPA_AUDIO_CHANNEL_RLC:
    case SPA_AUDIO_CHANNEL_TFL:
    case SPA_AUDIO_CHANNEL_TFLC:
    case SPA_AUDIO_CHANNEL_TSL:
    case SPA_AUDIO_CHANNEL_TRL:
    case SPA_AUDIO_CHANNEL_BLC:
      return Speaker::kElsewhereLeft;
    case SPA_AUDIO_CHANNEL_FRC:
    case SPA_AUDIO_CHANNEL_FRW:
    case SPA_AUDIO_CHANNEL_FRH:
    case SPA_AUDIO_CHANNEL_RRC:
    case SPA_AUDIO_CHANNEL_TFR:
    case SPA_AUDIO_CHANNEL_TFRC:
    case SPA_AUDIO_CHANNEL_TSR:
    case SPA_AUDIO_CHANNEL_TRR:
    case SPA_AUDIO_CHANNEL_BRC:
      return Speaker::kElsewhereRight;
    default:
      return Speaker::kNowhere;
  }
}

}  // namespace

std::vector<Speaker> speakersAt(const std::vector<std::uint32_t>& positions) {
  std::vector<Speaker> speakers;
  for (const std::uint32_t position : positions) speakers.push_back(speakerAt(position));
  return speakers;
}

std::vector<std::byte> channelLayout(const std::vector<std::uint32_t>& positions) {
  using platform::AudioChannelDescription;
  using platform::AudioChannelLayout;
  platform::AudioChannelLayout header{};
  header.mChannelLayoutTag = kUseChannelDescriptions;
  header.mNumberChannelDescriptions = static_cast<std::uint32_t>(positions.size());
  constexpr std::size_t kHeader_bytes = offsetof(AudioChannelLayout, mChannelDescriptions);
  std::vector<std::byte> bytes(kHeader_bytes + positions.size() * sizeof(AudioChannelDescription));
  std::memcpy(bytes.data(), &header, kHeader_bytes);
  for (std::size_t i = 0; i < positions.size(); ++i) {
    const AudioChannelDescription description{labelOf(positions[i]), 0, {}};
    std::memcpy(bytes.data() + kHeader_bytes + i * sizeof description, &description,
                sizeof description);
  }
  return bytes;
}

std::vector<std::byte> streamConfiguration(std::uint32_t channels) {
  platform::AudioBufferList list{};
  list.mNumberBuffers = channels == 0 ? 0 : 1;
  list.mBuffers[0].mNumberChannels = channels;
  std::vector<std::byte> bytes(platform::audioBufferListSize_bytes(list.mNumberBuffers));
  std::memcpy(bytes.data(), &list, bytes.size());
  return bytes;
}

}  // namespace linux_host
