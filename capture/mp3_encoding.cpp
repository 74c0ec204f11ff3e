// SPDX-License-Identifier: MIT
// The recorder's MP3 half: sets the encoder up and passes it the captured samples.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <span>
#include <utility>

#include "capture/audio_recorder.h"
#include "capture/sample_conversion.h"

namespace record_audio {
namespace {

// The drain thread and the queues always hold about this much, so every stop drops it.
constexpr double kDroppedToTell_s = 0.1;

// A property of a device's input side; empty if it cannot be read.
template <typename T>
std::optional<T> inputProperty(platform::AudioHardware& hardware, platform::AudioDeviceID device,
                               std::uint32_t selector) {
  const platform::AudioObjectPropertyAddress address{selector,
                                                     platform::kAudioDevicePropertyScopeInput,
                                                     platform::kAudioObjectPropertyElementMaster};
  T value{};
  std::uint32_t size_bytes = sizeof value;
  const platform::OSStatus status =
      hardware.AudioObjectGetPropertyData(device, address, 0, nullptr, &size_bytes, &value);
  return status == platform::noErr ? std::optional(value) : std::nullopt;
}

}  // namespace

bool AudioRecorder::initLame() {
  // The session may have been set up for m4a, which needs no queue.
  if (!makeEncodeQueue()) return false;
  auto file = createOutputFile();
  if (!file) {
    log("Can't open the recording file %@: check that its folder exists and can be written",
        {m_filePath});
    return false;
  }
  LameHandle newLame;
  if (const auto format = recordingDeviceFormat()) {
    const auto found = qualityDict.find(quality);
    const QualityEntry entry = found != qualityDict.end() ? found->second : QualityEntry{0, 0};
    encoder_->backlog.setRate(format->sampleRate_hz);
    newLame = createLame({format->channels, format->sampleRate_hz, entry.bitrate, entry.quality});
  }
  const bool ready = newLame != nullptr;
  // The encoder is replaced on its own queue, so what an earlier recording left there still goes
  // into the earlier file.
  encodeQueue->async([encoder = encoder_, newLame = std::move(newLame), file = std::move(file),
                      onError = writeErrorHandler()]() mutable {
    encoder->begin(std::move(newLame), std::move(file), std::move(onError));
  });
  if (ready) encoder_->stopped.store(false, std::memory_order_relaxed);
  return ready;
}

std::shared_ptr<platform::FileHandle> AudioRecorder::createOutputFile() {
  auto& fileManager = environment_.host.fileManager;
  fileManager.createFile(m_filePath);
  std::shared_ptr<platform::FileHandle> file = fileManager.fileHandleForUpdating(m_filePath);
  if (file) file->seekToEndOfFile();
  return file;
}

std::optional<AudioRecorder::InputFormat> AudioRecorder::recordingDeviceFormat() const {
  const auto inputs = m_captureSession->inputs();
  const auto device = inputs.empty() ? nullptr : inputs.front()->device();
  const platform::AudioDeviceID audioId =
      device ? getAudioId(device->uniqueID()) : platform::kAudioObjectUnknown;

  auto& hardware = environment_.host.audioHardware;
  const auto sampleRate_hz =
      inputProperty<double>(hardware, audioId, platform::kAudioDevicePropertyActualSampleRate);
  if (!sampleRate_hz) return std::nullopt;
  // Has room for one description, because only their number is used.
  const auto layout = inputProperty<platform::AudioChannelLayout>(
      hardware, audioId, platform::kAudioDevicePropertyPreferredChannelLayout);
  if (!layout) return std::nullopt;
  return InputFormat{static_cast<int>(layout->mNumberChannelDescriptions),
                     static_cast<int>(std::lround(*sampleRate_hz))};
}

Mp3Encoder::WriteError AudioRecorder::writeErrorHandler() {
  return [recorder = weak_from_this(), recording = recordingNumber_, environment = environment_,
          mainQueue = environment_.host.dispatch.mainQueue()](const std::string& error) {
    mainQueue->async([recorder, recording, environment, error] {
      if (const auto self = recorder.lock()) {
        self->onWriteError(recording, error);
      } else {
        environment.suite.logging.VKLogVariadic("The end of a recording was lost. Error: %@",
                                                {error});
      }
    });
  };
}

void AudioRecorder::onWriteError(std::uint64_t recording, const std::string& error) {
  mainThread_.assertHeld();
  if (recording != recordingNumber_ || !m_bRecording.load(std::memory_order_relaxed)) {
    log("The end of a recording was lost. Error: %@", {error});
    return;
  }
  // A session that fails by itself releases the microphone first; so does this one.
  m_captureSession->stopRunning();
  environment_.host.notificationCenter.post(platform::captureSessionNotification(
      platform::kCaptureSessionRuntimeErrorNotification, m_captureSession,
      {{platform::kCaptureSessionErrorKey, error + (error.ends_with('.') ? "" : ".") +
                                               " What was recorded before is kept in " +
                                               m_filePath}}));
}

void AudioRecorder::deinitLame() {
  encoder_->stopped.store(true, std::memory_order_relaxed);
  finishEncoder();
}

void AudioRecorder::finishEncoder() {
  if (!encodeQueue) return;
  encodeQueue->async([encoder = encoder_] { encoder->finish(); });
}

void AudioRecorder::captureOutput(
    platform::CaptureOutput&, const std::shared_ptr<platform::SampleBuffer>& didOutputSampleBuffer,
    platform::CaptureConnection&) {
  const std::int64_t samples = didOutputSampleBuffer->getNumSamples();
  if (encoder_->stopped.load(std::memory_order_relaxed)) {
    encoder_->backlog.drop(std::clamp<std::int64_t>(samples, 0, Mp3Encoder::kMaxSamples));
    return;
  }
  if (!m_bRecording.load(std::memory_order_relaxed)) return;
  const auto& formats = didOutputSampleBuffer->getFormatDescription().formatList;
  if (samples <= 0 || samples > Mp3Encoder::kMaxSamples || formats.empty()) {
    log("A buffer of %d samples in %d formats cannot be encoded and is dropped",
        {samples, static_cast<std::int64_t>(formats.size())});
    return;
  }
  const std::uint32_t flags = formats.front().mFormatFlags;
  if (environment_.suite.logging.VKIsExtendedLoggingOn()) {
    log("Audio format flags: %d", {std::int64_t{flags}});
  }
  const auto count = static_cast<std::size_t>(samples);
  auto words = convertedSamples(*didOutputSampleBuffer, count);
  if (!words) return;
  const bool areFloat = (flags & platform::kAudioFormatFlagIsFloat) != 0;
  if (encoder_->backlog.add(samples)) {
    log("The MP3 encoder is %d seconds of sound behind: the computer or the disk is too slow for "
        "it. What still waits when the recording is stopped is dropped. Close other programs, or "
        "record at a lower quality or as m4a.",
        {EncoderBacklog::kBehind_s});
  }
  encodeQueue->async([encoder = encoder_, count, words = std::move(words), areFloat] {
    encoder->encode({words.get(), count}, areFloat);
  });
}

void AudioRecorder::captureOutputDidEndDelivery(platform::CaptureOutput&) {
  // On the encode queue, after everything that still waits there.
  encodeQueue->async([encoder = encoder_, environment = environment_] {
    const double dropped_s = encoder->backlog.takeDropped_s();
    if (dropped_s < kDroppedToTell_s) return;
    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.1f", dropped_s);
    environment.suite.logging.VKLogVariadic(
        "The last %@ seconds of sound were dropped at the stop: the MP3 encoder had not come to "
        "them.",
        {std::string(seconds.data())});
  });
}

std::shared_ptr<std::uint32_t[]> AudioRecorder::convertedSamples(
    const platform::SampleBuffer& buffer, std::size_t count) const {
  const auto block = retainedBlockBuffer(buffer);
  if (!block) return nullptr;
  const std::byte* data = block->getDataPointer(0);
  if (data == nullptr) {
    log("Error occured while capturing audio, cannot get data from block buffer");
    return nullptr;
  }
  const auto& format = buffer.getFormatDescription().formatList.front();
  if (!canConvertSamples(format)) {
    log("This audio format is not supported yet. BitsPerChannel: %d, BytesPerFrame: %d, "
        "ChannelsPerFrame: %d, Flags: %d",
        {std::int64_t{format.mBitsPerChannel}, std::int64_t{format.mBytesPerFrame},
         std::int64_t{format.mChannelsPerFrame}, std::int64_t{format.mFormatFlags}});
    return nullptr;
  }
  auto words = std::make_shared_for_overwrite<std::uint32_t[]>(count);
  const std::size_t present =
      convertSamples(format, {data, block->getDataLength()}, {words.get(), count});
  if (present < count && environment_.suite.logging.VKIsExtendedLoggingOn()) {
    log("A buffer of %d samples holds the bytes of %d; the others are recorded as silence",
        {static_cast<std::int64_t>(count), static_cast<std::int64_t>(present)});
  }
  return words;
}

std::shared_ptr<platform::BlockBuffer> AudioRecorder::retainedBlockBuffer(
    const platform::SampleBuffer& buffer) const {
  std::size_t size_bytes = 0;
  platform::OSStatus status =
      buffer.getAudioBufferListWithRetainedBlockBuffer(&size_bytes, nullptr, 0, nullptr);
  if (status != platform::noErr) {
    log("Error occured while capturing audio, cannot read size of buffer list with error %d",
        {std::int64_t{status}});
    return nullptr;
  }
  const auto list = std::make_unique<std::byte[]>(size_bytes);
  std::shared_ptr<platform::BlockBuffer> block;
  status = buffer.getAudioBufferListWithRetainedBlockBuffer(
      nullptr, reinterpret_cast<platform::AudioBufferList*>(list.get()), size_bytes, &block);
  if (status != platform::noErr) {
    log("Error occured while capturing audio, cannot get audio buffer list with error %d",
        {std::int64_t{status}});
    return nullptr;
  }
  if (!block) log("Error occured while capturing audio, cannot get data from block buffer");
  return block;
}

}  // namespace record_audio
