// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_capture.h"

#include <cstring>

#include "platform/file_url.h"

namespace memory_host {

using platform::AudioBufferList;
using platform::MediaType;
using platform::OSStatus;

OSStatus MemorySampleBuffer::getAudioBufferListWithRetainedBlockBuffer(
    std::size_t* sizeNeeded_bytes, AudioBufferList* outList, std::size_t listSize_bytes,
    std::shared_ptr<platform::BlockBuffer>* outBlockBuffer) const {
  const auto& format = description.formatList.at(0);
  const bool planar = (format.mFormatFlags & platform::kAudioFormatFlagIsNonInterleaved) != 0;
  const std::uint32_t buffers = planar ? format.mChannelsPerFrame : 1;
  const std::size_t size_bytes = platform::audioBufferListSize_bytes(buffers);
  if (sizeNeeded_bytes != nullptr) {
    if (sizeStatus != platform::noErr) return sizeStatus;
    *sizeNeeded_bytes = size_bytes;
  }
  constexpr OSStatus kWrongListSize = -12737;
  if (outList == nullptr) return listSize_bytes == 0 ? platform::noErr : kWrongListSize;
  ++listRequests;
  if (listStatus != platform::noErr) return listStatus;
  if (listSize_bytes < size_bytes) return kWrongListSize;
  if (!block) return platform::noErr;

  outList->mNumberBuffers = buffers;
  auto* entries = reinterpret_cast<platform::AudioBuffer*>(reinterpret_cast<std::byte*>(outList) +
                                                           offsetof(AudioBufferList, mBuffers));
  const auto plane_bytes = static_cast<std::uint32_t>(block->bytes.size() / std::max(buffers, 1U));
  for (std::uint32_t i = 0; i < buffers; ++i) {
    entries[i] = {planar ? 1U : format.mChannelsPerFrame, plane_bytes,
                  block->bytes.data() + std::size_t{i} * plane_bytes};
  }
  if (outBlockBuffer != nullptr) *outBlockBuffer = block;
  return platform::noErr;
}

std::shared_ptr<MemorySampleBuffer> floatSampleBuffer(const std::vector<std::vector<float>>& planes,
                                                      double sampleRate_hz) {
  platform::AudioStreamBasicDescription format;
  format.mSampleRate = sampleRate_hz;
  format.mFormatID = platform::kAudioFormatLinearPCM;
  format.mFormatFlags = platform::kAudioFormatFlagIsFloat | platform::kAudioFormatFlagIsPacked |
                        platform::kAudioFormatFlagIsNonInterleaved;
  format.mFramesPerPacket = 1;
  format.mBytesPerFrame = format.mBytesPerPacket = sizeof(float);
  format.mChannelsPerFrame = static_cast<std::uint32_t>(planes.size());
  format.mBitsPerChannel = 32;
  std::vector<std::byte> bytes;
  for (const auto& plane : planes) {
    const auto* first = reinterpret_cast<const std::byte*>(plane.data());
    bytes.insert(bytes.end(), first, first + plane.size() * sizeof(float));
  }
  const auto frames = static_cast<std::int64_t>(planes.empty() ? 0 : planes.front().size());
  return std::make_shared<MemorySampleBuffer>(format, frames, std::move(bytes));
}

void MemoryAudioFileOutput::startRecordingToOutputFileURL(
    const std::string& fileURL, const std::string& outputFileType,
    std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> recordingDelegate) {
  startedURLs.push_back(fileURL);
  fileTypes.push_back(outputFileType);
  if (!throwOnStart.empty()) throw platform::CaptureException(throwOnStart);
  if (live_ != nullptr) {
    startLive(fileURL, std::move(recordingDelegate));
    return;
  }
  if (const auto path = platform::pathWithFileURL(fileURL)) {
    fileManager_.addFile(*path, "aac samples");
  }
}

void MemoryAudioDataOutput::setSampleBufferDelegate(
    std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> newDelegate,
    std::shared_ptr<platform::DispatchQueue> newQueue) {
  delegate = std::move(newDelegate);
  queue = std::move(newQueue);
}

void MemoryAudioDataOutput::deliver(std::shared_ptr<platform::SampleBuffer> buffer) {
  queue->async([this, buffer = std::move(buffer)] {
    platform::CaptureConnection connection;
    if (const auto target = delegate.lock()) target->captureOutput(*this, buffer, connection);
  });
}

void MemoryAudioDataOutput::endDelivery() {
  if (queue == nullptr) return;
  queue->async([this] {
    if (const auto target = delegate.lock()) target->captureOutputDidEndDelivery(*this);
  });
}

bool MemoryCaptureSession::takes(const platform::CaptureDeviceInputPtr& input) const {
  return !refuseInput && input != nullptr && inputs_.empty();
}

bool MemoryCaptureSession::takes(const platform::CaptureOutputPtr& output) const {
  return !refuseOutput && output != nullptr && outputs_.empty();
}

bool MemoryCaptureSession::canAddInput(const platform::CaptureDeviceInputPtr& input) const {
  journal.push_back("canAddInput");
  return takes(input);
}

bool MemoryCaptureSession::canAddOutput(const platform::CaptureOutputPtr& output) const {
  journal.push_back("canAddOutput");
  return takes(output);
}

void MemoryCaptureSession::addInput(const platform::CaptureDeviceInputPtr& input) {
  journal.push_back("addInput");
  if (takes(input)) inputs_.push_back(input);
}

void MemoryCaptureSession::addOutput(const platform::CaptureOutputPtr& output) {
  journal.push_back("addOutput");
  if (takes(output)) outputs_.push_back(output);
}

void MemoryCaptureSession::startRunning() {
  journal.push_back("startRunning");
  if (live_ != nullptr) {
    startLive();
    return;
  }
  running = true;
}

void MemoryCaptureSession::stopRunning() {
  onStop();
  journal.push_back("stopRunning");
  if (!std::exchange(running, false)) return;
  if (live_ != nullptr) stopLive();
  for (const auto& output : outputs_) {
    if (auto* dataOutput = dynamic_cast<MemoryAudioDataOutput*>(output.get())) {
      dataOutput->endDelivery();
    }
  }
}

void MemoryCaptureSession::reportStarted() {
  center_.post(platform::captureSessionNotification(
      platform::kCaptureSessionDidStartRunningNotification, shared_from_this(), {}));
}

void MemoryCaptureSession::reportError(const std::string& error) {
  running = false;
  if (notices_ == Notices::kNone) return;
  center_.post(platform::captureSessionNotification(
      platform::kCaptureSessionRuntimeErrorNotification, shared_from_this(),
      {{platform::kCaptureSessionErrorKey, error}}));
}

std::vector<platform::CaptureDevicePtr> MemoryCapture::devicesWithMediaType(MediaType type) {
  if (type == MediaType::kVideo) ++videoRequests;
  const auto& devices = type == MediaType::kAudio ? audioDevices : videoDevices;
  return {devices.begin(), devices.end()};
}

platform::CaptureDevicePtr MemoryCapture::defaultDeviceWithMediaType(MediaType type) {
  return type == MediaType::kAudio ? deviceWithUniqueID(defaultAudioID) : nullptr;
}

platform::CaptureDevicePtr MemoryCapture::deviceWithUniqueID(const std::string& uniqueID) {
  for (const auto& device : audioDevices) {
    if (device->id == uniqueID) return device;
  }
  return nullptr;
}

void MemoryCapture::requestAccessForMediaType(MediaType, std::function<void(bool)> handler) {
  if (live_ != nullptr && userAgrees) {
    live_->dispatch.main->async(
        [handler = std::move(handler), answer = *userAgrees] { handler(answer); });
    return;
  }
  pendingRequests.push_back(std::move(handler));
}

platform::CaptureSessionPtr MemoryCapture::createSession() {
  sessions.push_back(std::make_shared<MemoryCaptureSession>(center_, live_.get()));
  sessions.back()->refuseInput = refuseInput;
  sessions.back()->refuseOutput = refuseOutput;
  return sessions.back();
}

platform::CaptureSessionPtr MemoryCapture::createMonitoringSession() {
  if (!canMonitor) return nullptr;
  monitoringSessions.push_back(std::make_shared<MemoryCaptureSession>(
      center_, live_.get(), MemoryCaptureSession::Notices::kNone));
  monitoringSessions.back()->refuseInput = refuseInput;
  monitoringSessions.back()->refuseOutput = refuseOutput;
  return monitoringSessions.back();
}

platform::CaptureDeviceInputPtr MemoryCapture::createDeviceInput(
    const platform::CaptureDevicePtr& device, std::string* error) {
  *error = inputError;
  if (device == nullptr) *error = "There is no sound source to record from.";
  if (error->empty() && deviceWithUniqueID(device->uniqueID()) == nullptr) {
    *error = "The sound source \"" + device->localizedName() + "\" is not there.";
  }
  if (!error->empty()) return nullptr;
  return std::make_shared<MemoryCaptureDeviceInput>(device);
}

std::shared_ptr<platform::CaptureAudioFileOutput> MemoryCapture::createAudioFileOutput() {
  fileOutputs.push_back(std::make_shared<MemoryAudioFileOutput>(fileManager_, live_.get()));
  fileOutputs.back()->throwOnStart = throwOnFileStart;
  return fileOutputs.back();
}

std::shared_ptr<platform::CaptureAudioDataOutput> MemoryCapture::createAudioDataOutput() {
  dataOutputs.push_back(std::make_shared<MemoryAudioDataOutput>());
  return dataOutputs.back();
}

std::shared_ptr<MemoryCaptureDevice> MemoryCapture::connect(const std::string& uniqueID,
                                                            const std::string& name,
                                                            const std::string& manufacturer) {
  audioDevices.push_back(std::make_shared<MemoryCaptureDevice>(uniqueID, name, manufacturer));
  if (defaultAudioID.empty()) defaultAudioID = uniqueID;
  center_.post({platform::kCaptureDeviceWasConnectedNotification, nullptr, {}});
  return audioDevices.back();
}

void MemoryCapture::disconnect(const std::string& uniqueID) {
  std::erase_if(audioDevices, [&](const auto& device) { return device->id == uniqueID; });
  if (defaultAudioID == uniqueID) {
    defaultAudioID = audioDevices.empty() ? "" : audioDevices.front()->id;
  }
  for (const auto& list : {sessions, monitoringSessions}) {
    for (const auto& session : list) session->loseDevice(uniqueID);
  }
  center_.post({platform::kCaptureDeviceWasDisconnectedNotification, nullptr, {}});
}

}  // namespace memory_host
