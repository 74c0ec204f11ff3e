// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/m4a/libav_m4a_writer.h"
#include "tests/m4a/memory_sink.h"
#include "tests/m4a/tone.h"

namespace linux_host::test {

// A writer over a file in memory.
struct Recording {
  explicit Recording(const Format& recordedFormat = {}, std::shared_ptr<MemoryFile> into = {},
                     const M4aLabels& labels = {});

  // Writes in pieces of a size that never matches the packets. Returns the first error text, empty
  // on success.
  std::string feed(std::uint64_t frames);

  Format format;
  std::shared_ptr<MemoryFile> file;
  Tone tone;
  LibavM4aWriter writer;
  std::string openError;
};

// The bytes of a recording of a tone: after finish(), or as left by a process that ends.
[[nodiscard]] std::vector<std::byte> finishedRecording(std::uint64_t frames,
                                                       const Format& format = {});
[[nodiscard]] std::vector<std::byte> interruptedRecording(std::uint64_t frames,
                                                          const Format& format = {});

}  // namespace linux_host::test
