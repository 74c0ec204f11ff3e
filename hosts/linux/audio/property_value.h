// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/audio_hardware.h"

namespace linux_host {

// The value of one property, which copyTo() copies out by the rules of the property calls.
class PropertyValue {
 public:
  // A number, which is copied completely or not at all.
  template <typename T>
  static PropertyValue scalar(T value) {
    static_assert(std::is_arithmetic_v<T>);
    PropertyValue result(Kind::kScalar);
    result.bytes_.resize(sizeof value);
    std::memcpy(result.bytes_.data(), &value, sizeof value);
    return result;
  }
  // A record, which is copied completely or not at all.
  template <typename T>
  static PropertyValue record(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    PropertyValue result(Kind::kScalar);
    result.bytes_.resize(sizeof value);
    std::memcpy(result.bytes_.data(), &value, sizeof value);
    return result;
  }
  static PropertyValue string(std::string text) {
    PropertyValue result(Kind::kString);
    result.text_ = std::move(text);
    return result;
  }
  // A list or layout, which may be cut to the reader's size.
  static PropertyValue bytes(std::vector<std::byte> value) {
    PropertyValue result(Kind::kBytes);
    result.bytes_ = std::move(value);
    return result;
  }
  template <typename T>
  static PropertyValue list(const std::vector<T>& values) {
    static_assert(std::is_trivially_copyable_v<T>);
    const auto raw = std::as_bytes(std::span(values));
    return bytes({raw.begin(), raw.end()});
  }

  [[nodiscard]] std::uint32_t size_bytes() const {
    return kind_ == Kind::kString ? sizeof(platform::StringRef)
                                  : static_cast<std::uint32_t>(bytes_.size());
  }

  // Copies the value as AudioObjectGetPropertyData() does. A string becomes a reference that the
  // caller owns.
  platform::OSStatus copyTo(std::uint32_t* ioSize_bytes, void* outData) const {
    if (*ioSize_bytes < size_bytes() && kind_ != Kind::kBytes) {
      return platform::kAudioHardwareBadPropertySizeError;
    }
    if (kind_ == Kind::kString) {
      const platform::StringRef reference = platform::StringObject::create(text_);
      std::memcpy(outData, &reference, sizeof reference);
      *ioSize_bytes = sizeof reference;
      return platform::noErr;
    }
    const std::uint32_t copied = std::min(*ioSize_bytes, size_bytes());
    if (copied > 0) std::memcpy(outData, bytes_.data(), copied);
    *ioSize_bytes = copied;
    return platform::noErr;
  }

 private:
  enum class Kind { kScalar, kString, kBytes };
  explicit PropertyValue(Kind kind) : kind_(kind) {}

  Kind kind_;
  std::vector<std::byte> bytes_;
  std::string text_;
};

}  // namespace linux_host
