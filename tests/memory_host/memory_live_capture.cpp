// SPDX-License-Identifier: MIT
#include <cmath>
#include <numbers>
#include <utility>

#include "platform/file_url.h"
#include "tests/memory_host/memory_capture.h"

// How sessions and outputs behave that act by themselves.

namespace memory_host {
namespace {

constexpr double kPeriod_s = 0.01;
constexpr std::size_t kBlock_frames = 480;
constexpr double kRate_hz = 48000;
constexpr double kTone_hz = 1000;

std::shared_ptr<MemorySampleBuffer> toneBlock() {
  std::vector<float> plane(kBlock_frames);
  for (std::size_t i = 0; i < plane.size(); ++i) {
    const double turns = kTone_hz / kRate_hz * static_cast<double>(i);
    plane[i] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * turns));
  }
  return floatSampleBuffer({plane, plane}, kRate_hz);
}

}  // namespace

std::string MemoryCaptureSession::whyNotLive() const {
  if (inputs_.empty() || outputs_.empty()) {
    return "The capture session has no input or no output.";
  }
  const auto device = inputs_.front()->device();
  if (live_->capture.deviceWithUniqueID(device->uniqueID()) == nullptr) {
    return "The sound source \"" + device->localizedName() + "\" is not there.";
  }
  return "";
}

void MemoryCaptureSession::later(void (MemoryCaptureSession::*work)(const std::string&),
                                 const std::string& text) {
  live_->dispatch.main->async([session = weak_from_this(), run = run_, work, text] {
    const auto self = session.lock();
    if (self != nullptr && self->run_ == run) (self.get()->*work)(text);
  });
}

void MemoryCaptureSession::startLive() {
  if (running) {
    later(&MemoryCaptureSession::announceLive, "");
    return;
  }
  ++run_;
  if (const std::string problem = whyNotLive(); !problem.empty()) {
    later(&MemoryCaptureSession::refuseLive, problem);
    return;
  }
  running = true;
  if (const auto file = std::dynamic_pointer_cast<MemoryAudioFileOutput>(outputs_.front())) {
    file->attach(true);
  }
  later(&MemoryCaptureSession::announceLive, "");
}

// The first samples are there; they are handed out when the handlers have returned.
void MemoryCaptureSession::announceLive(const std::string&) {
  if (!running) return;
  if (notices_ == Notices::kPosted) reportStarted();
  if (!running || delivery_ != nullptr) return;
  delivery_ = live_->runLoop.scheduledTimer(
      kPeriod_s, {}, true, [session = weak_from_this()](const platform::TimerPtr&) {
        if (const auto self = session.lock()) self->deliverLive();
      });
}

void MemoryCaptureSession::refuseLive(const std::string& error) {
  if (!running) reportError(error);
}

void MemoryCaptureSession::deliverLive() {
  const auto block = toneBlock();
  const auto output = outputs_.front();
  if (const auto data = std::dynamic_pointer_cast<MemoryAudioDataOutput>(output)) {
    if (data->queue != nullptr) data->deliver(block);
  } else if (const auto file = std::dynamic_pointer_cast<MemoryAudioFileOutput>(output)) {
    if (const std::string error = file->write(*block->block); !error.empty()) failLive(error);
  }
}

void MemoryCaptureSession::stopLive() {
  if (const auto timer = std::exchange(delivery_, nullptr)) timer->invalidate();
  if (const auto file = std::dynamic_pointer_cast<MemoryAudioFileOutput>(outputs_.front())) {
    file->finish("");
    file->attach(false);
  }
}

void MemoryCaptureSession::failLive(const std::string& error) {
  if (!running) return;
  stopRunning();
  reportError(error);
}

void MemoryCaptureSession::loseDevice(const std::string& uniqueID) {
  if (live_ == nullptr || !running) return;
  const auto device = inputs_.front()->device();
  if (device->uniqueID() != uniqueID) return;
  later(&MemoryCaptureSession::failLive,
        "The sound source \"" + device->localizedName() + "\" is gone.");
}

void MemoryAudioFileOutput::startLive(
    const std::string& fileURL,
    std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> delegate) {
  using platform::CaptureException;
  if (!isCapturing_) throw CaptureException("Nothing is being captured that could be recorded.");
  if (fileTypes.back() != platform::kFileTypeMPEG4) {
    throw CaptureException("The file type \"" + fileTypes.back() + "\" cannot be written.");
  }
  if (recording_ != nullptr) throw CaptureException("A file is being recorded already.");
  const auto path = platform::pathWithFileURL(fileURL);
  if (!path || !fileManager_.createFile(*path)) {
    throw CaptureException("\"" + fileURL + "\" cannot be made.");
  }
  recording_ = std::make_unique<Recording>(
      Recording{fileURL, fileManager_.fileHandleForUpdating(*path), std::move(delegate)});
  live_->dispatch.main->async([output = weak_from_this(), target = recording_->delegate, fileURL] {
    const auto self = output.lock();
    const auto listener = target.lock();
    if (self && listener) listener->captureOutputDidStartRecording(*self, fileURL);
  });
}

std::string MemoryAudioFileOutput::write(const platform::BlockBuffer& samples) {
  if (recording_ == nullptr) return "";
  const std::string error =
      recording_->file->writeData({samples.getDataPointer(0), samples.getDataLength()});
  if (!error.empty()) finish(error);
  return error;
}

void MemoryAudioFileOutput::finish(const std::string& error) {
  if (recording_ == nullptr) return;
  const auto recording = std::exchange(recording_, nullptr);
  recording->file->closeFile();
  live_->dispatch.main->async([output = weak_from_this(), target = recording->delegate,
                               fileURL = recording->fileURL, error] {
    const auto self = output.lock();
    const auto listener = target.lock();
    if (self && listener) listener->captureOutputDidFinishRecording(*self, fileURL, error);
  });
}

}  // namespace memory_host
