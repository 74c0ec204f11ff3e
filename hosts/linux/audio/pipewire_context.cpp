// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_context.h"

#include <pipewire/pipewire.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "platform/mutex.h"

namespace linux_host {
namespace {

platform::Mutex& setUpMutex() {
  static platform::Mutex mutex;
  return mutex;
}

// A data thread is ended by a call into its loop, and since PipeWire 1.4 the first such call needs
// a descriptor. So the first call is made here. If it failed later, destroying the context would
// wait for the thread forever.
bool canEndDataThread(pw_data_loop* dataLoop) {
  const auto nothing = [](spa_loop*, bool, std::uint32_t, const void*, std::size_t, void*) {
    return 0;
  };
  const int result = pw_data_loop_invoke(dataLoop, nothing, 0, nullptr, 0, false, nullptr);
  if (result < 0) errno = -result;
  return result >= 0;
}

loopback::ContextPtr newContext(pw_loop* loop, ContextKind kind) {
  loopback::ContextPtr context;
  if (kind == ContextKind::kAudio) {
    context.reset(
        pw_context_new(loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0));
  }
  if (context == nullptr) context.reset(pw_context_new(loop, nullptr, 0));
  return context;
}

}  // namespace

loopback::ContextPtr makeContext(pw_loop* loop, ContextKind kind) {
  const platform::MutexLock lock(setUpMutex());
  loopback::ContextPtr context = newContext(loop, kind);
  if (context == nullptr || kind != ContextKind::kAudio) return context;
  pw_data_loop* dataLoop = pw_context_get_data_loop(context.get());
  if (dataLoop == nullptr) {
    const int reason = errno;
    context.reset();
    errno = reason;
    return nullptr;
  }
  if (canEndDataThread(dataLoop)) return context;
  // A deliberate leak: to destroy it would be to wait for its thread forever.
  static_cast<void>(context.release());
  return nullptr;
}

pw_core* connectContext(pw_context* context, pw_properties* properties) {
  const platform::MutexLock lock(setUpMutex());
  return pw_context_connect(context, properties, 0);
}

}  // namespace linux_host
