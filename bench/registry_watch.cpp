// SPDX-License-Identifier: MIT
#include "bench/registry_watch.h"

#include <utility>

void RegistryWatch::onDone(void* data, std::uint32_t, int sequence) {
  auto* self = static_cast<RegistryWatch*>(data);
  if (sequence != self->ready_) return;
  self->isListed_ = true;
  self->quit();
}

void RegistryWatch::onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type,
                             std::uint32_t, const spa_dict* properties) {
  static_cast<RegistryWatch*>(data)->added_(id, type, properties);
}

void RegistryWatch::onGlobalRemove(void* data, std::uint32_t id) {
  const auto* self = static_cast<RegistryWatch*>(data);
  if (self->removed_) self->removed_(id);
}

bool RegistryWatch::connect(Added added, Removed removed) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = onDone;
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, onGlobal,
                                                      onGlobalRemove};
  added_ = std::move(added);
  removed_ = std::move(removed);
  loop_ = pw_main_loop_new(nullptr);
  if (loop_ == nullptr) return false;
  pw_context* context = pw_context_new(pw_main_loop_get_loop(loop_), nullptr, 0);
  if (context == nullptr) return false;
  core_ = pw_context_connect(context, nullptr, 0);
  if (core_ == nullptr) return false;
  pw_core_add_listener(core_, &coreListener_, &kCoreEvents, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  if (registry_ == nullptr) return false;
  pw_registry_add_listener(registry_, &registryListener_, &kRegistryEvents, this);
  ready_ = pw_core_sync(core_, PW_ID_CORE, 0);
  run();
  return isListed_;
}

void RegistryWatch::run() {
  pw_main_loop_run(loop_);
}

void RegistryWatch::quit() {
  pw_main_loop_quit(loop_);
}
