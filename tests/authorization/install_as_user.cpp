// SPDX-License-Identifier: MIT
// Installs the driver as the preferences do: asks polkit for administrator rights and runs the
// installer with them. For scripts/try-password-dialog. Prints each status; fails when one is not
// 0.

#include <glib.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "hosts/linux/authorization/polkit_authorization.h"

namespace {

bool succeeded(const char* step, platform::OSStatus status) {
  std::printf("%s: %d\n", step, static_cast<int>(status));
  std::fflush(stdout);
  return status == platform::noErr;
}

bool hasChildren() {
  pid_t child = 0;
  const std::string self = std::to_string(getpid());
  return static_cast<bool>(std::ifstream("/proc/" + self + "/task/" + self + "/children") >> child);
}

}  // namespace

// The argument: the installer.
int main(int argc, char** argv) {
  if (argc != 2) return EXIT_FAILURE;
  linux_host::SystemBus bus;
  linux_host::PolkitAuthorization authorization(bus);
  platform::AuthorizationRef reference = nullptr;
  if (!succeeded("create", authorization.AuthorizationCreate(0, &reference))) return EXIT_FAILURE;
  constexpr platform::AuthorizationFlags kFlags = platform::kAuthorizationFlagInteractionAllowed |
                                                  platform::kAuthorizationFlagExtendRights |
                                                  platform::kAuthorizationFlagPreAuthorize;
  const bool isDone =
      succeeded("rights", authorization.AuthorizationCopyRights(
                              reference, platform::kAuthorizationRightAdmin, kFlags)) &&
      succeeded("execution",
                authorization.AuthorizationExecuteWithPrivileges(reference, argv[1], 0, {}));
  authorization.AuthorizationFree(reference);
  // pkexec asks polkit about its parent process, which must still be alive.
  while (isDone && hasChildren()) g_main_context_iteration(nullptr, TRUE);
  return isDone ? EXIT_SUCCESS : EXIT_FAILURE;
}
