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

}  // namespace

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
