// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "platform/audio_types.h"

// Events between programs: just what asking the system process for a restart takes.

namespace platform {

inline constexpr std::uint32_t typeNull = fourCharCode("null");
inline constexpr std::uint32_t typeProcessSerialNumber = fourCharCode("psn ");
inline constexpr std::uint32_t kCoreEventClass = fourCharCode("aevt");
inline constexpr std::uint32_t kAERestart = fourCharCode("rest");
inline constexpr std::uint32_t kSystemProcess = 1;
inline constexpr std::int16_t kAutoGenerateReturnID = -1;
inline constexpr std::int32_t kAnyTransactionID = 0;
inline constexpr std::int32_t kAENoReply = 1;
inline constexpr std::int16_t kAENormalPriority = 0;
inline constexpr std::int64_t kAEDefaultTimeout = -1;

struct ProcessSerialNumber {
  std::uint32_t highLongOfPSN;
  std::uint32_t lowLongOfPSN;
};
static_assert(sizeof(ProcessSerialNumber) == 8);

// A typed handle; the null descriptor has typeNull and a null handle.
struct AEDesc {
  std::uint32_t descriptorType = typeNull;
  void* dataHandle = nullptr;
};

// Main thread. A created descriptor is the caller's until AEDisposeDesc. A call that returns
// anything but noErr has created and sent nothing; its descriptor is null. The system process knows
// kAERestart and refuses every other event.
class AppleEvents {
 public:
  virtual ~AppleEvents() = default;
  // Copies the data.
  virtual OSStatus AECreateDesc(std::uint32_t typeCode, const void* data, std::size_t size_bytes,
                                AEDesc* result) = 0;
  virtual OSStatus AECreateAppleEvent(std::uint32_t eventClass, std::uint32_t eventID,
                                      const AEDesc* target, std::int16_t returnID,
                                      std::int32_t transactionID, AEDesc* result) = 0;
  // `reply` receives the reply, or the null descriptor with kAENoReply. A tick is a sixtieth of a
  // second; kAEDefaultTimeout is the host's own limit.
  virtual OSStatus AESend(const AEDesc* event, AEDesc* reply, std::int32_t sendMode,
                          std::int16_t sendPriority, std::int64_t timeout_ticks) = 0;
  // Disposing of the null descriptor does nothing. Leaves *descriptor the null descriptor.
  virtual OSStatus AEDisposeDesc(AEDesc* descriptor) = 0;
};

}  // namespace platform
