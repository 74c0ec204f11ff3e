#include "driver/default_metadata.h"

#include <string_view>
#include <utility>

#include "driver/loopback_protocol.h"

namespace loopback {

void DefaultMetadata::setListeners(KeyChanged configuredChanged, KeyChanged effectiveChanged) {
  configuredChanged_ = std::move(configuredChanged);
  effectiveChanged_ = std::move(effectiveChanged);
}

void DefaultMetadata::bind(pw_registry* registry, std::uint32_t global) {
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
  release();
  metadata_ = static_cast<pw_metadata*>(
      pw_registry_bind(registry, global, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  if (metadata_ == nullptr) return;
  global_ = global;
  listener_ = {};
  pw_metadata_add_listener(metadata_, &listener_, &kEvents, this);
}

void DefaultMetadata::release() {
  if (metadata_ == nullptr) return;
  spa_hook_remove(&listener_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(std::exchange(metadata_, nullptr)));
  global_ = SPA_ID_INVALID;
}

void DefaultMetadata::setConfigured(const DefaultChoice& choice) {
  set(kConfiguredDefaultSinkKey, choice);
}

void DefaultMetadata::setEffective(const DefaultChoice& choice) {
  set(kDefaultSinkKey, choice);
}

void DefaultMetadata::set(const char* key, const DefaultChoice& choice) {
  if (metadata_ == nullptr) return;
  pw_metadata_set_property(metadata_, PW_ID_CORE, key, choice ? choice->type.c_str() : nullptr,
                           choice ? choice->value.c_str() : nullptr);
}

void DefaultMetadata::propertyChanged(const char* key, const DefaultChoice& choice) {
  // No key at all: every key of the subject was cleared.
  if (key == nullptr || std::string_view(key) == kConfiguredDefaultSinkKey) {
    configuredChanged_(choice);
  }
  if (key == nullptr || std::string_view(key) == kDefaultSinkKey) effectiveChanged_(choice);
}

}  // namespace loopback
