// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

// What the encoders need by themselves, as the limit of what a recording can cost. The sound is one
// vector of samples in [-1, 1] for each of two channels. Each returns the CPU time of the calling
// thread, in seconds, or a negative number if the encoder cannot be opened.

inline constexpr std::uint32_t kBenchRate_Hz = 48000;
inline constexpr std::uint32_t kBenchAacBitrate_bps = 256000;

// The CPU time of the calling thread so far.
[[nodiscard]] double threadCpuTime_s();

// libavcodec's AAC encoder. The packets are discarded.
[[nodiscard]] double aacAloneCpu_s(const std::vector<std::vector<float>>& channels);

// LAME as a recording sets it up: 320 kbit/s, quality 2. The bytes are discarded.
[[nodiscard]] double mp3AloneCpu_s(const std::vector<std::vector<float>>& channels);
