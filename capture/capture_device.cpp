// SPDX-License-Identifier: MIT
#include "capture/capture_device.h"

#include <locale>

#include "shared/auxiliary.h"

namespace record_audio {
namespace {

// The names looked for are plain ASCII, so lowering only those letters finds them all.
std::string lowerCased(std::string text) {
  for (char& character : text) character = std::tolower(character, std::locale::classic());
  return text;
}

}  // namespace

bool CaptureDevice::isFaceTime(const std::string& name) {
  return name.find("facetime") != std::string::npos || name.find("isight") != std::string::npos ||
         name.find("built-in") != std::string::npos;
}

bool CaptureDevice::isBuiltInMic(const platform::CaptureDevice& device) {
  return device.manufacturer() == platform::kBuiltInManufacturer;
}

std::string CaptureDevice::getMicName(const platform::CaptureDevice& device) {
  const auto source = device.activeInputSource();
  return source ? device.localizedName() + " (" + *source + ")" : device.localizedName();
}

std::vector<CaptureDevice> CaptureDevice::enumerateMics(const platform::Host& host) {
  const auto devices = host.capture.devicesWithMediaType(platform::MediaType::kAudio);
  std::vector<CaptureDevice> mics;
  for (const bool builtIn : {true, false}) {
    for (const auto& device : devices) {
      if (isBuiltInMic(*device) == builtIn && device->uniqueID() != kLoopbackDeviceUID) {
        mics.emplace_back(device->uniqueID(), getMicName(*device));
      }
    }
  }
  return mics;
}

std::vector<CaptureDevice> CaptureDevice::enumerateCameras(const platform::Host& host) {
  if (Auxiliary::isCameraBlocked(host)) return {};
  const auto devices = host.capture.devicesWithMediaType(platform::MediaType::kVideo);
  std::vector<CaptureDevice> cameras;
  for (const bool builtIn : {true, false}) {
    for (const auto& device : devices) {
      if (isFaceTime(lowerCased(device->localizedName())) == builtIn) {
        cameras.emplace_back(device->uniqueID(), device->localizedName());
      }
    }
  }
  return cameras;
}

}  // namespace record_audio
