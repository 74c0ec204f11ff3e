// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/device_unit.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

#include "hosts/linux/audio_units/speaker_layout.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::AudioStreamBasicDescription;
using platform::kAudioUnitScope_Global;
using platform::kAudioUnitScope_Input;
using platform::kAudioUnitScope_Output;
using platform::noErr;
using platform::OSStatus;

constexpr UnitPropertyAddress kInputOn{platform::kAudioOutputUnitProperty_EnableIO,
                                       kAudioUnitScope_Input, kDeviceInputElement};
constexpr UnitPropertyAddress kOutputOn{platform::kAudioOutputUnitProperty_EnableIO,
                                        kAudioUnitScope_Output, kDeviceOutputElement};
constexpr UnitPropertyAddress kDevice{platform::kAudioOutputUnitProperty_CurrentDevice,
                                      kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kInputCallback{platform::kAudioOutputUnitProperty_SetInputCallback,
                                             kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kRenderCallback{platform::kAudioUnitProperty_SetRenderCallback,
                                              kAudioUnitScope_Input, kDeviceOutputElement};
constexpr UnitPropertyAddress kStartsAtZero{
    platform::kAudioOutputUnitProperty_StartTimestampsAtZero, kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kBufferFrames{platform::kAudioDevicePropertyBufferFrameSize,
                                            kAudioUnitScope_Global, 0};

bool isFormat(const UnitPropertyAddress& address) {
  return address.property == platform::kAudioUnitProperty_StreamFormat &&
         (address.scope == kAudioUnitScope_Input || address.scope == kAudioUnitScope_Output) &&
         address.element <= kDeviceInputElement;
}

// The device's format is in the input scope of the input element and the output scope of the output
// element; the other two belong to the client.
bool isDevicesFormat(const UnitPropertyAddress& address) {
  return (address.scope == kAudioUnitScope_Input) == (address.element == kDeviceInputElement);
}

std::uint32_t flag(bool value) {
  return value ? 1U : 0U;
}

}  // namespace

struct DeviceUnit::Device {
  platform::AudioDeviceID id = 0;
  std::string nodeName;
  bool isSink = false;
  bool isCapturable = false;
  std::uint32_t rate_Hz = 0;
  std::vector<std::uint32_t> positions;
  std::uint32_t cycle_frames = 0;
};

DeviceUnit::DeviceUnit(UnitEnvironment environment, Kind kind)
    : environment_(environment), kind_(kind) {}

DeviceUnit::~DeviceUnit() {
  DeviceUnit::stop();
}

OSStatus DeviceUnit::initialize() {
  return noErr;  // memory is allocated at the start, when the device is known
}

OSStatus DeviceUnit::uninitialize() {
  return stop();
}

std::optional<DeviceUnit::Device> DeviceUnit::device() {
  std::optional<Device> found;
  const std::string name =
      deviceId_ ? environment_.hardware.nodeName(*deviceId_).value_or("") : std::string();
  environment_.connection.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = deviceId_                       ? graph.findNode(name)
                            : kind_ == Kind::kDefaultOutput ? graph.defaultSink()
                                                            : nullptr;
    if (node == nullptr) return;
    found = Device{0,
                   node->name,
                   node->isSink(),
                   node->isCapturable(),
                   graph.deviceRate_Hz(*node),
                   graph.channelPositions(*node),
                   graph.graphQuantum_frames()};
  });
  if (found) found->id = environment_.hardware.deviceId(found->nodeName);
  return found;
}

OSStatus DeviceUnit::setProperty(const UnitPropertyAddress& address, const void* data,
                                 std::uint32_t size_bytes) {
  if (stream_) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  if (address == kInputOn || address == kOutputOn) {
    if (kind_ == Kind::kDefaultOutput) return platform::kAudioUnitErr_PropertyNotWritable;
    return setFlag(address == kInputOn ? inputEnabled_ : outputEnabled_, data, size_bytes);
  }
  if (address == kStartsAtZero) return setFlag(startsAtZero_, data, size_bytes);
  if (address == kDevice) return setDevice(data, size_bytes);
  if (address == kBufferFrames) return platform::kAudioUnitErr_PropertyNotWritable;
  if (isFormat(address)) {
    return isDevicesFormat(address) ? platform::kAudioUnitErr_PropertyNotWritable
                                    : setClientFormat(data, size_bytes);
  }
  const bool isInputCallback = address == kInputCallback;
  if (!isInputCallback && address != kRenderCallback) {
    return platform::kAudioUnitErr_InvalidProperty;
  }
  return readProperty(data, size_bytes, isInputCallback ? &inputCallback_ : &renderCallback_)
             ? noErr
             : platform::kAudioUnitErr_InvalidPropertyValue;
}

OSStatus DeviceUnit::setFlag(bool& value, const void* data, std::uint32_t size_bytes) {
  std::uint32_t number = 0;
  if (!readProperty(data, size_bytes, &number)) {
    return platform::kAudioUnitErr_InvalidPropertyValue;
  }
  value = number != 0;
  return noErr;
}

