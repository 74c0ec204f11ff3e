// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "hosts/linux/m4a/m4a_index.h"
#include "hosts/linux/m4a/m4a_sink.h"

// Completes recordings whose program ended before it could. Any thread, one at a time per file.

namespace linux_host {

// A recording that can be read as well as written.
class M4aRepairableFile : public M4aSink {
 public:
  // Copies as many bytes from `offset_bytes` on as there are and fit, and returns their number.
  virtual std::size_t readAt(std::uint64_t offset_bytes, std::span<std::byte> to) = 0;
};

struct M4aRecovery {
  enum class Outcome {
    completed,        // it was interrupted and is a plain MP4 now
    alreadyComplete,  // nothing to do, nothing changed
    notARecording,    // not begun by this program's m4a writer; nothing changed
    failed            // `error` says why; whatever played before plays still
  };
  Outcome outcome = Outcome::notARecording;
  std::string error;
  std::uint64_t frames = 0;  // recorded sound in the completed file
  std::uint32_t sampleRate_hz = 0;
};

// Finds every whole packet of AAC in the file, cuts what is torn at its end and gives it an
// ordinary index. The file may hold anything at all: damaged stretches are passed over and the
// packets behind them kept. Can be interrupted at any moment and begun again.
[[nodiscard]] M4aRecovery recoverInterruptedM4a(M4aRepairableFile& file);

// What was found in an interrupted file.
struct M4aFindings {
  M4aTrack track;
  M4aPacketIndex packets;
  std::uint64_t end_bytes = 0;  // of the last packet or box; what follows is of no use
  // The header of the last mdat where it claims more than the file holds; null otherwise.
  std::optional<std::uint64_t> tornMedia_offset_bytes;
};

// Reads only. Null when the file was not begun by this program's m4a writer.
[[nodiscard]] std::optional<M4aFindings> findM4aPackets(M4aRepairableFile& file);

}  // namespace linux_host
