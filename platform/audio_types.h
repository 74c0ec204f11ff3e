// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

// Records and status values that the audio ports share. Plain data, laid out as the 64-bit audio
// services lay them out; sizes stand beside them because properties are read as raw bytes.

namespace platform {

using OSStatus = std::int32_t;
inline constexpr OSStatus noErr = 0;

// 'abcd' as the 32-bit number that selectors, scopes, types and status values are made of.
constexpr std::uint32_t fourCharCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

inline constexpr std::uint32_t kAudioFormatLinearPCM = fourCharCode("lpcm");
inline constexpr std::uint32_t kAudioFormatFlagIsFloat = 1U << 0;
inline constexpr std::uint32_t kAudioFormatFlagIsSignedInteger = 1U << 2;
inline constexpr std::uint32_t kAudioFormatFlagIsPacked = 1U << 3;
inline constexpr std::uint32_t kAudioFormatFlagIsNonInterleaved = 1U << 5;

struct AudioStreamBasicDescription {
  double mSampleRate = 0;  // frames per second
  std::uint32_t mFormatID = 0;
  std::uint32_t mFormatFlags = 0;
  std::uint32_t mBytesPerPacket = 0;
  std::uint32_t mFramesPerPacket = 0;
  std::uint32_t mBytesPerFrame = 0;  // of one plane when non-interleaved
  std::uint32_t mChannelsPerFrame = 0;
  std::uint32_t mBitsPerChannel = 0;
  std::uint32_t mReserved = 0;
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

// 32-bit float, one plane per channel: the format of all sound on its way through the program.
constexpr AudioStreamBasicDescription planarFloat(double sampleRate_hz, std::uint32_t channels) {
  AudioStreamBasicDescription format;
  format.mSampleRate = sampleRate_hz;
  format.mFormatID = kAudioFormatLinearPCM;
  format.mFormatFlags =
      kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved;
  format.mBytesPerPacket = sizeof(float);
  format.mFramesPerPacket = 1;
  format.mBytesPerFrame = sizeof(float);
  format.mChannelsPerFrame = channels;
  format.mBitsPerChannel = 8 * sizeof(float);
  return format;
}

struct AudioBuffer {
  std::uint32_t mNumberChannels;  // interleaved in mData
  std::uint32_t mDataByteSize;
  void* mData;  // not owned
};
static_assert(sizeof(AudioBuffer) == 16);

// A header followed by mNumberBuffers records, one of them declared: 8 + 16 n bytes in all.
struct AudioBufferList {
  std::uint32_t mNumberBuffers;
  AudioBuffer mBuffers[1];
};
static_assert(sizeof(AudioBufferList) == 24);

constexpr std::size_t audioBufferListSize_bytes(std::uint32_t bufferCount) {
  return offsetof(AudioBufferList, mBuffers) + bufferCount * sizeof(AudioBuffer);
}

// Where one channel is heard. The core only counts them.
struct AudioChannelDescription {
  std::uint32_t mChannelLabel;
  std::uint32_t mChannelFlags;
  float mCoordinates[3];
};
static_assert(sizeof(AudioChannelDescription) == 20);

// A header followed by mNumberChannelDescriptions records, one of them declared: 12 + 20 n bytes.
struct AudioChannelLayout {
  std::uint32_t mChannelLayoutTag;
  std::uint32_t mChannelBitmap;
  std::uint32_t mNumberChannelDescriptions;
  AudioChannelDescription mChannelDescriptions[1];
};
static_assert(sizeof(AudioChannelLayout) == 32);

// A moment of one device's clock.
struct AudioTimeStamp {
  double mSampleTime = 0;       // frames since the device's own start
  std::uint64_t mHostTime = 0;  // ticks of the host clock
  double mRateScalar = 0;       // the device's actual speed over its nominal one; above 1 is fast
  std::uint64_t mWordClockTime = 0;
  std::uint8_t mSmpteTime[24] = {};
  std::uint32_t mFlags = 0;
  std::uint32_t mReserved = 0;
};
static_assert(sizeof(AudioTimeStamp) == 64);

}  // namespace platform
