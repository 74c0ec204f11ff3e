// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/audio_types.h"

// The audio hardware as a tree of objects with properties. A property is addressed by selector,
// scope and element, and is read and written as raw bytes; a property that holds a string is read
// as the 8 bytes of a StringRef, which the reader then owns.

namespace platform {

using AudioObjectID = std::uint32_t;
using AudioDeviceID = AudioObjectID;

inline constexpr AudioObjectID kAudioObjectUnknown = 0;
inline constexpr AudioObjectID kAudioObjectSystemObject = 1;

struct AudioObjectPropertyAddress {
  std::uint32_t mSelector;
  std::uint32_t mScope;
  std::uint32_t mElement;
  friend bool operator==(const AudioObjectPropertyAddress&,
                         const AudioObjectPropertyAddress&) = default;
};

inline constexpr std::uint32_t kAudioObjectPropertyScopeGlobal = fourCharCode("glob");
inline constexpr std::uint32_t kAudioDevicePropertyScopeInput = fourCharCode("inpt");
inline constexpr std::uint32_t kAudioDevicePropertyScopeOutput = fourCharCode("outp");
inline constexpr std::uint32_t kAudioObjectPropertyElementMaster = 0;

// System object. Each value's type stands beside its selector.
inline constexpr std::uint32_t kAudioHardwarePropertyDevices =
    fourCharCode("dev#");  // AudioDeviceID[]
inline constexpr std::uint32_t kAudioHardwarePropertyDefaultInputDevice =
    fourCharCode("dIn ");  // AudioDeviceID
inline constexpr std::uint32_t kAudioHardwarePropertyDefaultOutputDevice =
    fourCharCode("dOut");  // AudioDeviceID
inline constexpr std::uint32_t kAudioHardwarePropertyTranslateUIDToDevice =
    fourCharCode("uidd");  // qualifier StringRef, AudioDeviceID

// Devices.
inline constexpr std::uint32_t kAudioDevicePropertyDeviceUID = fourCharCode("uid ");  // StringRef
inline constexpr std::uint32_t kAudioDevicePropertyDeviceManufacturerCFString =
    fourCharCode("lmak");  // StringRef
inline constexpr std::uint32_t kAudioDevicePropertyStreamConfiguration =
    fourCharCode("slay");  // AudioBufferList, data pointers null
inline constexpr std::uint32_t kAudioDevicePropertyVolumeScalar =
    fourCharCode("volm");  // float, 0 (silence) to 1; free for the host: what lies between
inline constexpr std::uint32_t kAudioDevicePropertyMute = fourCharCode("mute");  // uint32
inline constexpr std::uint32_t kAudioDevicePropertyActualSampleRate =
    fourCharCode("asrt");  // double, Hz
inline constexpr std::uint32_t kAudioDevicePropertyNominalSampleRate =
    fourCharCode("nsrt");  // double, Hz
inline constexpr std::uint32_t kAudioDevicePropertyPreferredChannelLayout =
    fourCharCode("srnd");  // AudioChannelLayout
inline constexpr std::uint32_t kAudioDevicePropertyBufferFrameSize =
    fourCharCode("fsiz");  // uint32, frames
inline constexpr std::uint32_t kAudioDevicePropertySafetyOffset =
    fourCharCode("saft");  // uint32, frames
inline constexpr std::uint32_t kAudioObjectPropertyControlList =
    fourCharCode("ctrl");  // AudioObjectID[]

// Controls. Free for the host: which devices have any; the loopback device has one.
inline constexpr std::uint32_t kAudioBooleanControlPropertyValue = fourCharCode("bcvl");  // uint32

inline constexpr OSStatus kAudioHardwareUnspecifiedError = fourCharCode("what");
inline constexpr OSStatus kAudioHardwareNotRunningError = fourCharCode("stop");
inline constexpr OSStatus kAudioHardwareUnknownPropertyError = fourCharCode("who?");
inline constexpr OSStatus kAudioHardwareBadPropertySizeError = fourCharCode("!siz");
inline constexpr OSStatus kAudioHardwareIllegalOperationError = fourCharCode("nope");
inline constexpr OSStatus kAudioHardwareBadObjectError = fourCharCode("!obj");
inline constexpr OSStatus kAudioHardwareBadDeviceError = fourCharCode("!dev");

// A string as it travels through a property: as 8 bytes that refer to it. It has one owner.
class StringObject;
using StringRef = const StringObject*;

class StringObject {
 public:
  // The caller owns the string.
  static StringRef create(std::string text) { return new StringObject(std::move(text)); }
  // Called by the owner; null is allowed. Any thread, not from an audio callback.
  static void release(StringRef string) { delete string; }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  explicit StringObject(std::string text) : text_(std::move(text)) {}
  ~StringObject() = default;
  std::string text_;
};
static_assert(sizeof(StringRef) == 8);

struct StringRefRelease {
  void operator()(StringRef string) const { StringObject::release(string); }
};
using OwnedString = std::unique_ptr<const StringObject, StringRefRelease>;

// Main thread, except AudioDeviceGetCurrentTime(). No call waits for the audio server without a
// limit: a server that does not answer reads as an error. A call without a qualifier gives it the
// size 0 and null.
class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  virtual bool AudioObjectHasProperty(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address) = 0;
  // The size of the value in bytes as it is now; on an error *outSize_bytes is not to be used.
  virtual OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object,
                                                  const AudioObjectPropertyAddress& address,
                                                  std::uint32_t qualifierSize_bytes,
                                                  const void* qualifier,
                                                  std::uint32_t* outSize_bytes) = 0;
  // Copies at most *ioSize_bytes of the value to `outData` and sets *ioSize_bytes to what was
  // copied. Lists and channel layouts may be cut to the room there is; a scalar or string that
  // does not fit is kAudioHardwareBadPropertySizeError. On an error `outData` is left alone.
  virtual OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              std::uint32_t qualifierSize_bytes,
                                              const void* qualifier, std::uint32_t* ioSize_bytes,
                                              void* outData) = 0;
  // Writes the whole value.
  virtual OSStatus AudioObjectSetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              std::uint32_t qualifierSize_bytes,
                                              const void* qualifier, std::uint32_t size_bytes,
                                              const void* data) = 0;

  // The older, address-less calls, with the same rules; `channel` 0 is the device as a whole.
  virtual OSStatus AudioDeviceGetProperty(AudioDeviceID device, std::uint32_t channel, bool isInput,
                                          std::uint32_t selector, std::uint32_t* ioSize_bytes,
                                          void* outData) = 0;
  virtual OSStatus AudioHardwareSetProperty(std::uint32_t selector, std::uint32_t size_bytes,
                                            const void* data) = 0;

  // The device's clock now. REAL-TIME: called from audio callbacks; allocates nothing, takes no
  // lock, makes no system call. kAudioHardwareNotRunningError while the device does not run.
  virtual OSStatus AudioDeviceGetCurrentTime(AudioDeviceID device, AudioTimeStamp* outTime) = 0;
};

}  // namespace platform
