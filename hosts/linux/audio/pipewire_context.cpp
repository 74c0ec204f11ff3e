// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_context.h"

#include <pipewire/pipewire.h>

#include "platform/mutex.h"

namespace linux_host {
namespace {

platform::Mutex& setUpMutex() {
  static platform::Mutex mutex;
  return mutex;
}

}  // namespace

pw_context* makeContext(pw_loop* loop, ContextKind kind) {
  const platform::MutexLock lock(setUpMutex());
  pw_context* context = nullptr;
  if (kind == ContextKind::kAudio) {
    context =
        pw_context_new(loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
  }
  return context != nullptr ? context : pw_context_new(loop, nullptr, 0);
}

pw_core* connectContext(pw_context* context, pw_properties* properties) {
  const platform::MutexLock lock(setUpMutex());
  return pw_context_connect(context, properties, 0);
}

}  // namespace linux_host
