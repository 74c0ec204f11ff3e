// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/varispeed_unit.h"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace linux_host {
namespace {

using platform::AudioBufferList;
using platform::AudioStreamBasicDescription;
using platform::noErr;
using platform::OSStatus;

constexpr std::uint32_t kUsualCycle_frames = 1024;
constexpr std::uint32_t kPiecesPerCycle = 8;
// The length of one pull.
constexpr std::uint32_t kPiece_frames = kUsualCycle_frames / kPiecesPerCycle;
constexpr std::uint32_t kMostSteppedBack_pieces = 8 * kPiecesPerCycle;
constexpr double kUsualRate_Hz = 44100;
// The converter's limits, far beyond what clocks need.
constexpr float kSlowest = 0.25F;
constexpr float kFastest = 4.0F;

constexpr UnitPropertyAddress kInputFormat{platform::kAudioUnitProperty_StreamFormat,
                                           platform::kAudioUnitScope_Input, 0};
constexpr UnitPropertyAddress kOutputFormat{platform::kAudioUnitProperty_StreamFormat,
                                            platform::kAudioUnitScope_Output, 0};
constexpr UnitPropertyAddress kSourceCallback{platform::kAudioUnitProperty_SetRenderCallback,
                                              platform::kAudioUnitScope_Input, 0};

void interleave(PlaneList& planes, std::uint32_t frames, float* out) {
  const std::uint32_t channels = planes.channels();
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const float* const plane = planes.plane(channel);
    for (std::uint32_t i = 0; i < frames; ++i) out[i * channels + channel] = plane[i];
  }
}

void deinterleave(const float* in, std::uint32_t frames, AudioBufferList& list) {
  const std::uint32_t channels = list.mNumberBuffers;
  const platform::AudioBuffer* const buffers = list.mBuffers;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    auto* const plane = static_cast<float*>(buffers[channel].mData);
    for (std::uint32_t i = 0; i < frames; ++i) plane[i] = in[i * channels + channel];
  }
}

bool hasRoom(const AudioBufferList& list, std::uint32_t channels, std::uint32_t frames) {
  if (list.mNumberBuffers != channels) return false;
  const platform::AudioBuffer* const buffers = list.mBuffers;
  return std::all_of(buffers, buffers + channels, [&](const platform::AudioBuffer& buffer) {
    return buffer.mData != nullptr && buffer.mDataByteSize / sizeof(float) >= frames;
  });
}

}  // namespace

void Shortfall::pulled(std::uint32_t frames, std::uint32_t delivered_frames) {
  isShort_ = isShort_ || delivered_frames < frames;
  // After the first piece that came up short, everything counts as missing.
  if (isShort_) missing_frames_ += frames - (delivered_frames < frames ? delivered_frames : 0);
}

std::uint32_t Shortfall::endOfCycle() {
  if (!isShort_) {
    shortCycles_ = 0;
    mostMissing_frames_ = 0;
    return 0;
  }
  mostMissing_frames_ = std::max(mostMissing_frames_, missing_frames_);
  isShort_ = false;
  missing_frames_ = 0;
  if (++shortCycles_ < kCyclesInARow) return 0;
  shortCycles_ = 0;
  return std::exchange(mostMissing_frames_, 0);
}

void VarispeedUnit::ConverterDelete::operator()(SRC_STATE_tag* state) const {
  src_delete(state);
}

VarispeedUnit::VarispeedUnit()
    : inputFormat_(platform::planarFloat(kUsualRate_Hz, 2)), outputFormat_(inputFormat_) {}

VarispeedUnit::~VarispeedUnit() = default;

OSStatus VarispeedUnit::initialize() {
  if (converter_) return noErr;
  const std::uint32_t channels = inputFormat_.mChannelsPerFrame;
  if (channels != outputFormat_.mChannelsPerFrame) {
    return platform::kAudioUnitErr_FormatNotSupported;
  }
  if (src_is_valid_ratio(outputFormat_.mSampleRate / inputFormat_.mSampleRate / kSlowest) == 0 ||
      src_is_valid_ratio(outputFormat_.mSampleRate / inputFormat_.mSampleRate / kFastest) == 0) {
    return platform::kAudioUnitErr_FormatNotSupported;
  }
  planes_.assign(std::size_t{kPiece_frames} * channels, 0.0F);
  pieceInterleaved_.assign(std::size_t{kPiece_frames} * channels, 0.0F);
  outputInterleaved_.assign(std::size_t{kMostFrames} * channels, 0.0F);
  pieceList_ = PlaneList(channels);
  int error = 0;
  converter_.reset(
      src_callback_new(pullCallback, SRC_SINC_FASTEST, static_cast<int>(channels), &error, this));
  if (!converter_) return platform::kAudioUnitErr_FailedInitialization;
  consumed_frames_ = 0;
  skippedRemainder_frames_ = 0;
  steppedBack_frames_ = 0;
  hasRendered_ = false;
  shortfall_ = Shortfall();
  return noErr;
}

OSStatus VarispeedUnit::uninitialize() {
  renderThread_.release();
  converter_.reset();
  return noErr;
}

OSStatus VarispeedUnit::setFormat(AudioStreamBasicDescription& format, const void* data,
                                  std::uint32_t size_bytes) {
  AudioStreamBasicDescription wanted;
  if (!readProperty(data, size_bytes, &wanted)) {
    return platform::kAudioUnitErr_InvalidPropertyValue;
  }
  if (converter_) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  if (!isPlanarFloat(wanted)) return platform::kAudioUnitErr_FormatNotSupported;
  format = wanted;
  return noErr;
}

