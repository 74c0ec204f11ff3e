#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/m4a/libav_m4a_writer.h"
#include "tests/m4a/memory_sink.h"

namespace linux_host::test {

struct Format {
  std::uint32_t sampleRate_hz = 48000;
  std::uint32_t channels = 2;
  std::uint32_t bitrate_bps = 160000;
};

// Channel c carries a sine of frequency_hz(c), amplitude 0.25, from frame 0 on.
class Tone {
 public:
  explicit Tone(const Format& format) : format_(format), planes_(format.channels) {}

  // The fourth of six and of eight channels takes deep sound only.
  static double frequency_hz(std::uint32_t channel) {
    return channel == 3 ? 100.0 : 400.0 + 150.0 * channel;
  }

  // The next `frames` of every channel; valid until the next call.
  const float* const* next(std::uint32_t frames);

 private:
  const Format format_;
  std::uint64_t position_frames_ = 0;
  std::vector<std::vector<float>> planes_;
  std::vector<const float*> pointers_;
};

// A writer over a file in memory.
struct Recording {
  explicit Recording(const Format& recordedFormat = {}, std::shared_ptr<MemoryFile> into = {});

  // In pieces of a size that never fits the packets. The first error text, empty on success.
  std::string feed(std::uint64_t frames);

  Format format;
  std::shared_ptr<MemoryFile> file;
  Tone tone;
  LibavM4aWriter writer;
  std::string openError;
};

// The bytes of a recording of a tone: after finish(), or as an end of the process leaves it.
[[nodiscard]] std::vector<std::byte> finishedRecording(std::uint64_t frames,
                                                       const Format& format = {});
[[nodiscard]] std::vector<std::byte> interruptedRecording(std::uint64_t frames,
                                                          const Format& format = {});

}  // namespace linux_host::test
