// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/m4a/aac_channels.h"
#include "hosts/linux/m4a/m4a_sink.h"

namespace linux_host {

// What players show about a recording.
struct M4aLabels {
  std::string title;               // UTF-8; empty: none
  std::uint64_t start_unix_s = 0;  // 0: the moment of open(), and no date for players
};

// What comes in, and what is made of it.
struct M4aFormat {
  std::uint32_t sampleRate_hz =
      0;  // a rate that AAC does not support is converted to the nearest one
  std::vector<Speaker> speakers;  // of each plane; aacChannelsFor() maps them to the file
  std::uint32_t bitrate_bps = 0;  // for all channels together
};

// Writes one AAC recording as an m4a file that plays at whatever moment the process ends.
//
// While it grows the file contains movie fragments of about a quarter of a second. finish() turns
// it into a plain MP4 with one ordinary index, in a time that depends only on the index.
//
// Call on one thread at a time (the drain thread), never on a real-time thread: calls encode,
// allocate and write to the disk.
class M4aWriter {
 public:
  virtual ~M4aWriter() = default;

  // Call before open(). The labels are in the file's head, so an interrupted file has them, too.
  virtual void setLabels(M4aLabels labels) = 0;

  // Writes the file's head to `sink`, which must be empty and which the writer owns from now on.
  // Once per writer.
  virtual Status open(std::unique_ptr<M4aSink> sink, const M4aFormat& format) = 0;

  // Takes `frames` samples from each plane; there are as many planes as speakers. Full scale is
  // 1.0. Values that are not finite count as 0.
  //
  // After a failure the file keeps everything that was written and plays; the writer takes no more
  // samples, and every further call fails with the same text.
  virtual Status write(const float* const* planes, std::uint32_t frames) = 0;

  // Writes the rest, turns the file into a plain MP4 and releases the sink. Without any samples the
  // file is a valid MP4 of length 0. Also call it after a failed write(): if there is room by then
  // the file becomes complete, otherwise it stays as it is and plays. Fails if the file has not
  // become a plain MP4. Further calls do nothing.
  virtual Status finish() = 0;
};

// One line of the codec library's messages; any thread.
using M4aLog = void (*)(const char* line);

// The module's only exported function, under the name kM4aFactoryName. Null when `interfaceVersion`
// is not the module's own, so that a module of another build is never used. `log` may be null and
// stays in use until the process ends.
inline constexpr const char* kM4aFactoryName = "recordAudioM4aWriter";
inline constexpr std::uint32_t kM4aInterfaceVersion = 4;
using M4aFactoryFunction = M4aWriter* (*)(std::uint32_t interfaceVersion, M4aLog log);

}  // namespace linux_host
