// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <variant>

#include "hosts/linux/audio/property_value.h"
#include "platform/audio_unit.h"

namespace linux_host {

struct UnitPropertyAddress {
  std::uint32_t property;
  std::uint32_t scope;
  std::uint32_t element;
  friend bool operator==(const UnitPropertyAddress&, const UnitPropertyAddress&) = default;
};

// One audio unit. Main thread, except the two calls marked as real-time.
class Unit {
 public:
  using Value = std::variant<platform::OSStatus, PropertyValue>;

  Unit() = default;
  virtual ~Unit() = default;
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;

  // Both are idempotent.
  virtual platform::OSStatus initialize() = 0;
  virtual platform::OSStatus uninitialize() = 0;
  virtual platform::OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                                         std::uint32_t size_bytes) = 0;
  virtual Value property(const UnitPropertyAddress& address) = 0;

  // Only for units bound to a device.
  virtual platform::OSStatus start() { return platform::kAudioUnitErr_InvalidElement; }
  virtual platform::OSStatus stop() { return platform::kAudioUnitErr_InvalidElement; }
  // Connects input 0 to output 0 of `source`, which outlives the connection; null: disconnects it.
  virtual platform::OSStatus connect(Unit* /*source*/) {
    return platform::kAUGraphErr_InvalidConnection;
  }
  // Whether output 0 can feed another unit.
  [[nodiscard]] virtual bool canFeed() const { return false; }

  // REAL-TIME: allocates nothing, takes no lock, makes no system call.
  virtual platform::OSStatus setParameter(std::uint32_t /*parameter*/, std::uint32_t /*scope*/,
                                          std::uint32_t /*element*/, float /*value*/) {
    return platform::kAudioUnitErr_InvalidParameter;
  }
  // REAL-TIME, as above.
  virtual platform::OSStatus render(std::uint32_t* ioActionFlags,
                                    const platform::AudioTimeStamp& timeStamp,
                                    std::uint32_t busNumber, std::uint32_t frameCount,
                                    platform::AudioBufferList& list) = 0;
};

// False when the size is not that of a T.
template <typename T>
bool readProperty(const void* data, std::uint32_t size_bytes, T* value) {
  if (data == nullptr || size_bytes != sizeof(T)) return false;
  std::memcpy(value, data, sizeof(T));
  return true;
}

}  // namespace linux_host
