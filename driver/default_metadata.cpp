// SPDX-License-Identifier: MIT
#include "driver/default_metadata.h"

#include <cassert>
#include <cerrno>
#include <string_view>
#include <utility>

#include "driver/loopback_protocol.h"

namespace loopback {
namespace {

constexpr timespec kAtOnce{.tv_sec = 0, .tv_nsec = 1};

}  // namespace

DefaultMetadata::~DefaultMetadata() {
  stop();
}

bool DefaultMetadata::start(pw_context* context, std::string remote, std::function<void()> onLost) {
  context_ = context;
  remote_ = std::move(remote);
  onLost_ = std::move(onLost);
  loop_ = pw_context_get_main_loop(context);
  limitTimer_ = LoopSource(loop_, pw_loop_add_timer(
                                      loop_,
                                      [](void* data, std::uint64_t) {
                                        static_cast<DefaultMetadata*>(data)->answerIsLate();
                                      },
                                      this));
  laterTimer_ = LoopSource(loop_, pw_loop_add_timer(
                                      loop_,
                                      [](void* data, std::uint64_t) {
                                        static_cast<DefaultMetadata*>(data)->lookAgain();
                                      },
                                      this));
  return limitTimer_ && laterTimer_ && connect();
}

bool DefaultMetadata::connect() {
  static const pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = [](void* data, std::uint32_t, int sequence) {
      static_cast<DefaultMetadata*>(data)->answered(sequence);
    };
    events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
      if (id == PW_ID_CORE && result == -EPIPE) static_cast<DefaultMetadata*>(data)->onLost_();
    };
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{
      .version = PW_VERSION_REGISTRY_EVENTS,
      .global =
          [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
             const spa_dict* dict) {
            static_cast<DefaultMetadata*>(data)->globalAppeared(id, type, dict);
          },
      .global_remove =
          [](void* data, std::uint32_t id) {
            static_cast<DefaultMetadata*>(data)->globalRemoved(id);
          },
  };
  core_.reset(pw_context_connect(
      context_,
      pw_properties_new(PW_KEY_REMOTE_NAME, remote_.c_str(), PW_KEY_APP_NAME, "loopback-driver",
                        PW_KEY_MEDIA_CATEGORY, "Manager", nullptr),
      0));
  if (!core_) return false;
  core_.listen(&kCoreEvents, this);
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  registry_.listen(&kRegistryEvents, this);
  return true;
}

void DefaultMetadata::stop() {
  awaited_ = nullptr;
  disconnect();
  limitTimer_.reset();
  laterTimer_.reset();
}

void DefaultMetadata::disconnect() {
  if (!core_) return;
  release();
  enter(Phase::kUnbound);
  global_ = SPA_ID_INVALID;
  registry_.reset();
  core_.reset();
}

void DefaultMetadata::globalAppeared(std::uint32_t global, const char* type,
                                     const spa_dict* properties) {
  const bool isMetadata = std::string_view(type) == PW_TYPE_INTERFACE_Metadata;
  if (phase_ == Phase::kStuck || properties == nullptr || !isMetadata) return;
  const char* name = spa_dict_lookup(properties, PW_KEY_METADATA_NAME);
  if (name == nullptr || std::string_view(name) != kDefaultMetadataName) return;
  release();
  enter(Phase::kUnbound);
  global_ = global;
  isLoopbackConfigured_ = false;
  isLoopbackUsed_ = false;
  hadConfigured_ = false;
  bind();
  readAgainLater();
}

void DefaultMetadata::globalRemoved(std::uint32_t global) {
  if (global != global_) return;
  // If the session manager goes before it has answered a client, the daemon holds that client back
  // forever.
  const bool isStuck = isReading();
  release();
  enter(isStuck ? Phase::kStuck : Phase::kUnbound);
  global_ = SPA_ID_INVALID;
  guard_->sessionManagerGone();
  if (isStuck) laterTimer_.startTimer(kAtOnce);
}

void DefaultMetadata::bind() {
  static constexpr pw_metadata_events kEvents{
      .version = PW_VERSION_METADATA_EVENTS,
      .property = [](void* data, std::uint32_t subject, const char* key, const char* type,
                     const char* value) -> int {
        if (subject != PW_ID_CORE) return 0;
        const DefaultChoice choice =
            value == nullptr ? DefaultChoice() : MetadataValue{type != nullptr ? type : "", value};
        static_cast<DefaultMetadata*>(data)->propertyChanged(key, choice);
        return 0;
      },
  };
  if (isReading()) return enter(Phase::kReadingTwice);
  if (global_ == SPA_ID_INVALID) return;
  release();
  enter(Phase::kUnbound);
  metadata_.reset(pw_registry_bind(registry_.as<pw_registry>(), global_, PW_TYPE_INTERFACE_Metadata,
                                   PW_VERSION_METADATA, 0));
  if (!metadata_) return;
  metadata_.listen(&kEvents, this);
  read_ = {};
  enter(Phase::kReading);
  readSequence_ = pw_core_sync(core_.get(), PW_ID_CORE, 0);
}

