// SPDX-License-Identifier: MIT
// The routing ring buffer beside two others that carry the same blocks of 512 stereo frames: a
// plain memcpy of the same bytes through storage of the same size, and PipeWire's own ring of
// bytes. x_memcpy and x_spa_ringbuffer are quotients of median times.

#include <benchmark/benchmark.h>
#include <spa/utils/ringbuffer.h>

#include <array>
#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "bench/median.h"
#include "routing/ring_buffer.h"

namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kBlock_frames = 512;
constexpr std::uint32_t kBlock_bytes = kBlock_frames * sizeof(float);
constexpr std::uint32_t kCapacity_frames = 16384;
constexpr std::uint32_t kCapacity_bytes = kCapacity_frames * sizeof(float);

// A planar stereo block with the buffer list that describes it.
class Block {
 public:
  Block() {
    list().mNumberBuffers = kChannels;
    for (std::uint32_t i = 0; i < kChannels; ++i) {
      samples_[i].assign(kBlock_frames, 0.25F);
      list().mBuffers[i] = {1, kBlock_bytes, samples_[i].data()};
    }
  }
  platform::AudioBufferList& list() {
    return *reinterpret_cast<platform::AudioBufferList*>(storage_.data());
  }
  float* channel(std::uint32_t i) { return samples_[i].data(); }

 private:
  alignas(8) std::array<std::byte, platform::audioBufferListSize_bytes(kChannels)> storage_{};
  std::array<std::vector<float>, kChannels> samples_;
};

// Each way carries one block from `in` to `out`.
class RingBufferWay {
 public:
  RingBufferWay() { ring_.allocate(kChannels, sizeof(float), kCapacity_frames); }
  bool carry(Block& in, Block& out) {
    const bool carried =
        ring_.store(in.list(), kBlock_frames, time_) == record_audio::RingBufferErrorNone &&
        ring_.fetch(out.list(), kBlock_frames, time_) == record_audio::RingBufferErrorNone;
    time_ += kBlock_frames;
    return carried;
  }

 private:
  record_audio::RingBuffer ring_;
  std::int64_t time_ = 0;
};

class MemcpyWay {
 public:
  bool carry(Block& in, Block& out) {
    for (std::uint32_t i = 0; i < kChannels; ++i) {
      std::memcpy(channel(i), in.channel(i), kBlock_bytes);
    }
    benchmark::ClobberMemory();
    for (std::uint32_t i = 0; i < kChannels; ++i) {
      std::memcpy(out.channel(i), channel(i), kBlock_bytes);
    }
    at_bytes_ = (at_bytes_ + kBlock_bytes) % kCapacity_bytes;
    return true;
  }

 private:
  std::byte* channel(std::uint32_t i) { return storage_.data() + i * kCapacity_bytes + at_bytes_; }

  std::vector<std::byte> storage_ = std::vector<std::byte>(kChannels * kCapacity_bytes);
  std::uint32_t at_bytes_ = 0;
};

class SpaRingbufferWay {
 public:
  SpaRingbufferWay() { spa_ringbuffer_init(&ring_); }
  bool carry(Block& in, Block& out) {
    std::uint32_t index = 0;
    spa_ringbuffer_get_write_index(&ring_, &index);
    for (std::uint32_t i = 0; i < kChannels; ++i) {
      spa_ringbuffer_write_data(&ring_, channel(i), kCapacity_bytes, index % kCapacity_bytes,
                                in.channel(i), kBlock_bytes);
    }
    spa_ringbuffer_write_update(&ring_, static_cast<std::int32_t>(index + kBlock_bytes));
    const std::int32_t held = spa_ringbuffer_get_read_index(&ring_, &index);
    for (std::uint32_t i = 0; i < kChannels; ++i) {
      spa_ringbuffer_read_data(&ring_, channel(i), kCapacity_bytes, index % kCapacity_bytes,
                               out.channel(i), kBlock_bytes);
    }
    spa_ringbuffer_read_update(&ring_, static_cast<std::int32_t>(index + kBlock_bytes));
    return held == static_cast<std::int32_t>(kBlock_bytes);
  }

 private:
  std::byte* channel(std::uint32_t i) { return storage_.data() + i * kCapacity_bytes; }

  std::vector<std::byte> storage_ = std::vector<std::byte>(kChannels * kCapacity_bytes);
  spa_ringbuffer ring_{};
};

constexpr int kBlocksPerTurn = 200;
constexpr int kTurnsPerLayout = 25;
constexpr int kLayouts = 200;

// How long a turn of blocks takes, seconds a block.
template <typename Way>
double turn_s(benchmark::State& state, Way& way, Block& in, Block& out) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kBlocksPerTurn; ++i) {
    if (!way.carry(in, out)) state.SkipWithError("a block was refused");
    benchmark::ClobberMemory();
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  return taken.count() / kBlocksPerTurn;
}

struct Times {
  std::vector<double> ring_s;
  std::vector<double> plain_s;
  std::vector<double> spa_s;
};

// Moves what is allocated next to another place, by a multiple of a cache line.
class Displacement {
 public:
  explicit Displacement(std::minstd_rand& random) : space_(64 * (1 + random() % 256)) {}

 private:
  std::vector<std::byte> space_;
};

// The speed of a copy depends on where the memory lies: a single layout shows up to a tenth more or
// less in each run. So there are many, each with the three in turns, so that what else the machine
// does meets them alike.
void measureOneLayout(benchmark::State& state, std::minstd_rand& random, Times& times) {
  Block in;
  const Displacement beforeOut(random);
  Block out;
  const Displacement beforeRing(random);
  RingBufferWay ring;
  const Displacement beforePlain(random);
  MemcpyWay plain;
  const Displacement beforeSpa(random);
  SpaRingbufferWay spa;
  for (int turn = 0; turn < kTurnsPerLayout; ++turn) {
    times.ring_s.push_back(turn_s(state, ring, in, out));
    times.plain_s.push_back(turn_s(state, plain, in, out));
    times.spa_s.push_back(turn_s(state, spa, in, out));
  }
}

void BM_StoreAndFetch512Stereo(benchmark::State& state) {
  std::minstd_rand random;
  Times times;
  for (auto _ : state) {
    measureOneLayout(state, random, times);
    state.SetIterationTime(times.ring_s.back());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * kChannels *
                          kBlock_bytes);
  const double ours_s = bench::median(times.ring_s);
  state.counters["block_ns"] = ours_s * 1e9;
  state.counters["x_memcpy"] = ours_s / bench::median(times.plain_s);
  state.counters["x_spa_ringbuffer"] = ours_s / bench::median(times.spa_s);
}
BENCHMARK(BM_StoreAndFetch512Stereo)->UseManualTime()->Iterations(kLayouts);

}  // namespace

BENCHMARK_MAIN();
