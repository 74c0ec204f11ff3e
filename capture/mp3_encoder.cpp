// SPDX-License-Identifier: MIT
#include "capture/mp3_encoder.h"

#include <lame/lame.h>

#include <array>
#include <cassert>
#include <utility>

namespace record_audio {
namespace {

constexpr int kDefaultBitrate = 320;  // kbit/s
constexpr int kDefaultQuality = 2;

// What LAME may hold back. Every encoding call has room for it, besides what its samples yield.
constexpr std::size_t kFlush_bytes = 7200;

void closeLame(lame_global_struct* lame) {
  if (lame != nullptr) lame_close(lame);
}

}  // namespace

LameHandle createLame(const Mp3Parameters& parameters) {
  LameHandle lame(lame_init(), closeLame);
  if (!lame) return nullptr;
  lame_set_num_channels(lame.get(), parameters.channels);
  lame_set_in_samplerate(lame.get(), parameters.sampleRate_hz);
  lame_set_brate(lame.get(), parameters.bitrate != 0 ? parameters.bitrate : kDefaultBitrate);
  lame_set_quality(lame.get(), parameters.quality != 0 ? parameters.quality : kDefaultQuality);
  lame_set_mode(lame.get(), JOINT_STEREO);
  lame_init_params(lame.get());
  return lame;
}

void Mp3Encoder::begin(LameHandle newLame, std::shared_ptr<platform::FileHandle> newHandle,
                       WriteError onWriteError) {
  finish();
  lame = std::move(newLame);
  handle = std::move(newHandle);
  onWriteError_ = std::move(onWriteError);
  if (lame) enter(Phase::kEncoding);
}

void Mp3Encoder::enter(Phase next) {
  assert(next == Phase::kClosed || (next == Phase::kEncoding && phase_ == Phase::kClosed) ||
         (next == Phase::kDropping && phase_ == Phase::kEncoding) ||
         (next == Phase::kFailed && (phase_ == Phase::kEncoding || phase_ == Phase::kDropping)));
  phase_ = next;
}

void Mp3Encoder::encode(std::span<const std::uint32_t> samples, bool areFloat) {
  const auto count = static_cast<std::int64_t>(samples.size());
  const bool isStopped = stopped.load(std::memory_order_relaxed);
  if (isStopped && phase_ == Phase::kEncoding) enter(Phase::kDropping);
  if (isStopped || phase_ == Phase::kDropping) {
    backlog.drop(count);
  } else if (phase_ == Phase::kEncoding) {
    encodeWords(samples, areFloat);
  }
  backlog.take(count);
}

void Mp3Encoder::encodeWords(std::span<const std::uint32_t> samples, bool areFloat) {
  const std::size_t room_bytes = 2 * samples.size() + kFlush_bytes;
  const auto output = std::make_unique_for_overwrite<unsigned char[]>(room_bytes);
  const int count = static_cast<int>(samples.size());
  const int room = static_cast<int>(room_bytes);
  const auto* floats = reinterpret_cast<const float*>(samples.data());
  const auto* integers = reinterpret_cast<const int*>(samples.data());
  const int written_bytes =
      areFloat
          ? lame_encode_buffer_ieee_float(lame.get(), floats, floats, count, output.get(), room)
          : lame_encode_buffer_int(lame.get(), integers, integers, count, output.get(), room);
  if (written_bytes > 0) {
    write(std::as_bytes(std::span(output.get(), static_cast<std::size_t>(written_bytes))));
  }
}

void Mp3Encoder::finish() {
  if (phase_ == Phase::kClosed) return;
  if (phase_ != Phase::kFailed) {
    std::array<unsigned char, kFlush_bytes> output;
    const int written_bytes =
        lame_encode_flush(lame.get(), output.data(), static_cast<int>(output.size()));
    if (written_bytes > 0) {
      write(std::as_bytes(std::span(output).first(static_cast<std::size_t>(written_bytes))));
    }
  }
  handle->closeFile();
  handle.reset();
  lame.reset();
  onWriteError_ = nullptr;
  enter(Phase::kClosed);
}

void Mp3Encoder::write(std::span<const std::byte> data) {
  const std::string error = handle->writeData(data);
  if (error.empty()) return;
  enter(Phase::kFailed);
  if (onWriteError_) onWriteError_(error);
}

}  // namespace record_audio
