// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "platform/audio_hardware.h"

// Audio hardware in memory: objects whose properties are bytes. Every call is recorded and can be
// made to fail. Single-threaded, except that audio callbacks may read the device clocks while no
// test changes them.

namespace memory_host {

using Bytes = std::vector<std::byte>;

class MemoryAudioHardware : public platform::AudioHardware {
 public:
  enum class CallKind { kHasProperty, kGetSize, kGet, kSet, kDeviceGet, kHardwareSet };

  struct Call {
    CallKind kind;
    platform::AudioObjectID object;
    platform::AudioObjectPropertyAddress address;
    std::string qualifier;  // the text behind a string qualifier, else ""
    Bytes data;             // what was written; empty for reads
    platform::OSStatus status;
    friend bool operator==(const Call&, const Call&) = default;
  };

  // kAfterRead: the reader has the value already.
  enum class FailOn { kAny, kRead, kAfterRead, kWrite, kSize };

  // An object exists from its first property on. A read copies the whole value or nothing, unless
  // it was set as a list.
  void setProperty(platform::AudioObjectID object,
                   const platform::AudioObjectPropertyAddress& address, Bytes bytes);
  template <typename T>
  void setValue(platform::AudioObjectID object, const platform::AudioObjectPropertyAddress& address,
                const T& value) {
    setProperty(object, address, bytesOf(&value, sizeof value));
  }
  // Each read gives the reader its own string.
  void setString(platform::AudioObjectID object,
                 const platform::AudioObjectPropertyAddress& address, std::string text);
  // A read with too little room gets as many bytes as fit.
  void setListBytes(platform::AudioObjectID object,
                    const platform::AudioObjectPropertyAddress& address, Bytes bytes);
  template <typename T>
  void setList(platform::AudioObjectID object, const platform::AudioObjectPropertyAddress& address,
               const std::vector<T>& values) {
    setListBytes(object, address, bytesOf(values.data(), values.size() * sizeof(T)));
  }
  void removeProperty(platform::AudioObjectID object,
                      const platform::AudioObjectPropertyAddress& address);
  void removeObject(platform::AudioObjectID object);

  // Adds a device with a UID, which can be found by it from then on. Puts it into the system's
  // device list unless it is hidden.
  void addDevice(platform::AudioDeviceID device, const std::string& uid, bool hidden = false);
  // The two sizes that the play-through reads for one side of a device.
  void setDeviceTiming(platform::AudioDeviceID device, bool isInput,
                       std::uint32_t safetyOffset_frames, std::uint32_t bufferFrameSize_frames);
  void setStreamConfiguration(platform::AudioDeviceID device, bool isInput,
                              const std::vector<std::uint32_t>& channelsOfEachBuffer);

  // Every matching call fails with `status` until heal().
  void fail(platform::AudioObjectID object, std::uint32_t selector, std::uint32_t scope,
            platform::OSStatus status, FailOn on = FailOn::kAny);
  void heal() { failures_.clear(); }

  // Throws std::out_of_range when there is no such property.
  [[nodiscard]] const Bytes& property(platform::AudioObjectID object,
                                      const platform::AudioObjectPropertyAddress& address) const;
  template <typename T>
  [[nodiscard]] T value(platform::AudioObjectID object,
                        const platform::AudioObjectPropertyAddress& address) const {
    static_assert(std::is_trivially_copyable_v<T>);
    const Bytes& bytes = property(object, address);
    T result{};
    std::memcpy(&result, bytes.data(), std::min(sizeof result, bytes.size()));
    return result;
  }
  [[nodiscard]] platform::AudioDeviceID defaultOutput() const;
  void setDefaultOutput(platform::AudioDeviceID device);

  // What a device's clock returns, and its status. A device without a clock is not running.
  void setCurrentTime(platform::AudioDeviceID device, const platform::AudioTimeStamp& time);
  void setRateScalar(platform::AudioDeviceID device, double rateScalar);
  void stopClock(platform::AudioDeviceID device) { clocks_.erase(device); }
  void failCurrentTime(platform::AudioDeviceID device, platform::OSStatus status);

  std::vector<Call> calls;
  std::atomic<std::uint64_t> currentTimeCalls{0};
  // Called after each successful write, with the object and the address. Does what hardware would.
  std::function<void(platform::AudioObjectID, const platform::AudioObjectPropertyAddress&)> onWrite;
  // The same after each size. What was asked for may change before it is read.
  std::function<void(platform::AudioObjectID, const platform::AudioObjectPropertyAddress&)> onSize;

