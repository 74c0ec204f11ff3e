// SPDX-License-Identifier: MIT
// Replacements of C library functions. Linked into the program under test, they are found first by
// it and by every shared library that it loads.

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>

#include <cstdlib>

#include "tests/support/realtime_trap.h"
#include "tests/support/realtime_trap_counts.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             std::size_t),
                                                         void (*free_hook)(const volatile void*));

namespace realtime_trap {
namespace {

void install() {
  const int installed = __sanitizer_install_malloc_and_free_hooks(
      [](const volatile void*, std::size_t) { note(detail::kMalloc); },
      [](const volatile void* memory) {
        if (memory != nullptr) note(detail::kFree);
      });
  if (installed == 0) std::abort();
}

[[maybe_unused]] const bool installedBeforeMain = (install(), true);

}  // namespace

bool watchesLocksAndSystemCalls() {
  return false;
}

}  // namespace realtime_trap

#else

namespace realtime_trap {
bool watchesLocksAndSystemCalls() {
  return true;
}
}  // namespace realtime_trap

#define RA_INTERPOSED extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

using realtime_trap::detail::Call;
using realtime_trap::detail::note;

// The next function of that name after this program's own.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

RA_INTERPOSED void* malloc(std::size_t size) {
  note(Call::kMalloc);
  return __libc_malloc(size);
}
RA_INTERPOSED void* calloc(std::size_t count, std::size_t size) {
  note(Call::kMalloc);
  return __libc_calloc(count, size);
}
RA_INTERPOSED void* realloc(void* memory, std::size_t size) {
  note(Call::kMalloc);
  return __libc_realloc(memory, size);
}
RA_INTERPOSED void* memalign(std::size_t alignment, std::size_t size) {
  note(Call::kMalloc);
  return __libc_memalign(alignment, size);
}
RA_INTERPOSED void* aligned_alloc(std::size_t alignment, std::size_t size) {
  note(Call::kMalloc);
  return __libc_memalign(alignment, size);
}
RA_INTERPOSED int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
  note(Call::kMalloc);
  *result = __libc_memalign(alignment, size);
  return *result == nullptr && size > 0 ? 12 /* ENOMEM */ : 0;
}
RA_INTERPOSED void free(void* memory) {
  if (memory != nullptr) note(Call::kFree);
  __libc_free(memory);
}

RA_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) {
  static auto* const real = next<int(pthread_mutex_t*)>("pthread_mutex_lock");
  note(Call::kMutexLock);
  return real(mutex);
}
RA_INTERPOSED int pthread_mutex_trylock(pthread_mutex_t* mutex) {
  static auto* const real = next<int(pthread_mutex_t*)>("pthread_mutex_trylock");
  note(Call::kMutexTryLock);
  return real(mutex);
}
RA_INTERPOSED int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  static auto* const real = next<int(pthread_mutex_t*)>("pthread_mutex_unlock");
  note(Call::kMutexUnlock);
  return real(mutex);
}
RA_INTERPOSED int pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
  static auto* const real = next<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
  note(Call::kReadWriteLock);
  return real(lock);
}
RA_INTERPOSED int pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
  static auto* const real = next<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
  note(Call::kReadWriteLock);
  return real(lock);
}
RA_INTERPOSED int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  static auto* const real = next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
  note(Call::kConditionWait);
  return real(condition, mutex);
}
RA_INTERPOSED int pthread_cond_signal(pthread_cond_t* condition) {
  static auto* const real = next<int(pthread_cond_t*)>("pthread_cond_signal");
  note(Call::kConditionSignal);
  return real(condition);
}
RA_INTERPOSED int pthread_cond_broadcast(pthread_cond_t* condition) {
  static auto* const real = next<int(pthread_cond_t*)>("pthread_cond_broadcast");
  note(Call::kConditionSignal);
  return real(condition);
}
RA_INTERPOSED int sem_wait(sem_t* semaphore) {
  static auto* const real = next<int(sem_t*)>("sem_wait");
  note(Call::kSemaphore);
  return real(semaphore);
}
RA_INTERPOSED int sem_post(sem_t* semaphore) {
  static auto* const real = next<int(sem_t*)>("sem_post");
  note(Call::kSemaphore);
  return real(semaphore);
}

#endif
