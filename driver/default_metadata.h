#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <functional>

#include "driver/default_guard.h"

namespace loopback {

// The session manager's metadata object with the default devices, as long as there is one. Loop
// thread.
class DefaultMetadata : public DefaultKeys {
 public:
  using KeyChanged = std::function<void(const DefaultChoice&)>;
  DefaultMetadata() = default;
  ~DefaultMetadata() override { release(); }
  DefaultMetadata(const DefaultMetadata&) = delete;
  DefaultMetadata& operator=(const DefaultMetadata&) = delete;

  void setListeners(KeyChanged configuredChanged, KeyChanged effectiveChanged);
  void bind(pw_registry* registry, std::uint32_t global);
  void release();
  // The global that is bound; SPA_ID_INVALID when none is.
  [[nodiscard]] std::uint32_t boundGlobal() const { return global_; }

  void setConfigured(const DefaultChoice& choice) override;
  void setEffective(const DefaultChoice& choice) override;

 private:
  void set(const char* key, const DefaultChoice& choice);
  void propertyChanged(const char* key, const DefaultChoice& choice);

  pw_metadata* metadata_ = nullptr;
  std::uint32_t global_ = SPA_ID_INVALID;
  spa_hook listener_{};
  KeyChanged configuredChanged_;
  KeyChanged effectiveChanged_;
};

}  // namespace loopback
