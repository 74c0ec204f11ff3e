// SPDX-License-Identifier: MIT
#include "routing/audio_play_through.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "platform/resident_memory.h"
#include "shared/loopback_device.h"

namespace record_audio {

using platform::AudioBufferList;
using platform::AudioObjectPropertyAddress;
using platform::AudioStreamBasicDescription;
using platform::AudioTimeStamp;
using platform::AudioUnit;
using platform::kAudioUnitScope_Global;
using platform::kAudioUnitScope_Input;
using platform::kAudioUnitScope_Output;
using platform::noErr;
using platform::OSStatus;

namespace {

constexpr OSStatus kNoMemory = -620;
constexpr std::uint32_t kRingCapacity_buffers = 20;

// The two sides of an input/output unit.
constexpr std::uint32_t kOutputElement = 0;
constexpr std::uint32_t kInputElement = 1;

// Truncated toward zero. What does not fit into 64 bits becomes the largest or the smallest number;
// what is not a number, the smallest.
std::int64_t truncated(double value) {
  constexpr double kLimit = 9223372036854775808.0;
  if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
  return value > -kLimit ? static_cast<std::int64_t>(value)
                         : std::numeric_limits<std::int64_t>::min();
}

void silence(const AudioBufferList& list) {
  const platform::AudioBuffer* const buffers = list.mBuffers;
  for (std::uint32_t i = 0; i < list.mNumberBuffers; ++i) {
    std::memset(buffers[i].mData, 0, buffers[i].mDataByteSize);
  }
}

template <typename T>
OSStatus set(platform::AudioUnits& units, AudioUnit unit, std::uint32_t property,
             std::uint32_t scope, std::uint32_t element, const T& value) {
  return units.AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
}

template <typename T>
OSStatus get(platform::AudioUnits& units, AudioUnit unit, std::uint32_t property,
             std::uint32_t scope, std::uint32_t element, T& value) {
  std::uint32_t size_bytes = sizeof value;
  return units.AudioUnitGetProperty(unit, property, scope, element, &value, &size_bytes);
}

template <typename T>
OSStatus get(platform::AudioHardware& hardware, platform::AudioObjectID object,
             std::uint32_t selector, std::uint32_t scope, T& value) {
  std::uint32_t size_bytes = sizeof value;
  const AudioObjectPropertyAddress address{selector, scope,
                                           platform::kAudioObjectPropertyElementMaster};
  return hardware.AudioObjectGetPropertyData(object, address, 0, nullptr, &size_bytes, &value);
}

OSStatus nominalRate(platform::AudioHardware& hardware, platform::AudioDeviceID device,
                     double& rate_hz) {
  return get(hardware, device, platform::kAudioDevicePropertyNominalSampleRate,
             platform::kAudioObjectPropertyScopeGlobal, rate_hz);
}

// Runs the steps in order up to the first one that fails, and returns its status.
template <typename... Steps>
OSStatus inOrder(Steps... steps) {
  OSStatus status = noErr;
  static_cast<void>(((status = steps(), status == noErr) && ...));
  return status;
}

}  // namespace

struct AudioPlayThrough::Formats {
  AudioStreamBasicDescription loopback;
  AudioStreamBasicDescription client;
  AudioStreamBasicDescription real;
  std::uint32_t buffer_frames{};
};

bool PlayThroughDevice::initDevice(platform::AudioHardware& hardware,
                                   platform::AudioDeviceID device, bool isInput) {
  deviceID = device;
  const std::uint32_t scope = isInput ? platform::kAudioDevicePropertyScopeInput
                                      : platform::kAudioDevicePropertyScopeOutput;
  if (get(hardware, device, platform::kAudioDevicePropertySafetyOffset, scope, safetyOffset) !=
      noErr) {
    return false;
  }
  return get(hardware, device, platform::kAudioDevicePropertyBufferFrameSize, scope,
             bufferFrameSize) == noErr;
}

bool AudioPlayThrough::initDevices(platform::AudioDeviceID outputDeviceID) {
  mainThread_.assertHeld();
  const platform::OwnedString uid(platform::StringObject::create(kLoopbackDeviceUID));
  const platform::StringRef qualifier = uid.get();
  const AudioObjectPropertyAddress address{platform::kAudioHardwarePropertyTranslateUIDToDevice,
                                           platform::kAudioObjectPropertyScopeGlobal,
                                           platform::kAudioObjectPropertyElementMaster};
  platform::AudioDeviceID loopback = platform::kAudioObjectUnknown;
  std::uint32_t size_bytes = sizeof loopback;
  if (host_.audioHardware.AudioObjectGetPropertyData(platform::kAudioObjectSystemObject, address,
                                                     sizeof qualifier, &qualifier, &size_bytes,
                                                     &loopback) != noErr) {
    return false;
  }
  return outputDevice.initDevice(host_.audioHardware, outputDeviceID, false) &&
         inputDevice.initDevice(host_.audioHardware, loopback, true);
}

double AudioPlayThrough::throughOffset_frames() const {
  return static_cast<double>(
      static_cast<std::int32_t>(inputDevice.safetyOffset + inputDevice.bufferFrameSize +
                                outputDevice.safetyOffset + outputDevice.bufferFrameSize));
}

void AudioPlayThrough::computeThroughOffset() {
  inputToOutputOffset = throughOffset_frames();
}

OSStatus AudioPlayThrough::start() {
  mainThread_.assertHeld();
  ringBuffer = nullptr;
  firstInputTime.store(-1.0, std::memory_order_relaxed);
  firstOutputTime = -1.0;
  inputToOutputOffset = 0;

  if (const OSStatus status = createInputUnit(); status != noErr) return status;
  const OSStatus status =
      inOrder([this] { return bindInputUnit(); }, [this] { return startWithInputUnit(); });
  if (status != noErr) {
    disposeInputUnit();
    return status;
  }
  running = true;
  return noErr;
}

OSStatus AudioPlayThrough::createInputUnit() {
  platform::AudioUnits& units = host_.audioUnits;
  const platform::AudioComponent component =
      units.AudioComponentFindNext(nullptr, platform::kHALOutputUnit);
  if (component == nullptr) return platform::kAudioHardwareUnspecifiedError;
  OSStatus status = units.AudioComponentInstanceNew(component, &inputUnit);
  if (status != noErr) return status;
  status = units.AudioUnitInitialize(inputUnit);
  if (status != noErr) units.AudioComponentInstanceDispose(inputUnit);
  return status;
}

OSStatus AudioPlayThrough::bindInputUnit() {
  platform::AudioUnits& units = host_.audioUnits;
  constexpr std::uint32_t kOn = 1;
  constexpr std::uint32_t kOff = 0;
  return inOrder(
      [&] {
        return set(units, inputUnit, platform::kAudioOutputUnitProperty_EnableIO,
                   kAudioUnitScope_Input, kInputElement, kOn);
      },
      [&] {
        return set(units, inputUnit, platform::kAudioOutputUnitProperty_EnableIO,
                   kAudioUnitScope_Output, kOutputElement, kOff);
      },
      [&] {
        return set(units, inputUnit, platform::kAudioOutputUnitProperty_CurrentDevice,
                   kAudioUnitScope_Global, 0, inputDevice.deviceID);
      },
      [&] {
        return set(units, inputUnit, platform::kAudioOutputUnitProperty_SetInputCallback,
                   kAudioUnitScope_Global, 0, platform::AURenderCallbackStruct{inputProc, this});
      });
}

void AudioPlayThrough::disposeInputUnit() {
  host_.audioUnits.AudioUnitUninitialize(inputUnit);
  host_.audioUnits.AudioComponentInstanceDispose(inputUnit);
}

OSStatus AudioPlayThrough::startWithInputUnit() {
  platform::AudioUnits& units = host_.audioUnits;
  OSStatus status = units.NewAUGraph(&graph);
  if (status != noErr) return status;
  status = units.AUGraphOpen(graph);
  if (status == noErr) {
    status = startWithOpenGraph();
    if (status != noErr) units.AUGraphClose(graph);
  }
  if (status != noErr) units.DisposeAUGraph(graph);
  return status;
}

OSStatus AudioPlayThrough::startWithOpenGraph() {
  platform::AUNode varispeedNode{};
  platform::AUNode outputNode{};
  AudioUnit outputUnit = nullptr;
  Formats formats;
  OSStatus status = inOrder(
      [&] { return addNodes(varispeedNode, outputNode, outputUnit); },
      [&] { return bindGraph(outputUnit); }, [&] { return readFormats(outputUnit, formats); },
      [&] { return setFormats(outputUnit, formats); }, [&] { return allocateBuffers(formats); });
  if (status != noErr) return status;
  status = runGraph(varispeedNode, outputNode);
  if (status != noErr) freeBuffers();
  return status;
}

OSStatus AudioPlayThrough::addNodes(platform::AUNode& varispeedNode, platform::AUNode& outputNode,
                                    AudioUnit& outputUnit) {
  platform::AudioUnits& units = host_.audioUnits;
  return inOrder(
      [&] { return units.AUGraphAddNode(graph, platform::kVarispeedUnit, &varispeedNode); },
      [&] { return units.AUGraphAddNode(graph, platform::kDefaultOutputUnit, &outputNode); },
      [&] { return units.AUGraphNodeInfo(graph, varispeedNode, &varispeedUnit); },
      [&] { return units.AUGraphNodeInfo(graph, outputNode, &outputUnit); });
}

OSStatus AudioPlayThrough::bindGraph(AudioUnit outputUnit) {
  platform::AudioUnits& units = host_.audioUnits;
  constexpr std::uint32_t kKeepDeviceTime = 0;
  return inOrder(
      [&] {
        return set(units, outputUnit, platform::kAudioOutputUnitProperty_CurrentDevice,
                   kAudioUnitScope_Global, 0, outputDevice.deviceID);
      },
      [&] {
        return set(units, outputUnit, platform::kAudioOutputUnitProperty_StartTimestampsAtZero,
                   kAudioUnitScope_Global, 0, kKeepDeviceTime);
      },
      [&] {
        return set(units, varispeedUnit, platform::kAudioUnitProperty_SetRenderCallback,
                   kAudioUnitScope_Input, 0, platform::AURenderCallbackStruct{outputProc, this});
      });
}

OSStatus AudioPlayThrough::readFormats(AudioUnit outputUnit, Formats& formats) {
  platform::AudioUnits& units = host_.audioUnits;
  const auto streamFormat = [&](AudioUnit unit, std::uint32_t scope, std::uint32_t element,
                                AudioStreamBasicDescription& format) {
    return get(units, unit, platform::kAudioUnitProperty_StreamFormat, scope, element, format);
  };
  return inOrder(
      [&] {
        return get(units, inputUnit, platform::kAudioDevicePropertyBufferFrameSize,
                   kAudioUnitScope_Global, 0, formats.buffer_frames);
      },
      [&] {
        return streamFormat(inputUnit, kAudioUnitScope_Input, kInputElement, formats.loopback);
      },
      [&] {
        return streamFormat(inputUnit, kAudioUnitScope_Output, kInputElement, formats.client);
      },
      [&] {
        return streamFormat(outputUnit, kAudioUnitScope_Output, kOutputElement, formats.real);
      });
}

OSStatus AudioPlayThrough::setFormats(AudioUnit outputUnit, Formats& formats) {
  platform::AudioUnits& units = host_.audioUnits;
  AudioStreamBasicDescription& client = formats.client;
  const auto setClientFormat = [&](AudioUnit unit, std::uint32_t scope, std::uint32_t element) {
    return set(units, unit, platform::kAudioUnitProperty_StreamFormat, scope, element, client);
  };
  const auto readRate = [&](const PlayThroughDevice& device) {
    return nominalRate(host_.audioHardware, device.deviceID, client.mSampleRate);
  };
  client.mChannelsPerFrame =
      std::min(formats.loopback.mChannelsPerFrame, formats.real.mChannelsPerFrame);
  return inOrder(
      [&] { return readRate(inputDevice); },
      [&] { return setClientFormat(inputUnit, kAudioUnitScope_Output, kInputElement); },
      [&] { return setClientFormat(varispeedUnit, kAudioUnitScope_Input, 0); },
      [&] { return readRate(outputDevice); },
      [&] { return setClientFormat(varispeedUnit, kAudioUnitScope_Output, 0); },
      [&] { return setClientFormat(outputUnit, kAudioUnitScope_Input, kOutputElement); });
}

OSStatus AudioPlayThrough::allocateBuffers(const Formats& formats) {
  const std::uint32_t channels = formats.client.mChannelsPerFrame;
  const std::uint32_t channel_bytes = formats.buffer_frames * std::uint32_t{sizeof(float)};
  inputBufferList.reset(
      static_cast<AudioBufferList*>(std::calloc(1, platform::audioBufferListSize_bytes(channels))));
  if (inputBufferList == nullptr) return kNoMemory;
  inputBufferList->mNumberBuffers = channels;
  platform::AudioBuffer* const buffers = inputBufferList->mBuffers;
  for (std::uint32_t i = 0; i < channels; ++i) {
    buffers[i] = {1, channel_bytes, std::malloc(channel_bytes)};
    if (buffers[i].mData == nullptr) {
      inputBufferList.reset();
      return kNoMemory;
    }
    platform::makeResident(buffers[i].mData, channel_bytes);
  }

  ringBuffer.reset(new (std::nothrow) RingBuffer);
  if (ringBuffer != nullptr) {
    ringBuffer->allocate(static_cast<std::int32_t>(channels), formats.client.mBytesPerFrame,
                         kRingCapacity_buffers * formats.buffer_frames);
  }
  if (ringBuffer == nullptr || ringBuffer->buffers == nullptr) {
    freeBuffers();
    return kNoMemory;
  }
  return noErr;
}

void AudioPlayThrough::FreeBufferList::operator()(AudioBufferList* list) const {
  platform::AudioBuffer* const buffers = list->mBuffers;
  for (std::uint32_t i = 0; i < list->mNumberBuffers; ++i) std::free(buffers[i].mData);
  std::free(list);
}

void AudioPlayThrough::freeBuffers() {
  ringBuffer.reset();
  inputBufferList.reset();
}

OSStatus AudioPlayThrough::runGraph(platform::AUNode varispeedNode, platform::AUNode outputNode) {
  platform::AudioUnits& units = host_.audioUnits;
  OSStatus status =
      inOrder([&] { return units.AUGraphConnectNodeInput(graph, varispeedNode, 0, outputNode, 0); },
              [&] { return units.AUGraphInitialize(graph); });
  if (status != noErr) return status;
  computeThroughOffset();
  status = units.AudioOutputUnitStart(inputUnit);
  if (status != noErr) return status;
  status = units.AUGraphStart(graph);
  if (status != noErr) units.AudioOutputUnitStop(inputUnit);
  return status;
}

OSStatus AudioPlayThrough::stop() {
  if (!running) return noErr;
  mainThread_.assertHeld();
  running = false;
  platform::AudioUnits& units = host_.audioUnits;
  units.AudioOutputUnitStop(inputUnit);
  units.AUGraphStop(graph);
  firstInputTime.store(-1.0, std::memory_order_relaxed);
  firstOutputTime = -1.0;
  freeBuffers();
  units.AudioUnitUninitialize(inputUnit);
  units.AUGraphClose(graph);
  units.DisposeAUGraph(graph);
  units.AudioComponentInstanceDispose(inputUnit);
  return noErr;
}

OSStatus AudioPlayThrough::inputProc(void* refCon, std::uint32_t* ioActionFlags,
                                     const AudioTimeStamp* timeStamp, std::uint32_t busNumber,
                                     std::uint32_t frameCount, AudioBufferList* /*ioData*/) {
  auto* const self = static_cast<AudioPlayThrough*>(refCon);
  self->inputThread_.assertHeld();
  return self->render(ioActionFlags, *timeStamp, busNumber, frameCount);
}

OSStatus AudioPlayThrough::render(std::uint32_t* ioActionFlags, const AudioTimeStamp& timeStamp,
                                  std::uint32_t busNumber, std::uint32_t frameCount) {
  if (firstInputTime.load(std::memory_order_relaxed) < 0) {
    firstInputTime.store(timeStamp.mSampleTime, std::memory_order_relaxed);
  }
  const OSStatus status = host_.audioUnits.AudioUnitRender(
      inputUnit, ioActionFlags, &timeStamp, busNumber, frameCount, inputBufferList.get());
  if (status != noErr) return status;
  return ringBuffer->store(*inputBufferList, frameCount, truncated(timeStamp.mSampleTime));
}

OSStatus AudioPlayThrough::outputProc(void* refCon, std::uint32_t* /*ioActionFlags*/,
                                      const AudioTimeStamp* timeStamp, std::uint32_t /*busNumber*/,
                                      std::uint32_t frameCount, AudioBufferList* ioData) {
  auto* const self = static_cast<AudioPlayThrough*>(refCon);
  self->outputThread_.assertHeld();
  return self->play(*timeStamp, frameCount, *ioData);
}

OSStatus AudioPlayThrough::play(const AudioTimeStamp& timeStamp, std::uint32_t frameCount,
                                AudioBufferList& list) {
  if (firstInputTime.load(std::memory_order_relaxed) < 0) {
    silence(list);
    return noErr;
  }
  AudioTimeStamp inputNow;
  if (host_.audioHardware.AudioDeviceGetCurrentTime(inputDevice.deviceID, &inputNow) != noErr) {
    silence(list);  // the loopback has already stopped
    return noErr;
  }
  AudioTimeStamp outputNow;
  OSStatus status =
      host_.audioHardware.AudioDeviceGetCurrentTime(outputDevice.deviceID, &outputNow);
  if (status != noErr) return status;
  status = followClocks(inputNow, outputNow);
  if (status != noErr) return status;
  if (firstOutputTime < 0) {
    anchor(timeStamp.mSampleTime);
    silence(list);
    return noErr;
  }
  const std::int64_t startTime = truncated(timeStamp.mSampleTime - inputToOutputOffset);
  if (ringBuffer->fetch(list, frameCount, startTime) != RingBufferErrorNone) {
    silence(list);
    reanchor(timeStamp.mSampleTime);
  }
  return noErr;
}

// Makes the output consume exactly as fast as the loopback delivers.
OSStatus AudioPlayThrough::followClocks(const AudioTimeStamp& inputNow,
                                        const AudioTimeStamp& outputNow) {
  const auto rate = static_cast<float>(inputNow.mRateScalar / outputNow.mRateScalar);
  return host_.audioUnits.AudioUnitSetParameter(
      varispeedUnit, platform::kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0, rate, 0);
}

void AudioPlayThrough::anchor(double outputTime_frames) {
  firstOutputTime = outputTime_frames;
  const double delta = firstInputTime.load(std::memory_order_relaxed) - firstOutputTime;
  inputToOutputOffset = throughOffset_frames() - delta;
}

// Continues at the oldest frame held. Uses the bounds that were read last, even inconsistent ones.
void AudioPlayThrough::reanchor(double outputTime_frames) {
  std::int64_t heldStart{};
  std::int64_t heldEnd{};
  static_cast<void>(ringBuffer->getTimeBounds(heldStart, heldEnd));
  inputToOutputOffset = outputTime_frames - static_cast<double>(heldStart);
}

}  // namespace record_audio
