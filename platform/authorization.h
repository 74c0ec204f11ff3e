// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/audio_types.h"

namespace platform {

using AuthorizationRef = struct OpaqueAuthorization*;
using AuthorizationFlags = std::uint32_t;

inline constexpr AuthorizationFlags kAuthorizationFlagDefaults = 0;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1U << 0;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 1U << 1;
inline constexpr AuthorizationFlags kAuthorizationFlagPreAuthorize = 1U << 4;

inline constexpr const char* kAuthorizationRightAdmin = "system.privilege.admin";

// Administrator rights for this process and what it starts with them. Main thread; CopyRights may
// wait for the user.
class Authorization {
 public:
  virtual ~Authorization() = default;
  // With no rights and the empty environment. On an error *outAuthorization is null.
  virtual OSStatus AuthorizationCreate(AuthorizationFlags flags,
                                       AuthorizationRef* outAuthorization) = 0;
  // One right without a value; only kAuthorizationRightAdmin is granted. Any non-zero status is a
  // refusal, the user's "cancel" included. The last answer counts.
  virtual OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const std::string& right,
                                           AuthorizationFlags flags) = 0;
  // Starts the program with the rights copied before, and does not wait for it. Any non-zero
  // status: it was not started. Free for the host: which programs it trusts.
  virtual OSStatus AuthorizationExecuteWithPrivileges(
      AuthorizationRef authorization, const std::string& pathToTool, AuthorizationFlags flags,
      const std::vector<std::string>& arguments) = 0;
  // Gives the rights back; the authorization must not be used afterwards.
  virtual OSStatus AuthorizationFree(AuthorizationRef authorization) = 0;
};

}  // namespace platform
