// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Preloaded into a program (LD_PRELOAD), it counts the threads and loops that the program creates,
// and makes one fail as at a system limit:
//   RA_CREATION_FAILS   the number of the one that fails, from 1; "3+": it and all that follow
//   RA_CREATION_LOG     a file that gets a line for each: its number, what it is, who makes it
// GLib's own do not count: it ends the program when they fail.

namespace {

using MakeThread = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
using MakeDescriptor = int (*)(int);
using MakeEvent = int (*)(unsigned, int);

std::atomic<int> creations{0};

template <typename Function>
Function original(const char* name) {
  Function found = nullptr;
  void* symbol = dlsym(RTLD_NEXT, name);
  std::memcpy(&found, &symbol, sizeof found);
  return found;
}

const char* objectOf(void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) return "?";
  const char* slash = std::strrchr(info.dli_fname, '/');
  return slash == nullptr ? info.dli_fname : slash + 1;
}

void note(int number, const char* kind, const char* object) {
  const char* path = std::getenv("RA_CREATION_LOG");
  if (path == nullptr) return;
  char line[200];
  const int length = std::snprintf(line, sizeof line, "%d %s %s\n", number, kind, object);
  const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return;
  if (write(fd, line, static_cast<std::size_t>(length)) < 0) std::abort();
  close(fd);
}

bool fails(const char* kind, void* caller) {
  const char* object = objectOf(caller);
  if (std::strncmp(object, "libglib", 7) == 0) return false;
  const int number = ++creations;
  note(number, kind, object);
  const char* wanted = std::getenv("RA_CREATION_FAILS");
  if (wanted == nullptr) return false;
  char* rest = nullptr;
  const long first = std::strtol(wanted, &rest, 10);
  return number == first || (*rest == '+' && number > first);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
  static const auto make = original<MakeThread>("pthread_create");
  if (fails("thread", __builtin_return_address(0))) return EAGAIN;
  return make(thread, attributes, start, argument);
}

int epoll_create1(int flags) noexcept {
  static const auto make = original<MakeDescriptor>("epoll_create1");
  if (!fails("loop", __builtin_return_address(0))) return make(flags);
  errno = EMFILE;
  return -1;
}

int eventfd(unsigned value, int flags) noexcept {
  static const auto make = original<MakeEvent>("eventfd");
  if (!fails("event", __builtin_return_address(0))) return make(value, flags);
  errno = EMFILE;
  return -1;
}

}  // extern "C"
#pragma GCC visibility pop
