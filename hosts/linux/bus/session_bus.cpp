// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/session_bus.h"

#include <sys/stat.h>

#include <cstdlib>

namespace linux_host {

SessionBus::SessionBus() {
  const std::string where = address();
  if (where.empty()) {
    error_ = "the environment names none";
    return;
  }
  auto connection = connectTo(where, true, kBusTimeout_ms);
  if (connection) {
    connection_ = *std::move(connection);
  } else {
    error_ = connection.error();
  }
}

std::string SessionBus::address() {
  const char* named = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (named != nullptr && *named != '\0') return named;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime != '/') return {};
  const std::string path = std::string(runtime) + "/bus";
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return {};
  const TextPtr escaped(g_dbus_address_escape_value(path.c_str()));
  return std::string("unix:path=") + escaped.get();
}

}  // namespace linux_host