OSStatus VarispeedUnit::setProperty(const UnitPropertyAddress& address, const void* data,
                                    std::uint32_t size_bytes) {
  if (address == kInputFormat) return setFormat(inputFormat_, data, size_bytes);
  if (address == kOutputFormat) return setFormat(outputFormat_, data, size_bytes);
  if (address != kSourceCallback) return platform::kAudioUnitErr_InvalidProperty;
  return readProperty(data, size_bytes, &source_) ? noErr
                                                  : platform::kAudioUnitErr_InvalidPropertyValue;
}

Unit::Value VarispeedUnit::property(const UnitPropertyAddress& address) {
  if (address == kInputFormat) return PropertyValue::record(inputFormat_);
  if (address == kOutputFormat) return PropertyValue::record(outputFormat_);
  return platform::kAudioUnitErr_InvalidProperty;
}

OSStatus VarispeedUnit::setParameter(std::uint32_t parameter, std::uint32_t scope,
                                     std::uint32_t element, float value) {
  if (parameter != platform::kVarispeedParam_PlaybackRate) {
    return platform::kAudioUnitErr_InvalidParameter;
  }
  if (scope != platform::kAudioUnitScope_Global) return platform::kAudioUnitErr_InvalidScope;
  if (element != 0) return platform::kAudioUnitErr_InvalidElement;
  if (!(value >= kSlowest && value <= kFastest)) {
    return platform::kAudioUnitErr_InvalidPropertyValue;
  }
  rate_.store(value, std::memory_order_relaxed);
  return noErr;
}

double VarispeedUnit::outputPerInput() const {
  return outputFormat_.mSampleRate / inputFormat_.mSampleRate /
         static_cast<double>(rate_.load(std::memory_order_relaxed));
}

OSStatus VarispeedUnit::render(std::uint32_t*, const platform::AudioTimeStamp& timeStamp,
                               std::uint32_t busNumber, std::uint32_t frameCount,
                               AudioBufferList& list) {
  renderThread_.assertHeld();
  if (busNumber != 0) return platform::kAudioUnitErr_InvalidElement;
  if (!converter_) return platform::kAudioUnitErr_Uninitialized;
  if (source_.inputProc == nullptr) return platform::kAudioUnitErr_NoConnection;
  if (frameCount > kMostFrames) return platform::kAudioUnitErr_TooManyFramesToProcess;
  if (!hasRoom(list, outputFormat_.mChannelsPerFrame, frameCount)) {
    return platform::kAudio_ParamError;
  }
  if (hasRendered_) skip(timeStamp.mSampleTime - nextOutputTime_);
  hasRendered_ = true;
  nextOutputTime_ = timeStamp.mSampleTime + frameCount;
  host_ns_ = timeStamp.mHostTime;

  const long made = src_callback_read(converter_.get(), outputPerInput(),
                                      static_cast<long>(frameCount), outputInterleaved_.data());
  const auto frames = static_cast<std::uint32_t>(std::clamp(made, 0L, long{frameCount}));
  const std::ptrdiff_t channels = list.mNumberBuffers;
  std::fill(outputInterleaved_.begin() + frames * channels,
            outputInterleaved_.begin() + frameCount * channels, 0.0F);
  deinterleave(outputInterleaved_.data(), frameCount, list);
  stepBack(shortfall_.endOfCycle());
  return noErr;
}

// Limited, as it does not help if the source cannot keep up at all.
void VarispeedUnit::stepBack(std::uint32_t frames) {
  if (steppedBack_frames_ + frames > kMostSteppedBack_pieces * kPiece_frames) return;
  steppedBack_frames_ += frames;
  consumed_frames_ -= frames;
}

// Consecutive time stamps are not exact to the last bit.
void VarispeedUnit::skip(double output_frames) {
  constexpr double kLeast_frames = 0.01;
  if (!(output_frames > kLeast_frames)) return;
  skippedRemainder_frames_ += output_frames / outputPerInput();
  const double whole = std::floor(skippedRemainder_frames_);
  consumed_frames_ += static_cast<std::int64_t>(whole);
  skippedRemainder_frames_ -= whole;
}

long VarispeedUnit::pullCallback(void* self, float** data) {
  return static_cast<VarispeedUnit*>(self)->pull(data);
}

long VarispeedUnit::pull(float** data) {
  silencePiece();
  platform::AudioTimeStamp time;
  time.mSampleTime = static_cast<double>(consumed_frames_);
  time.mHostTime = host_ns_;
  time.mRateScalar = 1;
  std::uint32_t flags = 0;
  const OSStatus status = source_.inputProc(source_.inputProcRefCon, &flags, &time, 0,
                                            kPiece_frames, &pieceList_.list());
  if (status == noErr) shortfall_.pulled(kPiece_frames, pieceList_.frames(0));
  consumed_frames_ += kPiece_frames;
  interleave(pieceList_, kPiece_frames, pieceInterleaved_.data());
  *data = pieceInterleaved_.data();
  return static_cast<long>(kPiece_frames);
}

void VarispeedUnit::silencePiece() {
  std::fill(planes_.begin(), planes_.end(), 0.0F);
  for (std::uint32_t channel = 0; channel < pieceList_.channels(); ++channel) {
    pieceList_.setPlane(channel, planes_.data() + std::size_t{channel} * kPiece_frames,
                        kPiece_frames);
  }
}

}  // namespace linux_host
