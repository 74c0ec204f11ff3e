// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/audio_types.h"

// Captured bytes to the 32-bit words that the encoder reads. Pure functions; any thread; they
// allocate nothing.

namespace record_audio {

// Whether convertSamples() takes the format: 1 to 32 bits per channel and at least one channel.
bool canConvertSamples(const platform::AudioStreamBasicDescription& format);

// Fills `words` with one channel of `data`, one word per frame. 32-bit samples are copied as they
// are; narrower ones, little-endian in (bytes per frame / channels) bytes, fill the word from its
// top bit down. Sample i starts at byte i * stride, where the stride is the bytes per frame, times
// the channels unless the planes lie apart: one plane is read whole, interleaved data of c channels
// in steps of c frames.
//
// Returns how many words had their bytes within `data`; those beyond are 0, silence.
// Needs canConvertSamples(format).
std::size_t convertSamples(const platform::AudioStreamBasicDescription& format,
                           std::span<const std::byte> data, std::span<std::uint32_t> words);

}  // namespace record_audio
