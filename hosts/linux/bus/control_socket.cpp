// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/control_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "hosts/linux/base/small_files.h"

namespace linux_host {
namespace {

constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kOthers = 0077;
constexpr std::chrono::milliseconds kRetry{20};

std::string whyNotSafe(const std::string& folder, bool mayBeOpen) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return errorText("use", folder, errno);
  if (!S_ISDIR(status.st_mode)) return errorText("use", folder, ENOTDIR);
  if (status.st_uid != geteuid()) return folder + " belongs to another user. Remove it.";
  if (!mayBeOpen && (status.st_mode & kOthers) != 0) {
    return folder + " is open to other users. Set its mode to 0700.";
  }
  return {};
}

}  // namespace

Expected<std::string> ControlSocket::safeFolder(
    const std::function<std::string()>& temporaryDirectory) {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime == '/' && whyNotSafe(runtime, true).empty()) {
    return runtime;
  }
  std::string folder = temporaryDirectory() + "/record-audio-" + std::to_string(geteuid());
  if (mkdir(folder.c_str(), kPrivateFolder) != 0 && errno != EEXIST) {
    return Unexpected(errorText("create the folder", folder, errno));
  }
  if (std::string why = whyNotSafe(folder, false); !why.empty()) return Unexpected(std::move(why));
  return folder;
}

ControlSocket::ControlSocket(const std::string& folder)
    : socket_(folder + "/" + kBusName + ".sock"), lockFile_(folder + "/" + kBusName + ".lock") {}

ControlSocket::~ControlSocket() {
  if (server_ != nullptr) {
    g_dbus_server_stop(server_.get());
    unlink(socket_.c_str());
  }
}

Expected<bool> ControlSocket::lock() {
  mainThread_.assertHeld();
  loopback::UniqueFd fd(
      open(lockFile_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivateFile));
  if (!fd.valid()) return Unexpected(errorText("lock", lockFile_, errno));
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return false;
    return Unexpected(errorText("lock", lockFile_, errno));
  }
  lockFd_ = std::move(fd);
  return true;
}

bool ControlSocket::isHeldByOther() const {
  if (lockFd_.valid()) return false;
  const loopback::UniqueFd fd(open(lockFile_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd.valid()) return false;
  // Shared, so that two processes that only look do not take each other for the holder.
  return flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::string ControlSocket::address() const {
  const TextPtr escaped(g_dbus_address_escape_value(socket_.c_str()));
  return std::string("unix:path=") + escaped.get();
}

Status ControlSocket::listen(ToolObject& object) {
  mainThread_.assertHeld();
  if (socket_.size() >= sizeof(sockaddr_un::sun_path)) {
    return Unexpected("the path " + socket_ +
                      " is too long. Set XDG_RUNTIME_DIR to a shorter one.");
  }
  // A killed instance may have left its socket; the lock proves that it is gone.
  unlink(socket_.c_str());
  const TextPtr guid(g_dbus_generate_guid());
  GError* failure = nullptr;
  server_.reset(g_dbus_server_new_sync(address().c_str(),
                                       G_DBUS_SERVER_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER,
                                       guid.get(), nullptr, nullptr, &failure));
  const ErrorPtr error(failure);
  if (error != nullptr) return Unexpected(error->message);
  // The umask may leave it open to others; until the chmod, the server's same-user check guards it.
  chmod(socket_.c_str(), kPrivateFile);
  g_signal_connect(server_.get(), "new-connection", G_CALLBACK(&ControlSocket::onConnection),
                   &object);
  g_dbus_server_start(server_.get());
  return {};
}

gboolean ControlSocket::onConnection(GDBusServer*, GDBusConnection* connection, gpointer object) {
  return static_cast<ToolObject*>(object)->exportOn(connection) ? TRUE : FALSE;
}

Expected<ConnectionPtr> ControlSocket::connect(int timeout_ms) const {
  mainThread_.assertHeld();
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    auto connection =
        connectTo(address(), false, static_cast<int>(std::max<long>(left.count(), 1)));
    // The holder of the lock may not listen yet. Without a holder, nothing will ever listen.
    if (connection || left.count() <= 0 || !isHeldByOther()) return connection;
    std::this_thread::sleep_for(kRetry);
  }
}

}  // namespace linux_host
