// SPDX-License-Identifier: MIT
// Measures how long the last step of an m4a recording takes, and what its writer costs compared
// with the encoder alone. Needs no sound server.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/encoders_alone.h"
#include "hosts/linux/m4a/libav_m4a_writer.h"
#include "hosts/linux/m4a/m4a_open_file.h"

namespace {

constexpr std::uint32_t kRate_hz = kBenchRate_Hz;
constexpr std::uint32_t kBitrate_bps = kBenchAacBitrate_bps;
constexpr std::uint32_t kPiece_frames = 480;

class TemporaryFile {
 public:
  TemporaryFile() {
    std::string pattern = "/var/tmp/record-audio-m4a-bench-XXXXXX";
    folder_ = mkdtemp(pattern.data());
    const auto file = files_.open(folder_ + "/bench.m4a", linux_host::OpenFiles::Mode::kCreateNew);
    if (file) {
      file_ = *file;
    } else {
      status_ = linux_host::Unexpected(file.error());
    }
  }
  ~TemporaryFile() { std::filesystem::remove_all(folder_); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  std::unique_ptr<linux_host::M4aSink> sink() { return linux_host::m4aSinkFor(file_); }
  // Whether there is a file.
  [[nodiscard]] const linux_host::Status& status() const { return status_; }

 private:
  std::string folder_;
  linux_host::Status status_;
  linux_host::OpenFiles files_;
  std::shared_ptr<linux_host::OpenFile> file_;
};

linux_host::M4aFormat stereo() {
  using linux_host::Speaker;
  return {kRate_hz, {Speaker::kFrontLeft, Speaker::kFrontRight}, kBitrate_bps};
}

// The last step of a recording of the given minutes, into a real file.
void finishAfterMinutes(benchmark::State& state) {
  const auto minutes = static_cast<std::uint64_t>(state.range(0));
  const std::vector<float> silence(kRate_hz, 0.0F);
  const float* planes[] = {silence.data(), silence.data()};
  for (auto _ : state) {
    TemporaryFile file;
    linux_host::LibavM4aWriter writer;
    linux_host::Status status = file.status();
    if (status) status = writer.open(file.sink(), stereo());
    for (std::uint64_t second = 0; second < minutes * 60 && status; ++second) {
      status = writer.write(planes, kRate_hz);
    }
    const auto begin = std::chrono::steady_clock::now();
    if (status) status = writer.finish();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    if (!status) {
      state.SkipWithError(status.error().c_str());
      break;
    }
    state.SetIterationTime(taken.count());
    state.counters["of_the_quarter_second_allowed"] = taken.count() / 0.25;
  }
}
BENCHMARK(finishAfterMinutes)
    ->Arg(10)
    ->Arg(180)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// Two chords in noise: as much work for the encoder as music.
std::vector<std::vector<float>> music(std::uint32_t frames) {
  std::vector<std::vector<float>> planes(2, std::vector<float>(frames));
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0.0F, 0.02F);
  for (std::size_t channel = 0; channel < planes.size(); ++channel) {
    for (std::uint32_t i = 0; i < frames; ++i) {
      const float time_s = static_cast<float>(i) / static_cast<float>(kRate_hz);
      for (const float frequency_hz : {220.0F, 277.2F, 329.6F, 1760.0F}) {
        const float detuned_hz = frequency_hz * (1.0F + 0.01F * static_cast<float>(channel));
        planes[channel][i] += 0.1F * std::sin(6.2831853F * detuned_hz * time_s);
      }
      planes[channel][i] += noise(random);
    }
  }
  return planes;
}

double writerCpu_s(const std::vector<std::vector<float>>& planes, linux_host::Status* status) {
  TemporaryFile file;
  *status = file.status();
  if (!*status) return 0;
  const double begin_s = threadCpuTime_s();
  linux_host::LibavM4aWriter writer;
  *status = writer.open(file.sink(), stereo());
  const auto frames = static_cast<std::uint32_t>(planes[0].size());
  for (std::uint32_t done = 0; done < frames && *status; done += kPiece_frames) {
    const float* piece[] = {planes[0].data() + done, planes[1].data() + done};
    *status = writer.write(piece, std::min(kPiece_frames, frames - done));
  }
  if (*status) *status = writer.finish();
  return threadCpuTime_s() - begin_s;
}

// The writer's CPU time relative to that of the encoder alone; both take turns.
void writerAgainstPlainEncoder(benchmark::State& state) {
  constexpr std::uint32_t kSeconds = 60;
  av_log_set_level(AV_LOG_ERROR);
  const auto planes = music(kSeconds * kRate_hz);
  double writer_s = 0;
  double plain_s = 0;
  linux_host::Status status;
  for (auto _ : state) {
    const double now_s = writerCpu_s(planes, &status);
    if (!status) {
      state.SkipWithError(status.error().c_str());
      break;
    }
    writer_s += now_s;
    plain_s += aacAloneCpu_s(planes);
    state.SetIterationTime(now_s);
  }
  state.counters["ratio"] = writer_s / plain_s;
  state.counters["percent_of_a_core"] =
      100 * writer_s / (kSeconds * static_cast<double>(state.iterations()));
}
BENCHMARK(writerAgainstPlainEncoder)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
