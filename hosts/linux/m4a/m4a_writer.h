#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "hosts/linux/m4a/m4a_sink.h"

namespace linux_host {

// What players show of a recording.
struct M4aLabels {
  std::string title;               // UTF-8; empty: none
  std::uint64_t start_unix_s = 0;  // 0: the moment of open(), and no date for players
};

// Writes one AAC recording as an m4a file that plays whenever the process may end.
//
// While it grows the file holds movie fragments of about a quarter of a second; finish() turns it
// into a plain MP4 with one ordinary index, in a time that depends on the index alone.
//
// Every call on one thread at a time (the drain thread), never on a real-time thread: calls encode,
// allocate and write to the disk.
class M4aWriter {
 public:
  virtual ~M4aWriter() = default;

  // Before open(). The labels stand in the file's head, so an interrupted file has them too.
  virtual void setLabels(M4aLabels labels) = 0;

  // Writes the file's head to `sink`, which must be empty and which the writer owns from now on.
  // Once per writer. Returns an error text, empty on success.
  //
  // Channels 1 to 6 and 8 are recorded as they come; of any other number the first two are. Of 6
  // and 8 the fourth is the low-frequency channel, of which AAC keeps deep sound only. A sample
  // rate that AAC does not know is converted to the nearest lower one it does. `bitrate_bps` counts
  // for all channels together.
  [[nodiscard]] virtual std::string open(std::unique_ptr<M4aSink> sink, std::uint32_t sampleRate_hz,
                                         std::uint32_t channels, std::uint32_t bitrate_bps) = 0;

  // Takes `frames` samples from each of the planes, as many planes as open() was told, full scale
  // 1.0. Values that are not finite count as 0. Returns an error text, empty on success.
  //
  // After an error the file keeps all that was written and plays; the writer takes no more samples
  // and every further call returns the same text.
  [[nodiscard]] virtual std::string write(const float* const* planes, std::uint32_t frames) = 0;

  // Writes what is still under way, turns the file into a plain MP4 and closes it. With no samples
  // at all the file is a valid MP4 of length 0. Also after a failed write(): if there is room by
  // then the file becomes complete, otherwise it stays as it is and plays. Returns an error text
  // if the file has not become a plain MP4, empty on success. Further calls do nothing.
  [[nodiscard]] virtual std::string finish() = 0;
};

// One line of the codec library's messages; any thread.
using M4aLog = void (*)(const char* line);

// The module's one exported function, by its name kM4aFactoryName. Null when `interfaceVersion` is
// not the module's own, so that a module left over from another build is never used. `log` may be
// null and stays in use until the process ends.
inline constexpr const char* kM4aFactoryName = "recordAudioM4aWriter";
inline constexpr std::uint32_t kM4aInterfaceVersion = 2;
using M4aFactoryFunction = M4aWriter* (*)(std::uint32_t interfaceVersion, M4aLog log);

}  // namespace linux_host
