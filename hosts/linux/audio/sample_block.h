// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

#include "platform/sample_buffer.h"

namespace linux_host {

// Copies `frames` samples of each plane into a sample buffer of 32-bit float, non-interleaved.
// Any thread except audio callbacks; the result may be handed to another.
std::shared_ptr<platform::SampleBuffer> makeSampleBuffer(const float* const* planes,
                                                         std::uint32_t channels,
                                                         std::uint32_t frames, double rate_Hz);

}  // namespace linux_host
