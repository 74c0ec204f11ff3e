// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace loopback {

// Writes one line to stderr, which the service manager logs together with the daemon's.
inline void report(const std::string& what) {
  std::fprintf(stderr, "loopback-driver: %s\n", what.c_str());
}

// The same with the reason from errno.
inline void reportErrno(const std::string& what) {
  report(what + ": " + std::strerror(errno));
}

}  // namespace loopback
