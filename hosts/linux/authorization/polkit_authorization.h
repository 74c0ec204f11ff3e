// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "hosts/linux/authorization/system_bus.h"
#include "hosts/linux/authorization/trust_check.h"
#include "platform/authorization.h"

namespace linux_host {

inline constexpr platform::OSStatus errAuthorizationSuccess = 0;
inline constexpr platform::OSStatus errAuthorizationInvalidRef = -60002;
inline constexpr platform::OSStatus errAuthorizationDenied = -60005;
inline constexpr platform::OSStatus errAuthorizationCanceled = -60006;
inline constexpr platform::OSStatus errAuthorizationInteractionNotAllowed = -60007;
inline constexpr platform::OSStatus errAuthorizationInternal = -60008;
inline constexpr platform::OSStatus errAuthorizationToolExecuteFailure = -60031;

// Administrator rights through polkit. The administrator right is one action of the suite. Programs
// are run with pkexec, which asks polkit about the same action; by then that has already been
// granted.
class PolkitAuthorization : public platform::Authorization {
 public:
  // `bus` outlives this object.
  explicit PolkitAuthorization(SystemBus& bus, TrustCheck trust = refusalBySystem,
                               std::string pkexec = "/usr/bin/pkexec")
      : bus_(bus), trust_(std::move(trust)), pkexec_(std::move(pkexec)) {}

  // Returns errAuthorizationInternal if there is no system bus or no pkexec.
  platform::OSStatus AuthorizationCreate(platform::AuthorizationFlags flags,
                                         platform::AuthorizationRef* outAuthorization) override;
  // Runs the main loop while polkit's agent asks for the password; a second call meanwhile returns
  // errAuthorizationInternal.
  platform::OSStatus AuthorizationCopyRights(platform::AuthorizationRef authorization,
                                             const std::string& right,
                                             platform::AuthorizationFlags flags) override;
  // Refuses, with a message in the log, a program that somebody other than root could have written.
  platform::OSStatus AuthorizationExecuteWithPrivileges(
      platform::AuthorizationRef authorization, const std::string& pathToTool,
      platform::AuthorizationFlags flags, const std::vector<std::string>& arguments) override;
  platform::OSStatus AuthorizationFree(platform::AuthorizationRef authorization) override;

 private:
  platform::OSStatus checkAuthorization(bool interactionAllowed);

  SystemBus& bus_;
  TrustCheck trust_;
  std::string pkexec_;
  bool asking_ = false;
};

}  // namespace linux_host
