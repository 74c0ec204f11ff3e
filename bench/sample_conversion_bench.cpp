// SPDX-License-Identifier: MIT
// The sample conversion beside a plain memcpy of the same bytes, for one block of 1024 frames of
// each format. Both are timed in one run, turn by turn; "x_memcpy" is how many times as long the
// conversion takes. Medians, so that it does not matter what else the machine does.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "bench/median.h"
#include "capture/sample_conversion.h"

namespace {

using platform::AudioStreamBasicDescription;

constexpr std::size_t kBlock_frames = 1024;
constexpr int kBlocksPerTurn = 64;

struct Format {
  const char* name;
  std::uint32_t bits;
  std::uint32_t sample_bytes;
  std::uint32_t channels;
  bool planar;
  bool isFloat;
};

AudioStreamBasicDescription descriptionOf(const Format& format) {
  AudioStreamBasicDescription description;
  description.mBitsPerChannel = format.bits;
  description.mChannelsPerFrame = format.channels;
  description.mBytesPerFrame = format.sample_bytes * (format.planar ? 1 : format.channels);
  description.mFormatFlags = (format.planar ? platform::kAudioFormatFlagIsNonInterleaved : 0U) |
                             (format.isFloat ? platform::kAudioFormatFlagIsFloat
                                             : platform::kAudioFormatFlagIsSignedInteger);
  return description;
}

void BM_Convert(benchmark::State& state, Format format) {
  using Clock = std::chrono::steady_clock;
  const auto description = descriptionOf(format);
  // As many bytes as the conversion's steps reach over.
  const std::size_t stride_bytes =
      std::size_t{description.mBytesPerFrame} * (format.planar ? 1 : format.channels);
  const std::vector<std::byte> data(kBlock_frames * stride_bytes, std::byte{0x35});
  const std::size_t read_bytes = kBlock_frames * format.sample_bytes;
  std::vector<std::uint32_t> words(kBlock_frames);

  std::vector<double> converting_s;
  std::vector<double> copying_s;
  const auto blockTime_s = [](Clock::duration turn) {
    return std::chrono::duration<double>(turn).count() / kBlocksPerTurn;
  };
  for (auto _ : state) {
    const auto start = Clock::now();
    for (int i = 0; i < kBlocksPerTurn; ++i) {
      benchmark::DoNotOptimize(record_audio::convertSamples(description, data, words));
      benchmark::ClobberMemory();
    }
    const auto converted = Clock::now();
    for (int i = 0; i < kBlocksPerTurn; ++i) {
      benchmark::DoNotOptimize(std::memcpy(words.data(), data.data(), read_bytes));
      benchmark::ClobberMemory();
    }
    copying_s.push_back(blockTime_s(Clock::now() - converted));
    converting_s.push_back(blockTime_s(converted - start));
    state.SetIterationTime(converting_s.back());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * read_bytes));
  const double conversion_s = bench::median(converting_s);
  state.counters["block_ns"] = conversion_s * 1e9;
  state.counters["x_memcpy"] = conversion_s / bench::median(copying_s);
}

constexpr Format kFormats[] = {
    {"float32_planar_stereo", 32, 4, 2, true, true},
    {"float32_interleaved_stereo", 32, 4, 2, false, true},
    {"int32_mono", 32, 4, 1, false, false},
    {"int24_in_3_bytes_mono", 24, 3, 1, false, false},
    {"int24_in_4_bytes_mono", 24, 4, 1, false, false},
    {"int20_mono", 20, 3, 1, false, false},
    {"int16_mono", 16, 2, 1, false, false},
    {"int16_interleaved_stereo", 16, 2, 2, false, false},
    {"int12_mono", 12, 2, 1, false, false},
    {"int8_mono", 8, 1, 1, false, false},
};

}  // namespace

int main(int argc, char** argv) {
  for (const Format& format : kFormats) {
    benchmark::RegisterBenchmark((std::string("BM_Convert/") + format.name).c_str(), BM_Convert,
                                 format)
        ->UseManualTime();
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
