// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/polkit_authorization.h"

#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>

#include "hosts/linux/authorization/system_paths.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::AuthorizationFlags;
using platform::AuthorizationRef;
using platform::OSStatus;

constexpr char kInstallAction[] = "com.vantrel.korvel.install-driver";
constexpr SystemBus::Method kCheckAuthorization = {
    "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
    "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization"};
constexpr std::uint32_t kAllowUserInteraction = 1;

// What an AuthorizationRef points at.
struct Session {
  bool authorized = false;
};

Session* sessionOf(AuthorizationRef authorization) {
  return reinterpret_cast<Session*>(authorization);
}

// In clock ticks since boot; 0 when unknown.
std::uint64_t ownStartTime() {
  std::ifstream file("/proc/self/stat");
  std::string line;
  std::getline(file, line);
  // The program's name, in parentheses, may contain any characters.
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  constexpr int kFieldsBefore = 19;
  std::string skipped;
  for (int i = 0; i < kFieldsBefore; ++i) fields >> skipped;
  std::uint64_t ticks = 0;
  fields >> ticks;
  return ticks;
}

// This process, which is also the one that pkexec finds as its parent.
GVariant* ownSubject() {
  GVariantBuilder details;
  g_variant_builder_init(&details, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&details, "{sv}", "pid",
                        g_variant_new_uint32(static_cast<guint32>(getpid())));
  g_variant_builder_add(&details, "{sv}", "start-time", g_variant_new_uint64(ownStartTime()));
  g_variant_builder_add(&details, "{sv}", "uid",
                        g_variant_new_int32(static_cast<gint32>(getuid())));
  return g_variant_new("(sa{sv})", "unix-process", &details);
}

void onToolEnded(GPid pid, gint status, gpointer) {
  g_spawn_close_pid(pid);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
  const std::string how = WIFEXITED(status) ? "exit code " + std::to_string(WEXITSTATUS(status))
                                            : "signal " + std::to_string(WTERMSIG(status));
  logMessage(LogLevel::kError, "the program started with pkexec ended with " + how);
}

}  // namespace

OSStatus PolkitAuthorization::AuthorizationCreate(AuthorizationFlags,
                                                  AuthorizationRef* outAuthorization) {
  *outAuthorization = nullptr;
  if (access(pkexec_.c_str(), X_OK) != 0) {
    logMessage(LogLevel::kError, "there is no " + pkexec_ + " to get administrator rights with");
    return errAuthorizationInternal;
  }
  if (!bus_.connect()) return errAuthorizationInternal;
  *outAuthorization = reinterpret_cast<AuthorizationRef>(new Session);
  return errAuthorizationSuccess;
}

OSStatus PolkitAuthorization::AuthorizationCopyRights(AuthorizationRef authorization,
                                                      const std::string& right,
                                                      AuthorizationFlags flags) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  if (right != platform::kAuthorizationRightAdmin) return errAuthorizationDenied;
  if (asking_) return errAuthorizationInternal;
  asking_ = true;
  const OSStatus status =
      checkAuthorization((flags & platform::kAuthorizationFlagInteractionAllowed) != 0);
  asking_ = false;
  sessionOf(authorization)->authorized = status == errAuthorizationSuccess;
  return status;
}

OSStatus PolkitAuthorization::checkAuthorization(bool interactionAllowed) {
  GVariantBuilder noDetails;
  g_variant_builder_init(&noDetails, G_VARIANT_TYPE("a{ss}"));
  const SystemBus::Reply reply =
      bus_.call(kCheckAuthorization,
                g_variant_new("(@(sa{sv})sa{ss}us)", ownSubject(), kInstallAction, &noDetails,
                              interactionAllowed ? kAllowUserInteraction : 0U, ""),
                "((bba{ss}))", SystemBus::kNoTimeLimit);
  if (reply.value == nullptr) {
    logMessage(LogLevel::kError, std::string("polkit gives no administrator rights: ") +
                                     reply.error->message +
                                     ". Is the suite's package completely installed?");
    return errAuthorizationInternal;
  }
  gboolean authorized = FALSE;
  gboolean challenge = FALSE;
  GVariant* details = nullptr;
  g_variant_get(reply.value.get(), "((bb@a{ss}))", &authorized, &challenge, &details);
  const VariantPtr ownedDetails(details);
  if (authorized) return errAuthorizationSuccess;
  const char* dismissed = nullptr;
  if (g_variant_lookup(details, "polkit.dismissed", "&s", &dismissed)) {
    return errAuthorizationCanceled;
  }
  if (challenge && !interactionAllowed) return errAuthorizationInteractionNotAllowed;
  if (challenge) {
    logMessage(LogLevel::kError,
               "nothing in this session can ask for an administrator's password; start a polkit "
               "authentication agent");
  }
  return errAuthorizationDenied;
}

OSStatus PolkitAuthorization::AuthorizationExecuteWithPrivileges(
    AuthorizationRef authorization, const std::string& pathToTool, AuthorizationFlags,
    const std::vector<std::string>& arguments) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  if (!sessionOf(authorization)->authorized) return errAuthorizationDenied;
  std::string path = mappedSystemPath(pathToTool);
  if (const std::string refusal = trust_(path); !refusal.empty()) {
    logMessage(LogLevel::kError, "not run with administrator rights: " + refusal);
    return errAuthorizationToolExecuteFailure;
  }
  // Without pkexec's own agent, which would ask on a terminal that nobody sees.
  std::vector<std::string> command = {pkexec_, "--disable-internal-agent", std::move(path)};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(command.size() + 1);
  for (std::string& part : command) pointers.push_back(part.data());
  pointers.push_back(nullptr);
  GPid pid = 0;
  GError* failure = nullptr;
  if (!g_spawn_async("/", pointers.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr,
                     &pid, &failure)) {
    const ErrorPtr error(failure);
    logMessage(LogLevel::kError, std::string("cannot start pkexec: ") + error->message);
    return errAuthorizationToolExecuteFailure;
  }
  g_child_watch_add(pid, onToolEnded, nullptr);
  return errAuthorizationSuccess;
}

OSStatus PolkitAuthorization::AuthorizationFree(AuthorizationRef authorization) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  delete sessionOf(authorization);
  return errAuthorizationSuccess;
}

}  // namespace linux_host
