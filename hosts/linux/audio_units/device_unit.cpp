#include "hosts/linux/audio_units/device_unit.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <system_error>
#include <utility>

#include "hosts/linux/audio_units/speaker_layout.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::AudioBufferList;
using platform::AudioStreamBasicDescription;
using platform::kAudioUnitScope_Global;
using platform::kAudioUnitScope_Input;
using platform::kAudioUnitScope_Output;
using platform::noErr;
using platform::OSStatus;

constexpr std::uint32_t kOutputElement = 0;
constexpr std::uint32_t kInputElement = 1;

constexpr UnitPropertyAddress kInputOn{platform::kAudioOutputUnitProperty_EnableIO,
                                       kAudioUnitScope_Input, kInputElement};
constexpr UnitPropertyAddress kOutputOn{platform::kAudioOutputUnitProperty_EnableIO,
                                        kAudioUnitScope_Output, kOutputElement};
constexpr UnitPropertyAddress kDevice{platform::kAudioOutputUnitProperty_CurrentDevice,
                                      kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kInputCallback{platform::kAudioOutputUnitProperty_SetInputCallback,
                                             kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kRenderCallback{platform::kAudioUnitProperty_SetRenderCallback,
                                              kAudioUnitScope_Input, kOutputElement};
constexpr UnitPropertyAddress kStartsAtZero{
    platform::kAudioOutputUnitProperty_StartTimestampsAtZero, kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress kBufferFrames{platform::kAudioDevicePropertyBufferFrameSize,
                                            kAudioUnitScope_Global, 0};

bool isFormat(const UnitPropertyAddress& address) {
  return address.property == platform::kAudioUnitProperty_StreamFormat &&
         (address.scope == kAudioUnitScope_Input || address.scope == kAudioUnitScope_Output) &&
         address.element <= kInputElement;
}

// The device is behind the input scope of what comes in and the output scope of what goes out; the
// other two are the client's.
bool isDevicesFormat(const UnitPropertyAddress& address) {
  return (address.scope == kAudioUnitScope_Input) == (address.element == kInputElement);
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

DeviceUnit::DeviceUnit(UnitEnvironment environment, bool isDefaultOutput)
    : environment_(environment), isDefaultOutput_(isDefaultOutput) {}

DeviceUnit::~DeviceUnit() {
  DeviceUnit::stop();
}

OSStatus DeviceUnit::initialize() {
  return noErr;  // all memory is taken at the start, when the device is known
}

OSStatus DeviceUnit::uninitialize() {
  return stop();
}

std::optional<DeviceUnit::Device> DeviceUnit::device() {
  std::optional<Device> found;
  const std::string name =
      deviceId_ ? environment_.hardware.nodeName(*deviceId_).value_or("") : std::string();
  environment_.connection.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = deviceId_          ? graph.findNode(name)
                            : isDefaultOutput_ ? graph.defaultSink()
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
  if (address == kInputOn) {
    return isDefaultOutput_ ? platform::kAudioUnitErr_PropertyNotWritable
                            : setFlag(inputEnabled_, data, size_bytes);
  }
  if (address == kOutputOn) {
    return isDefaultOutput_ ? platform::kAudioUnitErr_PropertyNotWritable
                            : setFlag(outputEnabled_, data, size_bytes);
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

OSStatus DeviceUnit::start() {
  if (stream_) return noErr;
  // One stream, one direction.
  if (inputEnabled_ == outputEnabled_) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  const std::optional<Device> bound = device();
  if (!bound || !(isRecording() ? bound->isCapturable : bound->isSink)) {
    return platform::kAudioHardwareBadDeviceError;
  }
  const bool hasPartner = isRecording()
                              ? inputCallback_.inputProc != nullptr
                              : source_ != nullptr || renderCallback_.inputProc != nullptr;
  if (!hasPartner) return platform::kAudioUnitErr_NoConnection;

  const AudioStreamBasicDescription format = clientFormat(*bound);
  DeviceStreamTarget target;
  target.nodeName = bound->nodeName;
  target.isMonitor = isRecording() && bound->isSink;
  const std::size_t from = isRecording() ? bound->positions.size() : format.mChannelsPerFrame;
  const std::size_t into = isRecording() ? format.mChannelsPerFrame : bound->positions.size();
  target.isMixedDown = into < from;
  target.rate_Hz = static_cast<std::uint32_t>(std::lround(format.mSampleRate));
  target.positions = speakerLayout(bound->positions, format.mChannelsPerFrame);
  // Half the buffer that the device tells, so that a block that is captured a cycle after it was
  // played is still within the delay that two buffers make.
  target.cycle_frames = std::max(bound->cycle_frames / 2, 1U);

  isMonitor_ = target.isMonitor;
  rate_Hz_ = format.mSampleRate;
  cycle_frames_ = bound->cycle_frames;
  follower_ = ClockFollower();
  publisher_ = environment_.clocks.claim(bound->id);
  lastCycle_ns_ = 0;
  sampleTime_frames_ = 0;
  lead_frames_ = 0;
  begun_ = false;
  list_ = PlaneList(format.mChannelsPerFrame);
  rendered_ = PlaneList(format.mChannelsPerFrame);
  renderable_frames_ = 0;
  if (isRecording()) environment_.startLine.inputStarts();
  const auto warn = [](const std::string& message) {
    logMessage(LogLevel::kWarning, "Play-through: " + message);
  };
  try {
    stream_ = std::make_unique<DeviceStream>(
        isRecording() ? DeviceStream::Direction::kRecord : DeviceStream::Direction::kPlay,
        std::move(target), *this, warn);
  } catch (const std::system_error& error) {
    warn("It cannot begin: " + error.code().message() + ". Close other programs and start again.");
    publisher_ = DeviceClockTable::Publisher();
    if (isRecording()) environment_.startLine.inputHasStopped();
    return platform::kAudioHardwareUnspecifiedError;
  }
  return noErr;
}

OSStatus DeviceUnit::stop() {
  if (!stream_) return noErr;
  stream_.reset();
  publisher_ = DeviceClockTable::Publisher();
  if (isRecording()) environment_.startLine.inputHasStopped();
  return noErr;
}

void DeviceUnit::process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  followClock(cycle);
  if (isRecording()) {
    record(cycle, planes, frames);
  } else {
    play(cycle, planes, frames);
  }
}

void DeviceUnit::followClock(const GraphCycle& cycle) {
  // A stream that was late finds two blocks in one cycle.
  if (std::exchange(lastCycle_ns_, cycle.host_ns) == cycle.host_ns) return;
  sampleTime_frames_ += std::round(follower_.follow(cycle) * rate_Hz_);
  publisher_.publish({cycle.host_ns, sampleTime_frames_, rate_Hz_, follower_.rateScalar()});
}

platform::AudioTimeStamp DeviceUnit::timeStamp(const GraphCycle& cycle) const {
  platform::AudioTimeStamp time;
  time.mSampleTime = sampleTime_frames_;
  time.mHostTime = cycle.host_ns;
  time.mRateScalar = follower_.rateScalar();
  return time;
}

void DeviceUnit::record(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t done = 0; done < frames;) {
    renderable_frames_ = std::min(frames - done, cycle_frames_);
    for (std::uint32_t channel = 0; channel < rendered_.channels(); ++channel) {
      rendered_.setPlane(channel, planes[channel] + done, renderable_frames_);
    }
    const platform::AudioTimeStamp time = timeStamp(cycle);
    std::uint32_t flags = 0;
    inputCallback_.inputProc(inputCallback_.inputProcRefCon, &flags, &time, kInputElement,
                             renderable_frames_, nullptr);
    done += renderable_frames_;
    sampleTime_frames_ += renderable_frames_;
  }
  renderable_frames_ = 0;
  environment_.startLine.blockDelivered(playedAt_ns(cycle));
}

// The server hands what is played on a device to those who listen to it with the next cycle. Cycles
// as long as the buffer leave no time to make up for that; then the delay is that much longer.
std::uint64_t DeviceUnit::playedAt_ns(const GraphCycle& cycle) const {
  if (!isMonitor_ || cycle.duration_frames > cycle_frames_ / 2) return cycle.host_ns;
  const double duration_ns = static_cast<double>(cycle.duration_frames) * 1e9 / cycle.rate_Hz;
  return cycle.host_ns - static_cast<std::uint64_t>(duration_ns);
}

OSStatus DeviceUnit::render(std::uint32_t*, const platform::AudioTimeStamp&,
                            std::uint32_t busNumber, std::uint32_t frameCount,
                            AudioBufferList& list) {
  if (busNumber != kInputElement) return platform::kAudioUnitErr_InvalidElement;
  if (renderable_frames_ == 0) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  if (frameCount > renderable_frames_) return platform::kAudioUnitErr_TooManyFramesToProcess;
  if (list.mNumberBuffers != rendered_.channels()) return platform::kAudio_ParamError;
  const auto size_bytes = frameCount * static_cast<std::uint32_t>(sizeof(float));
  const platform::AudioBuffer* const buffers = list.mBuffers;
  for (std::uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
    if (buffers[channel].mData == nullptr || buffers[channel].mDataByteSize < size_bytes) {
      return platform::kAudio_ParamError;
    }
  }
  for (std::uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
    std::memcpy(buffers[channel].mData, rendered_.plane(channel), size_bytes);
  }
  return noErr;
}

void DeviceUnit::play(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t channel = 0; channel < list_.channels(); ++channel) {
    std::fill_n(planes[channel], frames, 0.0F);
  }
  if (!hasBegun(cycle)) return;
  pullSource(cycle, planes, frames);
  sampleTime_frames_ += frames + std::exchange(lead_frames_, 0.0);
}

// The first pull is made at time 0 whatever has passed since the input began; the second one finds
// that time gone by.
bool DeviceUnit::hasBegun(const GraphCycle& cycle) {
  if (begun_) return true;
  const std::uint64_t beginning_ns = environment_.startLine.beginningFor(cycle.host_ns);
  if (beginning_ns == 0) return false;
  begun_ = true;
  lead_frames_ = static_cast<double>(cycle.host_ns - beginning_ns) / 1e9 * rate_Hz_;
  return true;
}

void DeviceUnit::pullSource(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t done = 0; done < frames;) {
    const std::uint32_t part_frames = std::min(frames - done, cycle_frames_);
    for (std::uint32_t channel = 0; channel < list_.channels(); ++channel) {
      list_.setPlane(channel, planes[channel] + done, part_frames);
    }
    platform::AudioTimeStamp time = timeStamp(cycle);
    time.mSampleTime += done;
    std::uint32_t flags = 0;
    if (source_ != nullptr) {
      source_->render(&flags, time, 0, part_frames, list_.list());
    } else {
      renderCallback_.inputProc(renderCallback_.inputProcRefCon, &flags, &time, kOutputElement,
                                part_frames, &list_.list());
    }
    done += part_frames;
  }
}

}  // namespace linux_host
