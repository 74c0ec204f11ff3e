// SPDX-License-Identifier: MIT
#include "settings/level_meter.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "shared/auxiliary.h"

namespace record_audio {
namespace {

// A level below this, which is 72 dB below full scale, is shown as 0, so that silence costs no
// drawing.
constexpr float kSilence = 1.0F / 4096;

float peakOf(const platform::AudioBuffer& buffer) {
  const std::span samples(static_cast<const float*>(buffer.mData),
                          buffer.mDataByteSize / sizeof(float));
  float peak = 0;
  for (const float sample : samples) {
    peak = std::max(peak, std::fabs(sample));  // in this order, a NaN is never the maximum
  }
  return peak;
}

bool holdsFloats(const platform::SampleBuffer& buffer) {
  const auto& formats = buffer.getFormatDescription().formatList;
  return !formats.empty() && formats.front().mBitsPerChannel == 32 &&
         (formats.front().mFormatFlags & platform::kAudioFormatFlagIsFloat) != 0;
}

}  // namespace

// Measures the samples of one session only, so that what is still queued from an earlier device is
// not shown.
class LevelMeter::PeakTap : public platform::CaptureAudioDataOutputSampleBufferDelegate {
 public:
  // On the level queue.
  void captureOutput(platform::CaptureOutput&,
                     const std::shared_ptr<platform::SampleBuffer>& buffer,
                     platform::CaptureConnection&) override {
    if (!holdsFloats(*buffer)) return;
    std::size_t size_bytes{};
    if (buffer->getAudioBufferListWithRetainedBlockBuffer(&size_bytes, nullptr, 0, nullptr) !=
        platform::noErr) {
      return;
    }
    list_.resize(size_bytes);
    auto* list = reinterpret_cast<platform::AudioBufferList*>(list_.data());
    std::shared_ptr<platform::BlockBuffer> samples;
    if (buffer->getAudioBufferListWithRetainedBlockBuffer(nullptr, list, size_bytes, &samples) !=
        platform::noErr) {
      return;
    }
    const auto* buffers = reinterpret_cast<const platform::AudioBuffer*>(
        reinterpret_cast<const std::byte*>(list) + offsetof(platform::AudioBufferList, mBuffers));
    for (std::uint32_t i = 0; i < list->mNumberBuffers; ++i) raise(peakOf(buffers[i]));
  }

  // Nothing is kept, so nothing is left to do.
  void captureOutputDidEndDelivery(platform::CaptureOutput&) override {}

  // The highest peak since the last call. Any thread.
  float take() { return peak_.exchange(0, std::memory_order_relaxed); }

 private:
  void raise(float peak) {
    // Nothing but this number passes between the threads, so relaxed order is enough.
    float current = peak_.load(std::memory_order_relaxed);
    while (
        !peak_.compare_exchange_weak(current, std::max(current, peak), std::memory_order_relaxed)) {
    }
  }

  std::atomic<float> peak_{0};
  std::vector<std::byte> list_;  // room for a buffer list; level queue only
};

LevelMeter::LevelMeter(suite::Environment environment,
                       std::weak_ptr<platform::LevelIndicator> indicator,
                       std::function<platform::CaptureDevicePtr()> chosenDevice,
                       std::function<bool()> recording)
    : environment_(environment),
      indicator_(std::move(indicator)),
      chosenDevice_(std::move(chosenDevice)),
      recording_(std::move(recording)) {
  if (const auto control = indicator_.lock()) control->setHidden(true);
}

LevelMeter::~LevelMeter() {
  setVisible(false);
}

void LevelMeter::setVisible(bool visible) {
  mainThread_.assertHeld();
  if (visible == (timer_ != nullptr)) return;
  if (!visible) {
    timer_->invalidate();
    timer_ = nullptr;
    close();
    return;
  }
  // A window without the indicator needs no level.
  if (indicator_.expired()) return;
  lastTick_ = environment_.host.hostClock.absoluteTime();
  timer_ = environment_.host.runLoop.scheduledTimer(kInterval_s, {}, true,
                                                    [this](const platform::TimerPtr&) { tick(); });
  update();
}

void LevelMeter::update() {
  mainThread_.assertHeld();
  failedDeviceID_.clear();
  if (timer_) refresh();
}

void LevelMeter::tick() {
  mainThread_.assertHeld();
  const std::uint64_t now = environment_.host.hostClock.absoluteTime();
  const std::int64_t elapsed_ms =
      Auxiliary::tickToMsecs(environment_.host, static_cast<std::int64_t>(now - lastTick_));
  lastTick_ = now;

  if (session_ && !session_->isRunning()) {
    failedDeviceID_ = deviceID_;
    close();
  }
  sinceRefresh_ms_ += elapsed_ms;
  const bool recording = recording_ && recording_();
  if (recording || sinceRefresh_ms_ >= static_cast<std::int64_t>(kRefreshInterval_s * 1000)) {
    refresh();
  }
  if (!session_) return;

  const float decay = std::exp(-static_cast<float>(elapsed_ms) / (1000 * float{kDecay_s}));
  const float level = std::min(std::max(tap_->take(), level_ * decay), 1.0F);
  showLevel(level < kSilence ? 0 : level);
}

platform::CaptureDevicePtr LevelMeter::deviceToListenTo() const {
  if (recording_ && recording_()) return nullptr;
  if (!Auxiliary::getStatusOfMediaType(environment_.host, platform::MediaType::kAudio)) {
    return nullptr;
  }
  return chosenDevice_();
}

void LevelMeter::refresh() {
  sinceRefresh_ms_ = 0;
  const auto device = deviceToListenTo();
  if (!device) {
    close();
    return;
  }
  const std::string id = device->uniqueID();
  if (session_ && id == deviceID_) return;
  if (id == failedDeviceID_) return;
  close();
  if (open(device)) {
    deviceID_ = id;
    if (const auto control = indicator_.lock()) control->setHidden(false);
  } else {
    failedDeviceID_ = id;
  }
}

bool LevelMeter::open(const platform::CaptureDevicePtr& device) {
  platform::Capture& capture = environment_.host.capture;
  std::string error;
  const auto session = capture.createMonitoringSession();
  const auto input = session ? capture.createDeviceInput(device, &error) : nullptr;
  const auto output = input ? capture.createAudioDataOutput() : nullptr;
  const auto queue =
      environment_.host.dispatch.createSerialQueue("com.vantrel.korvel.RecordAudio.LevelQueue");
  if (!queue) error = "there is no thread to spare";
  if (!queue || !output || !session->canAddInput(input) || !session->canAddOutput(output)) {
    environment_.suite.logging.VKLogVariadic(
        "Can't show the level of \"%@\". The choice itself still holds. Error: %@",
        {device->localizedName(), error});
    return false;
  }
  tap_ = std::make_shared<PeakTap>();
  output->setSampleBufferDelegate(tap_, queue);
  session->addInput(input);
  session->addOutput(output);
  session->startRunning();
  session_ = session;
  return true;
}

void LevelMeter::close() {
  if (!session_) return;
  session_->stopRunning();
  session_ = nullptr;
  tap_ = nullptr;
  showLevel(0);
  if (const auto control = indicator_.lock()) control->setHidden(true);
}

void LevelMeter::showLevel(float level) {
  if (level == level_) return;
  level_ = level;
  if (const auto control = indicator_.lock()) control->setLevel(level);
}

}  // namespace record_audio
