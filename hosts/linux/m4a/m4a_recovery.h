// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "hosts/linux/m4a/m4a_index.h"
#include "hosts/linux/m4a/m4a_sink.h"

// Completes recordings whose program ended before it could. Any thread, one at a time for each
// file.

namespace linux_host {

// A recording that can be read as well as written.
class M4aRepairableFile : public M4aSink {
 public:
  // Copies as many bytes from `offset_bytes` on as exist and fit, and returns their number.
  virtual std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) = 0;
};

struct M4aRecovery {
  enum class Outcome {
    completed,        // it was interrupted and is now a plain MP4
    alreadyComplete,  // nothing to do, nothing changed
    notARecording,    // not written by this program's m4a writer; nothing changed
  };
  Outcome outcome = Outcome::notARecording;
  std::uint64_t frames = 0;  // recorded sound in the completed file
  std::uint32_t sampleRate_hz = 0;
};

// Finds every complete AAC packet in the file, cuts off the torn end and adds an ordinary index.
// The file may contain anything: damaged stretches are skipped and the packets after them kept. Can
// be interrupted at any moment and started again. After a failure, what played before still plays.
Expected<M4aRecovery> recoverInterruptedM4a(M4aRepairableFile& file);

// What was found in an interrupted file.
struct M4aFindings {
  M4aTrack track;
  M4aPacketIndex packets;
  std::uint64_t end_bytes = 0;  // of the last packet or box; the rest is useless
  // The header of the last mdat if it claims to extend past the end of the file; else null.
  std::optional<std::uint64_t> tornMedia_offset_bytes;
};

// Only reads. Null when the file was not written by this program's m4a writer.
[[nodiscard]] std::optional<M4aFindings> findM4aPackets(M4aRepairableFile& file);

}  // namespace linux_host
