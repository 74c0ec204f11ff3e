// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/audio_types.h"

// Converts captured bytes into the 32-bit words that the encoder reads. Pure functions for any
// thread; they allocate nothing.

namespace record_audio {

// Whether convertSamples() takes the format: 1 to 32 bits per channel and at least one channel.
bool canConvertSamples(const platform::AudioStreamBasicDescription& format);

// Fills `words` with one channel of `data`, one word per frame. 32-bit samples are copied as they
// are. Narrower samples are little-endian, in (bytes per frame / channels) bytes, and fill the word
// from its top bit down. Sample i starts at byte i * stride. For planar data the stride is the
// bytes per frame, so one plane is read whole. For interleaved data it is the bytes per frame times
// the channels c, so only every c-th frame is read.
//
// Returns how many words had all their bytes within `data`. The others are set to 0, which is
// silence. Requires canConvertSamples(format).
std::size_t convertSamples(const platform::AudioStreamBasicDescription& format,
                           std::span<const std::byte> data, std::span<std::uint32_t> words);

}  // namespace record_audio
