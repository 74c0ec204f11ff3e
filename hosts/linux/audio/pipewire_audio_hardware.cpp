// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_audio_hardware.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>

#include "driver/loopback_protocol.h"
#include "hosts/linux/audio/channel_layout.h"

namespace linux_host {
namespace {

using platform::AudioObjectID;
using platform::AudioObjectPropertyAddress;
using platform::OSStatus;

// Names objects that are not devices; no node has such a name, because node names do not begin with
// a space.
constexpr const char* kLoopbackControl = " loopback control";

// How old a device's clock may be before the device counts as stopped: several times the longest
// cycle of a graph.
constexpr std::uint64_t kClockLifetime_ns = 1'000'000'000;

std::uint64_t monotonic_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

template <typename T>
bool readValue(std::uint32_t size_bytes, const void* data, T* value) {
  if (size_bytes != sizeof(T) || data == nullptr) return false;
  std::memcpy(value, data, sizeof(T));
  return true;
}

bool isInput(const AudioObjectPropertyAddress& address) {
  return address.mScope == platform::kAudioDevicePropertyScopeInput;
}

std::uint32_t safetyOffset_frames(const AudioNode& node) {
  const std::string& headroom = node.property("api.alsa.headroom");
  std::uint32_t frames = 0;
  std::from_chars(headroom.data(), headroom.data() + headroom.size(), frames);
  return frames;
}

// Whether the node has any channels in the scope. The global scope is the side on which it plays or
// records.
bool hasSide(const AudioNode& node, std::uint32_t scope) {
  switch (scope) {
    case platform::kAudioDevicePropertyScopeInput:
      return node.isCapturable();
    case platform::kAudioDevicePropertyScopeOutput:
      return node.isSink();
    default:
      return scope == platform::kAudioObjectPropertyScopeGlobal;
  }
}

bool asksForLoopback(AudioObjectID object, std::uint32_t selector,
                     std::uint32_t qualifierSize_bytes, const void* qualifier) {
  platform::StringRef uid = nullptr;
  return object == platform::kAudioObjectSystemObject &&
         selector == platform::kAudioHardwarePropertyTranslateUIDToDevice &&
         readValue(qualifierSize_bytes, qualifier, &uid) && uid != nullptr &&
         uid->text() == loopback::kLoopbackDeviceUID;
}

}  // namespace

bool PipeWireAudioHardware::AudioObjectHasProperty(AudioObjectID object,
                                                   const AudioObjectPropertyAddress& address) {
  if (object == platform::kAudioObjectSystemObject &&
      address.mSelector == platform::kAudioHardwarePropertyTranslateUIDToDevice) {
    return true;  // for any UID
  }
  return std::holds_alternative<PropertyValue>(valueOf(object, address, 0, nullptr));
}

OSStatus PipeWireAudioHardware::AudioObjectGetPropertyDataSize(
    AudioObjectID object, const AudioObjectPropertyAddress& address,
    std::uint32_t qualifierSize_bytes, const void* qualifier, std::uint32_t* outSize_bytes) {
  const Result result = valueOf(object, address, qualifierSize_bytes, qualifier);
  if (const auto* status = std::get_if<OSStatus>(&result)) return *status;
  *outSize_bytes = std::get<PropertyValue>(result).size_bytes();
  return platform::noErr;
}

OSStatus PipeWireAudioHardware::AudioObjectGetPropertyData(
    AudioObjectID object, const AudioObjectPropertyAddress& address,
    std::uint32_t qualifierSize_bytes, const void* qualifier, std::uint32_t* ioSize_bytes,
    void* outData) {
  const Result result = valueOf(object, address, qualifierSize_bytes, qualifier);
  if (const auto* status = std::get_if<OSStatus>(&result)) return *status;
  return std::get<PropertyValue>(result).copyTo(ioSize_bytes, outData);
}

OSStatus PipeWireAudioHardware::AudioDeviceGetProperty(platform::AudioDeviceID device,
                                                       std::uint32_t channel, bool isInputSide,
                                                       std::uint32_t selector,
                                                       std::uint32_t* ioSize_bytes, void* outData) {
  const std::uint32_t scope = isInputSide ? platform::kAudioDevicePropertyScopeInput
                                          : platform::kAudioDevicePropertyScopeOutput;
  return AudioObjectGetPropertyData(device, {selector, scope, channel}, 0, nullptr, ioSize_bytes,
                                    outData);
}

PipeWireAudioHardware::Result PipeWireAudioHardware::valueOf(
    AudioObjectID object, const AudioObjectPropertyAddress& address,
    std::uint32_t qualifierSize_bytes, const void* qualifier) {
  Result result = platform::kAudioHardwareBadObjectError;
  if (asksForLoopback(object, address.mSelector, qualifierSize_bytes, qualifier)) {
    connection_.awaitLoopbackDriver();
  }
  const bool isThere = connection_.withGraph([&](const AudioGraph& graph) {
    if (address.mElement != platform::kAudioObjectPropertyElementMaster) {
      result = platform::kAudioHardwareUnknownPropertyError;
      return;
    }
    if (object == platform::kAudioObjectSystemObject) {
      result = systemValue(graph, address.mSelector, qualifierSize_bytes, qualifier);
      return;
    }
    const std::string name = ids_.nameOf(object).value_or("");
    if (name == kLoopbackControl) {
      result = platform::kAudioHardwareUnknownPropertyError;  // it can only be set
    } else if (const AudioNode* node = graph.findNode(name)) {
      result = deviceValue(graph, *node, address);
    } else if (name == loopback::kLoopbackDeviceUID && graph.loopbackState.driverVersion()) {
      result = hiddenLoopbackValue(graph, address.mSelector);
    }
  });
  if (!isThere) return platform::kAudioHardwareNotRunningError;
  return result;
}

PipeWireAudioHardware::Result PipeWireAudioHardware::systemValue(const AudioGraph& graph,
                                                                 std::uint32_t selector,
                                                                 std::uint32_t qualifierSize_bytes,
                                                                 const void* qualifier) {
  const auto idOrUnknown = [&](const AudioNode* node) {
    return PropertyValue::scalar(node == nullptr ? platform::kAudioObjectUnknown
                                                 : ids_.idOf(node->name));
  };
  switch (selector) {
    case platform::kAudioHardwarePropertyDevices: {
      std::vector<platform::AudioDeviceID> devices;
      for (const AudioNode* node : graph.audioDevices()) {
        const platform::AudioDeviceID id = ids_.idOf(node->name);
        if (std::find(devices.begin(), devices.end(), id) == devices.end()) devices.push_back(id);
      }
      return PropertyValue::list(devices);
    }
    case platform::kAudioHardwarePropertyDefaultInputDevice:
      return idOrUnknown(graph.defaultSource());
    case platform::kAudioHardwarePropertyDefaultOutputDevice:
      return idOrUnknown(graph.defaultSink());
    case platform::kAudioHardwarePropertyTranslateUIDToDevice:
      return deviceWithUID(graph, qualifierSize_bytes, qualifier);
    default:
      return platform::kAudioHardwareUnknownPropertyError;
  }
}

PipeWireAudioHardware::Result PipeWireAudioHardware::deviceWithUID(
    const AudioGraph& graph, std::uint32_t qualifierSize_bytes, const void* qualifier) {
  platform::StringRef uid = nullptr;
  if (!readValue(qualifierSize_bytes, qualifier, &uid) || uid == nullptr) {
    return platform::kAudioHardwareBadPropertySizeError;
  }
  const bool isHiddenLoopback = uid->text() == loopback::kLoopbackDeviceUID &&
                                graph.loopbackState.driverVersion().has_value();
  const bool isThere = isHiddenLoopback || graph.findNode(uid->text()) != nullptr;
  return PropertyValue::scalar(isThere ? ids_.idOf(uid->text()) : platform::kAudioObjectUnknown);
}

PipeWireAudioHardware::Result PipeWireAudioHardware::hiddenLoopbackValue(const AudioGraph& graph,
                                                                         std::uint32_t selector) {
  switch (selector) {
    case platform::kAudioDevicePropertyDeviceUID:
      return PropertyValue::string(loopback::kLoopbackDeviceUID);
    case platform::kAudioDevicePropertyDeviceManufacturerCFString:
      return PropertyValue::string(*graph.loopbackState.driverVersion());
    case platform::kAudioObjectPropertyControlList:
      return controlList(graph);
    default:
      return platform::kAudioHardwareUnknownPropertyError;
  }
}

PipeWireAudioHardware::Result PipeWireAudioHardware::deviceValue(
    const AudioGraph& graph, const AudioNode& node, const AudioObjectPropertyAddress& address) {
  const bool isThisSide = hasSide(node, address.mScope);
  switch (address.mSelector) {
    case platform::kAudioDevicePropertyDeviceUID:
      return PropertyValue::string(node.name);
    case platform::kAudioDevicePropertyDeviceManufacturerCFString:
      return PropertyValue::string(graph.manufacturer(node));
    case platform::kAudioDevicePropertyStreamConfiguration: {
      const std::size_t channels = isThisSide ? graph.channelPositions(node).size() : 0;
      return PropertyValue::bytes(streamConfiguration(static_cast<std::uint32_t>(channels)));
    }
    case platform::kAudioDevicePropertyVolumeScalar:
    case platform::kAudioDevicePropertyMute:
      return volumeOrMute(graph, node, address);
    case platform::kAudioDevicePropertyActualSampleRate:
      return PropertyValue::scalar(actualRate_Hz(graph, node));
    case platform::kAudioDevicePropertyNominalSampleRate:
      return PropertyValue::scalar(static_cast<double>(graph.deviceRate_Hz(node)));
    case platform::kAudioDevicePropertyPreferredChannelLayout:
      if (!isThisSide) return platform::kAudioHardwareUnknownPropertyError;
      return PropertyValue::bytes(channelLayout(graph.channelPositions(node)));
    case platform::kAudioDevicePropertyBufferFrameSize:
      return PropertyValue::scalar(graph.graphQuantum_frames());
    case platform::kAudioDevicePropertySafetyOffset:
      return PropertyValue::scalar(safetyOffset_frames(node));
    case platform::kAudioObjectPropertyControlList:
      if (!node.isLoopback()) return platform::kAudioHardwareUnknownPropertyError;
      return controlList(graph);
    default:
      return platform::kAudioHardwareUnknownPropertyError;
  }
}

double PipeWireAudioHardware::actualRate_Hz(const AudioGraph& graph, const AudioNode& node) const {
  const std::uint32_t running_Hz = runningRate_Hz_ ? runningRate_Hz_(node.name) : 0;
  return running_Hz != 0 ? running_Hz : graph.deviceRate_Hz(node);
}

PipeWireAudioHardware::Result PipeWireAudioHardware::volumeOrMute(
    const AudioGraph& graph, const AudioNode& node, const AudioObjectPropertyAddress& address) {
  const Levels& levels = graph.levels(node);
  // The loopback device's volume affects what is heard, not what is recorded.
  const bool applies = hasSide(node, address.mScope) && !(node.isLoopback() && isInput(address));
  if (applies && address.mSelector == platform::kAudioDevicePropertyMute && levels.mute) {
    return PropertyValue::scalar(std::uint32_t{*levels.mute ? 1U : 0U});
  }
  if (applies && address.mSelector == platform::kAudioDevicePropertyVolumeScalar &&
      !levels.channelVolumes.empty()) {
    return PropertyValue::scalar(
        *std::max_element(levels.channelVolumes.begin(), levels.channelVolumes.end()));
  }
  return platform::kAudioHardwareUnknownPropertyError;
}

PipeWireAudioHardware::Result PipeWireAudioHardware::controlList(const AudioGraph& graph) {
  std::vector<AudioObjectID> controls;
  if (graph.loopbackState.driverVersion()) controls.push_back(ids_.idOf(kLoopbackControl));
  return PropertyValue::list(controls);
}

OSStatus PipeWireAudioHardware::AudioObjectSetPropertyData(
    AudioObjectID object, const AudioObjectPropertyAddress& address, std::uint32_t, const void*,
    std::uint32_t size_bytes, const void* data) {
  if (object == platform::kAudioObjectSystemObject) {
    return AudioHardwareSetProperty(address.mSelector, size_bytes, data);
  }
  const std::string name = ids_.nameOf(object).value_or("");
  if (name.empty()) return platform::kAudioHardwareBadObjectError;
  if (name != kLoopbackControl) return platform::kAudioHardwareIllegalOperationError;
  if (address.mSelector != platform::kAudioBooleanControlPropertyValue) {
    return platform::kAudioHardwareUnknownPropertyError;
  }
  std::uint32_t value = 0;
  if (!readValue(size_bytes, data, &value)) return platform::kAudioHardwareBadPropertySizeError;
  return requestLoopback(value);
}

OSStatus PipeWireAudioHardware::requestLoopback(std::uint32_t value) {
  if (value != loopback::kLoopbackRequestShow && value != loopback::kLoopbackRequestHide) {
    return platform::kAudioHardwareIllegalOperationError;
  }
  bool hasDriver = false;
  connection_.withGraph([&](const AudioGraph& graph) {
    hasDriver = graph.loopbackState.driverVersion().has_value();
  });
  if (!hasDriver) return platform::kAudioHardwareBadObjectError;
  const bool isSent = connection_.requestLoopback(value == loopback::kLoopbackRequestShow);
  return isSent ? platform::noErr : platform::kAudioHardwareNotRunningError;
}

OSStatus PipeWireAudioHardware::AudioHardwareSetProperty(std::uint32_t selector,
                                                         std::uint32_t size_bytes,
                                                         const void* data) {
  if (selector != platform::kAudioHardwarePropertyDefaultOutputDevice) {
    return platform::kAudioHardwareUnknownPropertyError;
  }
  platform::AudioDeviceID device = platform::kAudioObjectUnknown;
  if (!readValue(size_bytes, data, &device)) return platform::kAudioHardwareBadPropertySizeError;
  const std::string name = ids_.nameOf(device).value_or("");
  bool isSink = false;
  const bool isThere = connection_.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = graph.findNode(name);
    isSink = node != nullptr && node->isSink();
  });
  if (!isThere) return platform::kAudioHardwareNotRunningError;
  if (!isSink) return platform::kAudioHardwareBadDeviceError;
  return connection_.setConfiguredDefaultSink(name) ? platform::noErr
                                                    : platform::kAudioHardwareUnspecifiedError;
}

OSStatus PipeWireAudioHardware::AudioDeviceGetCurrentTime(platform::AudioDeviceID device,
                                                          platform::AudioTimeStamp* outTime) {
  const std::optional<DeviceClock> clock = clocks_.read(device);
  // Reading the clock is not a system call: the kernel maps it into every process.
  const std::uint64_t now_ns = monotonic_ns();
  if (!clock || now_ns > clock->host_ns + kClockLifetime_ns) {
    return platform::kAudioHardwareNotRunningError;
  }
  // The cycle's time may be later than the moment at which its clock was published.
  const double passed_s = (static_cast<double>(now_ns) - static_cast<double>(clock->host_ns)) / 1e9;
  *outTime = platform::AudioTimeStamp{};
  outTime->mSampleTime = clock->sampleTime + passed_s * clock->rate_Hz * clock->rateScalar;
  outTime->mHostTime = now_ns;
  outTime->mRateScalar = clock->rateScalar;
  return platform::noErr;
}

std::optional<std::string> PipeWireAudioHardware::nodeName(platform::AudioDeviceID device) const {
  std::optional<std::string> name = ids_.nameOf(device);
  if (name && *name == kLoopbackControl) return std::nullopt;
  return name;
}

}  // namespace linux_host