OSStatus DeviceUnit::setDevice(const void* data, std::uint32_t size_bytes) {
  platform::AudioDeviceID id = 0;
  if (!readProperty(data, size_bytes, &id)) return platform::kAudioUnitErr_InvalidPropertyValue;
  const auto before = std::exchange(deviceId_, id);
  if (device()) return noErr;
  deviceId_ = before;
  return platform::kAudioHardwareBadDeviceError;
}

OSStatus DeviceUnit::setClientFormat(const void* data, std::uint32_t size_bytes) {
  AudioStreamBasicDescription format;
  if (!readProperty(data, size_bytes, &format)) {
    return platform::kAudioUnitErr_InvalidPropertyValue;
  }
  if (!isPlanarFloat(format)) return platform::kAudioUnitErr_FormatNotSupported;
  clientFormat_ = format;
  return noErr;
}

AudioStreamBasicDescription DeviceUnit::clientFormat(const Device& device) const {
  return clientFormat_.value_or(
      platform::planarFloat(device.rate_Hz, static_cast<std::uint32_t>(device.positions.size())));
}

Unit::Value DeviceUnit::property(const UnitPropertyAddress& address) {
  if (address == kInputOn) return PropertyValue::scalar(flag(inputEnabled_));
  if (address == kOutputOn) return PropertyValue::scalar(flag(outputEnabled_));
  if (address == kStartsAtZero) return PropertyValue::scalar(flag(startsAtZero_));
  if (address != kDevice && address != kBufferFrames && !isFormat(address)) {
    return platform::kAudioUnitErr_InvalidProperty;
  }
  const std::optional<Device> bound = device();
  if (!bound) return platform::kAudioHardwareBadDeviceError;
  if (address == kDevice) return PropertyValue::scalar(bound->id);
  if (address == kBufferFrames) return PropertyValue::scalar(bound->cycle_frames);
  if (!isDevicesFormat(address)) return PropertyValue::record(clientFormat(*bound));
  return PropertyValue::record(
      platform::planarFloat(bound->rate_Hz, static_cast<std::uint32_t>(bound->positions.size())));
}

OSStatus DeviceUnit::connect(Unit* source) {
  if (stream_) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  source_ = source;
  return noErr;
}

std::optional<DeviceStream::Direction> DeviceUnit::direction() const {
  if (inputEnabled_ == outputEnabled_) return std::nullopt;
  return inputEnabled_ ? DeviceStream::Direction::kRecord : DeviceStream::Direction::kPlay;
}

DeviceStreamTarget DeviceUnit::target(const Device& device, DeviceStream::Direction direction,
                                      const AudioStreamBasicDescription& format) const {
  const bool isInput = direction == DeviceStream::Direction::kRecord;
  const std::size_t from = isInput ? device.positions.size() : format.mChannelsPerFrame;
  const std::size_t into = isInput ? format.mChannelsPerFrame : device.positions.size();
  DeviceStreamTarget target;
  target.nodeName = device.nodeName;
  target.isMonitor = isInput && device.isSink;
  target.isMixedDown = into < from;
  target.rate_Hz = static_cast<std::uint32_t>(std::lround(format.mSampleRate));
  target.positions = speakerLayout(device.positions, format.mChannelsPerFrame);
  // Half the buffer that the device reports, so that a block captured one cycle after it was played
  // still stays within the delay of two buffers.
  target.cycle_frames = std::max(device.cycle_frames / 2, 1U);
  return target;
}

OSStatus DeviceUnit::start() {
  if (stream_) return noErr;
  const auto towards = direction();
  if (!towards) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  const bool isInput = *towards == DeviceStream::Direction::kRecord;
  const std::optional<Device> bound = device();
  if (!bound || !(isInput ? bound->isCapturable : bound->isSink)) {
    return platform::kAudioHardwareBadDeviceError;
  }
  const bool hasPartner = isInput ? inputCallback_.inputProc != nullptr
                                  : source_ != nullptr || renderCallback_.inputProc != nullptr;
  if (!hasPartner) return platform::kAudioUnitErr_NoConnection;

  const AudioStreamBasicDescription format = clientFormat(*bound);
  const DeviceStreamTarget target = this->target(*bound, *towards, format);
  const DeviceRun::Setup setup{environment_.clocks, environment_.startLine,   bound->id,
                               format.mSampleRate,  format.mChannelsPerFrame, bound->cycle_frames};
  if (isInput) {
    run_ = std::make_unique<InputRun>(setup, target.isMonitor, inputCallback_);
  } else {
    run_ = std::make_unique<OutputRun>(setup, source_, renderCallback_);
  }
  stream_ = std::make_unique<DeviceStream>(*towards, target, *run_, [](const std::string& message) {
    logMessage(LogLevel::kWarning, "Play-through: " + message);
  });
  return noErr;
}

OSStatus DeviceUnit::stop() {
  stream_.reset();
  run_.reset();
  return noErr;
}

OSStatus DeviceUnit::render(std::uint32_t*, const platform::AudioTimeStamp&,
                            std::uint32_t busNumber, std::uint32_t frameCount,
                            platform::AudioBufferList& list) {
  if (busNumber != kDeviceInputElement) return platform::kAudioUnitErr_InvalidElement;
  if (!run_) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  return run_->render(frameCount, list);
}

}  // namespace linux_host
