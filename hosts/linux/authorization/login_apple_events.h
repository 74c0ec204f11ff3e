// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "hosts/linux/authorization/system_bus.h"
#include "platform/apple_events.h"

namespace linux_host {

inline constexpr platform::OSStatus paramErr = -50;
inline constexpr platform::OSStatus userCanceledErr = -128;
inline constexpr platform::OSStatus procNotFound = -600;
inline constexpr platform::OSStatus errAEWrongDataType = -1703;
inline constexpr platform::OSStatus errAENotAEDesc = -1704;
inline constexpr platform::OSStatus errAEEventNotHandled = -1708;
inline constexpr platform::OSStatus errAETimeout = -1712;

// Events to the system process. login1 handles one of them: the request to restart.
class LoginAppleEvents : public platform::AppleEvents {
 public:
  // `bus` outlives this object.
  explicit LoginAppleEvents(SystemBus& bus) : bus_(bus) {}

  platform::OSStatus AECreateDesc(std::uint32_t typeCode, const void* data, std::size_t size_bytes,
                                  platform::AEDesc* result) override;
  platform::OSStatus AECreateAppleEvent(std::uint32_t eventClass, std::uint32_t eventID,
                                        const platform::AEDesc* target, std::int16_t returnID,
                                        std::int32_t transactionID,
                                        platform::AEDesc* result) override;
  // Runs the main loop until login1 has answered, which may ask the user for a password. Returns
  // procNotFound when the target is not the system process or there is no login1, userCanceledErr
  // when the user or the policy refused, errAETimeout when login1 did not answer, else
  // errAEEventNotHandled; the log says more.
  platform::OSStatus AESend(const platform::AEDesc* event, platform::AEDesc* reply,
                            std::int32_t sendMode, std::int16_t sendPriority,
                            std::int64_t timeout_ticks) override;
  platform::OSStatus AEDisposeDesc(platform::AEDesc* descriptor) override;

 private:
  platform::OSStatus restart(std::int64_t timeout_ticks);
  SystemBus& bus_;
};

}  // namespace linux_host