  bool AudioObjectHasProperty(platform::AudioObjectID object,
                              const platform::AudioObjectPropertyAddress& address) override;
  platform::OSStatus AudioObjectGetPropertyDataSize(
      platform::AudioObjectID object, const platform::AudioObjectPropertyAddress& address,
      std::uint32_t qualifierSize_bytes, const void* qualifier,
      std::uint32_t* outSize_bytes) override;
  platform::OSStatus AudioObjectGetPropertyData(platform::AudioObjectID object,
                                                const platform::AudioObjectPropertyAddress& address,
                                                std::uint32_t qualifierSize_bytes,
                                                const void* qualifier, std::uint32_t* ioSize_bytes,
                                                void* outData) override;
  platform::OSStatus AudioObjectSetPropertyData(platform::AudioObjectID object,
                                                const platform::AudioObjectPropertyAddress& address,
                                                std::uint32_t qualifierSize_bytes,
                                                const void* qualifier, std::uint32_t size_bytes,
                                                const void* data) override;
  // A property without that side and channel is read from the global scope, channel 0.
  platform::OSStatus AudioDeviceGetProperty(platform::AudioDeviceID device, std::uint32_t channel,
                                            bool isInput, std::uint32_t selector,
                                            std::uint32_t* ioSize_bytes, void* outData) override;
  platform::OSStatus AudioHardwareSetProperty(std::uint32_t selector, std::uint32_t size_bytes,
                                              const void* data) override;
  platform::OSStatus AudioDeviceGetCurrentTime(platform::AudioDeviceID device,
                                               platform::AudioTimeStamp* outTime) override;

 private:
  enum class Shape { kValue, kString, kList };
  struct Property {
    Shape shape;
    Bytes bytes;  // a string's text
  };
  struct Clock {
    platform::OSStatus status = platform::noErr;
    platform::AudioTimeStamp time;
  };
  struct Failure {
    platform::AudioObjectID object;
    std::uint32_t selector;
    std::uint32_t scope;
    platform::OSStatus status;
    FailOn on;
  };
  using Key = std::tuple<platform::AudioObjectID, std::uint32_t, std::uint32_t, std::uint32_t>;

  static Bytes bytesOf(const void* data, std::size_t size_bytes);
  static Key keyOf(platform::AudioObjectID object,
                   const platform::AudioObjectPropertyAddress& address);
  [[nodiscard]] bool hasObject(platform::AudioObjectID object) const;
  [[nodiscard]] platform::OSStatus injected(platform::AudioObjectID object,
                                            const platform::AudioObjectPropertyAddress& address,
                                            FailOn on) const;
  [[nodiscard]] const Property* find(platform::AudioObjectID object,
                                     const platform::AudioObjectPropertyAddress& address) const;
  [[nodiscard]] platform::OSStatus missing(platform::AudioObjectID object) const;
  platform::OSStatus read(platform::AudioObjectID object,
                          const platform::AudioObjectPropertyAddress& address,
                          const std::string& qualifier, std::uint32_t* ioSize_bytes, void* outData);
  platform::OSStatus write(platform::AudioObjectID object,
                           const platform::AudioObjectPropertyAddress& address,
                           std::uint32_t size_bytes, const void* data);
  platform::OSStatus translateUID(const std::string& uid, std::uint32_t* ioSize_bytes,
                                  void* outData) const;

  std::map<Key, Property> properties_;
  std::vector<Failure> failures_;
  std::map<platform::AudioDeviceID, Clock> clocks_;
};

// The addresses that tests use most.
constexpr platform::AudioObjectPropertyAddress globalAddress(std::uint32_t selector) {
  return {selector, platform::kAudioObjectPropertyScopeGlobal,
          platform::kAudioObjectPropertyElementMaster};
}
constexpr platform::AudioObjectPropertyAddress sideAddress(std::uint32_t selector, bool isInput,
                                                           std::uint32_t element = 0) {
  return {selector,
          isInput ? platform::kAudioDevicePropertyScopeInput
                  : platform::kAudioDevicePropertyScopeOutput,
          element};
}

}  // namespace memory_host