void DefaultMetadata::enter(Phase next) {
  [[maybe_unused]] const auto mayEnter = [this](Phase phase) {
    switch (phase) {
      case Phase::kUnbound:
        return true;
      case Phase::kReading:
        return phase_ == Phase::kUnbound;
      case Phase::kReadingTwice:
      case Phase::kKnown:
      case Phase::kStuck:
        return isReading();
    }
    return false;
  };
  assert(mayEnter(next));
  phase_ = next;
}

void DefaultMetadata::release() {
  hangs_ = false;
  metadata_.reset();
}

void DefaultMetadata::readAgain(std::function<void()> action) {
  awaited_ = nullptr;
  if (phase_ != Phase::kStuck) bind();
  if (!isReading()) return action();
  await(std::move(action));
}

void DefaultMetadata::afterWrites(std::function<void()> action) {
  awaited_ = nullptr;
  if (!metadata_ || hangs_) return action();
  await(std::move(action));
}

void DefaultMetadata::readAgainLater() {
  if (phase_ != Phase::kStuck) laterTimer_.startTimer(kSecondLook);
}

void DefaultMetadata::lookAgain() {
  if (phase_ != Phase::kStuck) return bind();
  disconnect();
  if (!connect()) onLost_();
}

void DefaultMetadata::setConfigured(const DefaultChoice& choice) {
  set(kConfiguredDefaultSinkKey, choice);
}

void DefaultMetadata::setEffective(const DefaultChoice& choice) {
  set(kDefaultSinkKey, choice);
}

void DefaultMetadata::set(const char* key, const DefaultChoice& choice) {
  if (!metadata_) return;
  pw_metadata_set_property(metadata_.as<pw_metadata>(), PW_ID_CORE, key,
                           choice ? choice->type.c_str() : nullptr,
                           choice ? choice->value.c_str() : nullptr);
}

void DefaultMetadata::propertyChanged(const char* key, const DefaultChoice& choice) {
  // A null key: every key of the subject was cleared.
  const bool isConfigured = key == nullptr || std::string_view(key) == kConfiguredDefaultSinkKey;
  const bool isEffective = key == nullptr || std::string_view(key) == kDefaultSinkKey;
  if (isReading()) {
    if (isConfigured) read_.configured = choice;
    if (isEffective) read_.effective = choice;
    return;
  }
  if (isConfigured) {
    if (choice) hadConfigured_ = true;
    isLoopbackConfigured_ = deviceNameOf(choice) == kLoopbackDeviceUID;
    guard_->configuredChanged(choice);
  }
  if (!isEffective) return;
  isLoopbackUsed_ = deviceNameOf(choice) == kLoopbackDeviceUID;
  // Either the session manager chose the loopback on its own, or a program configured it and that
  // change was missed. Reading the keys tells which.
  if (isLoopbackUsed_ && !isLoopbackConfigured_) {
    bind();
  } else {
    guard_->effectiveChanged(choice);
  }
}

void DefaultMetadata::reportRead() {
  enter(Phase::kKnown);
  hangs_ = false;
  const Keys keys = std::exchange(read_, {});
  isLoopbackConfigured_ = deviceNameOf(keys.configured) == kLoopbackDeviceUID;
  isLoopbackUsed_ = deviceNameOf(keys.effective) == kLoopbackDeviceUID;
  // If the key has never had a value, the session manager may not have filled it in yet.
  if (keys.configured || hadConfigured_) guard_->configuredChanged(keys.configured);
  if (keys.configured) hadConfigured_ = true;
  if (keys.effective) guard_->effectiveChanged(keys.effective);
  guard_->sessionManagerReady();
}

void DefaultMetadata::await(std::function<void()> action) {
  awaited_ = std::move(action);
  awaitedSequence_ = pw_core_sync(core_.get(), PW_ID_CORE, 0);
  limitTimer_.startTimer(kAnswerLimit);
}

void DefaultMetadata::answered(int sequence) {
  if (isReading() && sequence == readSequence_) {
    const bool isRepeated = phase_ == Phase::kReadingTwice;
    reportRead();
    // Unless the guard has had them read already.
    if (isRepeated && phase_ == Phase::kKnown) bind();
  }
  if (sequence != awaitedSequence_) return;
  if (isReading()) {
    awaitedSequence_ = readSequence_;
  } else {
    runAwaited();
  }
}

void DefaultMetadata::answerIsLate() {
  if (!awaited_) return;
  hangs_ = true;
  runAwaited();
}

void DefaultMetadata::runAwaited() {
  if (!awaited_) return;
  limitTimer_.startTimer({});
  std::exchange(awaited_, nullptr)();
}

}  // namespace loopback
