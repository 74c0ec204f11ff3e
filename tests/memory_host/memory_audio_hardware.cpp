// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_audio_hardware.h"

#include <algorithm>

namespace memory_host {

using platform::AudioDeviceID;
using platform::AudioObjectID;
using platform::AudioObjectPropertyAddress;
using platform::kAudioObjectSystemObject;
using platform::noErr;
using platform::OSStatus;
using platform::StringRef;

namespace {

std::string qualifierText(std::uint32_t size_bytes, const void* qualifier) {
  if (size_bytes != sizeof(StringRef) || qualifier == nullptr) return "";
  StringRef string = nullptr;
  std::memcpy(&string, qualifier, sizeof string);
  return string == nullptr ? "" : string->text();
}

bool isQualifier(std::uint32_t size_bytes, const void* qualifier) {
  return (size_bytes > 0) == (qualifier != nullptr);
}

std::string textOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

Bytes MemoryAudioHardware::bytesOf(const void* data, std::size_t size_bytes) {
  Bytes bytes(size_bytes);
  if (size_bytes > 0) std::memcpy(bytes.data(), data, size_bytes);
  return bytes;
}

MemoryAudioHardware::Key MemoryAudioHardware::keyOf(AudioObjectID object,
                                                    const AudioObjectPropertyAddress& address) {
  return {object, address.mSelector, address.mScope, address.mElement};
}

void MemoryAudioHardware::setProperty(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address, Bytes bytes) {
  properties_[keyOf(object, address)] = {Shape::kValue, std::move(bytes)};
}

void MemoryAudioHardware::setString(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                    std::string text) {
  properties_[keyOf(object, address)] = {Shape::kString, bytesOf(text.data(), text.size())};
}

void MemoryAudioHardware::setListBytes(AudioObjectID object,
                                       const AudioObjectPropertyAddress& address, Bytes bytes) {
  properties_[keyOf(object, address)] = {Shape::kList, std::move(bytes)};
}

void MemoryAudioHardware::removeProperty(AudioObjectID object,
                                         const AudioObjectPropertyAddress& address) {
  properties_.erase(keyOf(object, address));
}

void MemoryAudioHardware::removeObject(AudioObjectID object) {
  std::erase_if(properties_, [&](const auto& entry) { return std::get<0>(entry.first) == object; });
  clocks_.erase(object);
  const auto devices = globalAddress(platform::kAudioHardwarePropertyDevices);
  if (const Property* list = find(kAudioObjectSystemObject, devices)) {
    std::vector<AudioDeviceID> ids(list->bytes.size() / sizeof(AudioDeviceID));
    std::memcpy(ids.data(), list->bytes.data(), ids.size() * sizeof(AudioDeviceID));
    std::erase(ids, object);
    setList(kAudioObjectSystemObject, devices, ids);
  }
}

void MemoryAudioHardware::addDevice(AudioDeviceID device, const std::string& uid, bool hidden) {
  setString(device, globalAddress(platform::kAudioDevicePropertyDeviceUID), uid);
  if (hidden) return;
  Property& list = properties_[keyOf(kAudioObjectSystemObject,
                                     globalAddress(platform::kAudioHardwarePropertyDevices))];
  list.shape = Shape::kList;
  const Bytes id = bytesOf(&device, sizeof device);
  list.bytes.insert(list.bytes.end(), id.begin(), id.end());
}

void MemoryAudioHardware::setDeviceTiming(AudioDeviceID device, bool isInput,
                                          std::uint32_t safetyOffset_frames,
                                          std::uint32_t bufferFrameSize_frames) {
  setValue(device, sideAddress(platform::kAudioDevicePropertySafetyOffset, isInput),
           safetyOffset_frames);
  setValue(device, sideAddress(platform::kAudioDevicePropertyBufferFrameSize, isInput),
           bufferFrameSize_frames);
}

void MemoryAudioHardware::setStreamConfiguration(
    AudioDeviceID device, bool isInput, const std::vector<std::uint32_t>& channelsOfEachBuffer) {
  const auto count = static_cast<std::uint32_t>(channelsOfEachBuffer.size());
  Bytes bytes(platform::audioBufferListSize_bytes(count));
  std::memcpy(bytes.data(), &count, sizeof count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const platform::AudioBuffer buffer{channelsOfEachBuffer[i], 0, nullptr};
    std::memcpy(bytes.data() + platform::audioBufferListSize_bytes(i), &buffer, sizeof buffer);
  }
  setListBytes(device, sideAddress(platform::kAudioDevicePropertyStreamConfiguration, isInput),
               std::move(bytes));
}

void MemoryAudioHardware::fail(AudioObjectID object, std::uint32_t selector, std::uint32_t scope,
                               OSStatus status, FailOn on) {
  failures_.push_back({object, selector, scope, status, on});
}

const Bytes& MemoryAudioHardware::property(AudioObjectID object,
                                           const AudioObjectPropertyAddress& address) const {
  return properties_.at(keyOf(object, address)).bytes;
}

AudioDeviceID MemoryAudioHardware::defaultOutput() const {
  return value<AudioDeviceID>(kAudioObjectSystemObject,
                              globalAddress(platform::kAudioHardwarePropertyDefaultOutputDevice));
}

void MemoryAudioHardware::setDefaultOutput(AudioDeviceID device) {
  setValue(kAudioObjectSystemObject,
           globalAddress(platform::kAudioHardwarePropertyDefaultOutputDevice), device);
}

void MemoryAudioHardware::setCurrentTime(AudioDeviceID device,
                                         const platform::AudioTimeStamp& time) {
  clocks_[device] = {noErr, time};
}

void MemoryAudioHardware::setRateScalar(AudioDeviceID device, double rateScalar) {
  clocks_[device].time.mRateScalar = rateScalar;
}

void MemoryAudioHardware::failCurrentTime(AudioDeviceID device, OSStatus status) {
  clocks_[device].status = status;
}

bool MemoryAudioHardware::hasObject(AudioObjectID object) const {
  const auto first = properties_.lower_bound({object, 0, 0, 0});
  return first != properties_.end() && std::get<0>(first->first) == object;
}

OSStatus MemoryAudioHardware::injected(AudioObjectID object,
                                       const AudioObjectPropertyAddress& address, FailOn on) const {
  for (const Failure& failure : failures_) {
    const bool matches = failure.object == object && failure.selector == address.mSelector &&
                         failure.scope == address.mScope;
    if (matches && (failure.on == FailOn::kAny || failure.on == on)) return failure.status;
  }
  return noErr;
}

const MemoryAudioHardware::Property* MemoryAudioHardware::find(
    AudioObjectID object, const AudioObjectPropertyAddress& address) const {
  const auto found = properties_.find(keyOf(object, address));
  return found == properties_.end() ? nullptr : &found->second;
}

OSStatus MemoryAudioHardware::missing(AudioObjectID object) const {
  return hasObject(object) ? platform::kAudioHardwareUnknownPropertyError
                           : platform::kAudioHardwareBadObjectError;
}

bool MemoryAudioHardware::AudioObjectHasProperty(AudioObjectID object,
                                                 const AudioObjectPropertyAddress& address) {
  const bool has =
      find(object, address) != nullptr && injected(object, address, FailOn::kSize) == noErr;
  calls.push_back({CallKind::kHasProperty, object, address, "", {}, noErr});
  return has;
}

OSStatus MemoryAudioHardware::AudioObjectGetPropertyDataSize(
    AudioObjectID object, const AudioObjectPropertyAddress& address,
    std::uint32_t qualifierSize_bytes, const void* qualifier, std::uint32_t* outSize_bytes) {
  OSStatus status = isQualifier(qualifierSize_bytes, qualifier)
                        ? injected(object, address, FailOn::kSize)
                        : platform::kAudioHardwareBadPropertySizeError;
  if (status == noErr) {
    const Property* found = find(object, address);
    if (found == nullptr) {
      status = missing(object);
    } else {
      *outSize_bytes = found->shape == Shape::kString
                           ? static_cast<std::uint32_t>(sizeof(StringRef))
                           : static_cast<std::uint32_t>(found->bytes.size());
    }
  }
  calls.push_back({CallKind::kGetSize,
                   object,
                   address,
                   qualifierText(qualifierSize_bytes, qualifier),
                   {},
                   status});
  if (status == noErr && onSize) onSize(object, address);
  return status;
}

OSStatus MemoryAudioHardware::translateUID(const std::string& uid, std::uint32_t* ioSize_bytes,
                                           void* outData) const {
  AudioDeviceID device = platform::kAudioObjectUnknown;
  if (*ioSize_bytes < sizeof device) return platform::kAudioHardwareBadPropertySizeError;
  const auto wanted = globalAddress(platform::kAudioDevicePropertyDeviceUID);
  for (const auto& [key, candidate] : properties_) {
    const AudioObjectID object = std::get<0>(key);
    if (key == keyOf(object, wanted) && textOf(candidate.bytes) == uid) device = object;
  }
  std::memcpy(outData, &device, sizeof device);
  *ioSize_bytes = sizeof device;
  return noErr;
}

OSStatus MemoryAudioHardware::read(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                   const std::string& qualifier, std::uint32_t* ioSize_bytes,
                                   void* outData) {
  if (const OSStatus status = injected(object, address, FailOn::kRead); status != noErr) {
    return status;
  }
  if (object == kAudioObjectSystemObject &&
      address == globalAddress(platform::kAudioHardwarePropertyTranslateUIDToDevice)) {
    if (qualifier.empty()) return platform::kAudioHardwareBadPropertySizeError;
    return translateUID(qualifier, ioSize_bytes, outData);
  }
  const Property* found = find(object, address);
  if (found == nullptr) return missing(object);
  if (found->shape == Shape::kString) {
    if (*ioSize_bytes < sizeof(StringRef)) return platform::kAudioHardwareBadPropertySizeError;
    const StringRef string = platform::StringObject::create(textOf(found->bytes));
    std::memcpy(outData, &string, sizeof string);
    *ioSize_bytes = sizeof string;
    return noErr;
  }
  const auto size = static_cast<std::uint32_t>(found->bytes.size());
  if (*ioSize_bytes < size && found->shape == Shape::kValue) {
    return platform::kAudioHardwareBadPropertySizeError;
  }
  *ioSize_bytes = std::min(*ioSize_bytes, size);
  if (*ioSize_bytes > 0) std::memcpy(outData, found->bytes.data(), *ioSize_bytes);
  return noErr;
}

OSStatus MemoryAudioHardware::write(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                    std::uint32_t size_bytes, const void* data) {
  if (const OSStatus status = injected(object, address, FailOn::kWrite); status != noErr) {
    return status;
  }
  const auto found = properties_.find(keyOf(object, address));
  if (found == properties_.end()) return missing(object);
  if (found->second.shape != Shape::kValue) return platform::kAudioHardwareIllegalOperationError;
  if (size_bytes != found->second.bytes.size()) return platform::kAudioHardwareBadPropertySizeError;
  if (object == kAudioObjectSystemObject &&
      address == globalAddress(platform::kAudioHardwarePropertyDefaultOutputDevice)) {
    AudioDeviceID device = platform::kAudioObjectUnknown;
    std::memcpy(&device, data, sizeof device);
    if (!hasObject(device)) return platform::kAudioHardwareBadDeviceError;
  }
  found->second.bytes = bytesOf(data, size_bytes);
  return noErr;
}

OSStatus MemoryAudioHardware::AudioObjectGetPropertyData(AudioObjectID object,
                                                         const AudioObjectPropertyAddress& address,
                                                         std::uint32_t qualifierSize_bytes,
                                                         const void* qualifier,
                                                         std::uint32_t* ioSize_bytes,
                                                         void* outData) {
  const std::string text = qualifierText(qualifierSize_bytes, qualifier);
  OSStatus status = isQualifier(qualifierSize_bytes, qualifier)
                        ? read(object, address, text, ioSize_bytes, outData)
                        : platform::kAudioHardwareBadPropertySizeError;
  if (status == noErr) status = injected(object, address, FailOn::kAfterRead);
  calls.push_back({CallKind::kGet, object, address, text, {}, status});
  return status;
}

OSStatus MemoryAudioHardware::AudioObjectSetPropertyData(AudioObjectID object,
                                                         const AudioObjectPropertyAddress& address,
                                                         std::uint32_t qualifierSize_bytes,
                                                         const void* qualifier,
                                                         std::uint32_t size_bytes,
                                                         const void* data) {
  const OSStatus status = isQualifier(qualifierSize_bytes, qualifier)
                              ? write(object, address, size_bytes, data)
                              : platform::kAudioHardwareBadPropertySizeError;
  calls.push_back({CallKind::kSet, object, address, qualifierText(qualifierSize_bytes, qualifier),
                   bytesOf(data, size_bytes), status});
  if (status == noErr && onWrite) onWrite(object, address);
  return status;
}

OSStatus MemoryAudioHardware::AudioDeviceGetProperty(AudioDeviceID device, std::uint32_t channel,
                                                     bool isInput, std::uint32_t selector,
                                                     std::uint32_t* ioSize_bytes, void* outData) {
  const AudioObjectPropertyAddress asked = sideAddress(selector, isInput, channel);
  const AudioObjectPropertyAddress global = globalAddress(selector);
  OSStatus status = injected(device, asked, FailOn::kRead);
  if (status == noErr) {
    const bool scoped = find(device, asked) != nullptr;
    status = read(device, scoped ? asked : global, "", ioSize_bytes, outData);
  }
  calls.push_back({CallKind::kDeviceGet, device, asked, "", {}, status});
  return status;
}

OSStatus MemoryAudioHardware::AudioHardwareSetProperty(std::uint32_t selector,
                                                       std::uint32_t size_bytes, const void* data) {
  const AudioObjectPropertyAddress address = globalAddress(selector);
  const OSStatus status = write(kAudioObjectSystemObject, address, size_bytes, data);
  calls.push_back({CallKind::kHardwareSet, kAudioObjectSystemObject, address, "",
                   bytesOf(data, size_bytes), status});
  if (status == noErr && onWrite) onWrite(kAudioObjectSystemObject, address);
  return status;
}

OSStatus MemoryAudioHardware::AudioDeviceGetCurrentTime(AudioDeviceID device,
                                                        platform::AudioTimeStamp* outTime) {
  currentTimeCalls.fetch_add(1, std::memory_order_relaxed);
  const auto found = clocks_.find(device);
  if (found == clocks_.end()) return platform::kAudioHardwareNotRunningError;
  if (found->second.status == noErr) *outTime = found->second.time;
  return found->second.status;
}

}  // namespace memory_host
