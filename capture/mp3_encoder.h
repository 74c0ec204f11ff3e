// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "capture/encoder_backlog.h"
#include "platform/foundation.h"

struct lame_global_struct;

namespace record_audio {

// LAME's state. The last owner closes it.
using LameHandle = std::shared_ptr<lame_global_struct>;

// What an MP3 is encoded with.
struct Mp3Parameters {
  int channels;       // of the input; LAME takes 1 or 2 and treats all others as 2
  int sampleRate_hz;  // of the input
  int bitrate;        // kbit/s; 0 means 320
  int quality;        // LAME's algorithm quality, 0 best to 9 fastest; 0 means 2
};

// Null when memory runs out.
LameHandle createLame(const Mp3Parameters& parameters);

// The encoder and the file of one recorder's MP3 recordings. Everything but `stopped` and `backlog`
// belongs to the encode queue, whose work items own it together with the recorder.
class Mp3Encoder {
 public:
  // Called on the encode queue, with an error text, when a recording's first write fails.
  using WriteError = std::function<void(const std::string& error)>;

  // The most samples of one work item, because the size of its output must fit into LAME's int.
  static constexpr std::int64_t kMaxSamples = 1'000'000'000;

  // Begins a new recording, after finishing the last one. `newLame` is null when the recording
  // could not be set up; its file then stays open until the next one.
  void begin(LameHandle newLame, std::shared_ptr<platform::FileHandle> newHandle,
             WriteError onWriteError);
  // Encodes the words, floats or integers, as both channels and appends the result to the file.
  // Drops them if `stopped` is set or a write has failed. At most kMaxSamples.
  void encode(std::span<const std::uint32_t> samples, bool areFloat);
  // Writes what the encoder still holds and closes the file and the encoder. Idempotent.
  void finish();

  // Set by the recorder at a stop, cleared at a start. It alone decides whether samples are taken.
  // The queues order everything else, so relaxed order is enough.
  std::atomic<bool> stopped{false};
  // Of the encode queue. The recorder adds what it queues; encode() takes it.
  EncoderBacklog backlog;

 private:
  // Where the recording stands; on the encode queue.
  //   kClosed    there is nothing to encode into               -> kEncoding
  //   kEncoding  samples are encoded and written               -> kDropping, kFailed, kClosed
  //   kDropping  a stop has dropped samples; later ones
  //              would leave a gap, so they are dropped, too   -> kFailed, kClosed
  //   kFailed    a write failed; nothing more is written       -> kClosed
  enum class Phase { kClosed, kEncoding, kDropping, kFailed };

  // The only function that changes the phase.
  void enter(Phase next);
  void encodeWords(std::span<const std::uint32_t> samples, bool areFloat);
  void write(std::span<const std::byte> data);

  // `lame`, `handle` and `stopped` have the suite's names. Those that end in an underscore are this
  // tool's own.
  LameHandle lame;
  std::shared_ptr<platform::FileHandle> handle;
  WriteError onWriteError_;
  Phase phase_ = Phase::kClosed;
};

}  // namespace record_audio
