// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/device_run.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace linux_host {

using platform::AudioBufferList;
using platform::OSStatus;

DeviceRun::DeviceRun(const Setup& setup)
    : startLine_(setup.startLine),
      rate_Hz_(setup.rate_Hz),
      buffer_frames_(setup.buffer_frames),
      publisher_(setup.clocks.claim(setup.device)) {}

void DeviceRun::process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  streamThread_.assertHeld();
  followClock(cycle);
  handle(cycle, planes, frames);
}

OSStatus DeviceRun::render(std::uint32_t, AudioBufferList&) {
  return platform::kAudioUnitErr_CannotDoInCurrentContext;
}

void DeviceRun::followClock(const GraphCycle& cycle) {
  // A stream that was late gets two blocks in one cycle.
  if (std::exchange(lastCycle_ns_, cycle.host_ns) == cycle.host_ns) return;
  sampleTime_frames_ += std::round(follower_.follow(cycle) * rate_Hz_);
  publisher_.publish({cycle.host_ns, sampleTime_frames_, rate_Hz_, follower_.rateScalar()});
}

platform::AudioTimeStamp DeviceRun::timeStamp(const GraphCycle& cycle,
                                              std::uint32_t ahead_frames) const {
  platform::AudioTimeStamp time;
  time.mSampleTime = sampleTime_frames_ + ahead_frames;
  time.mHostTime = cycle.host_ns;
  time.mRateScalar = follower_.rateScalar();
  return time;
}

InputRun::InputRun(const Setup& setup, bool isMonitor, platform::AURenderCallbackStruct callback)
    : DeviceRun(setup), isMonitor_(isMonitor), callback_(callback), rendered_(setup.channels) {
  startLine().inputStarts();
}

InputRun::~InputRun() {
  startLine().inputHasStopped();
}

void InputRun::handle(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t done = 0; done < frames;) {
    renderable_frames_ = std::min(frames - done, buffer_frames());
    for (std::uint32_t channel = 0; channel < rendered_.channels(); ++channel) {
      rendered_.setPlane(channel, planes[channel] + done, renderable_frames_);
    }
    const platform::AudioTimeStamp time = timeStamp(cycle, 0);
    std::uint32_t flags = 0;
    callback_.inputProc(callback_.inputProcRefCon, &flags, &time, kDeviceInputElement,
                        renderable_frames_, nullptr);
    done += renderable_frames_;
    advance(renderable_frames_);
  }
  renderable_frames_ = 0;
  startLine().blockDelivered(playedAt_ns(cycle));
}

// The server delivers what is played on a device to its listeners with the next cycle. Cycles as
// long as the buffer leave no time to make up for that; the delay is then one cycle longer.
std::uint64_t InputRun::playedAt_ns(const GraphCycle& cycle) const {
  if (!isMonitor_ || cycle.duration_frames > buffer_frames() / 2) return cycle.host_ns;
  const double duration_ns = static_cast<double>(cycle.duration_frames) * 1e9 / cycle.rate_Hz;
  return cycle.host_ns - static_cast<std::uint64_t>(duration_ns);
}

OSStatus InputRun::render(std::uint32_t frames, AudioBufferList& list) {
  if (renderable_frames_ == 0) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  if (frames > renderable_frames_) return platform::kAudioUnitErr_TooManyFramesToProcess;
  if (list.mNumberBuffers != rendered_.channels()) return platform::kAudio_ParamError;
  const auto size_bytes = frames * static_cast<std::uint32_t>(sizeof(float));
  const platform::AudioBuffer* const buffers = list.mBuffers;
  for (std::uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
    if (buffers[channel].mData == nullptr || buffers[channel].mDataByteSize < size_bytes) {
      return platform::kAudio_ParamError;
    }
  }
  for (std::uint32_t channel = 0; channel < list.mNumberBuffers; ++channel) {
    std::memcpy(buffers[channel].mData, rendered_.plane(channel), size_bytes);
  }
  return platform::noErr;
}

OutputRun::OutputRun(const Setup& setup, Unit* source, platform::AURenderCallbackStruct callback)
    : DeviceRun(setup), source_(source), callback_(callback), list_(setup.channels) {}

void OutputRun::handle(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t channel = 0; channel < list_.channels(); ++channel) {
    std::fill_n(planes[channel], frames, 0.0F);
  }
  if (!hasBegun(cycle)) return;
  pull(cycle, planes, frames);
  advance(frames + std::exchange(lead_frames_, 0.0));
}

// The first pull is at time 0, however long ago the input began; the second pull accounts for that
// time.
bool OutputRun::hasBegun(const GraphCycle& cycle) {
  if (begun_) return true;
  const std::uint64_t beginning_ns = startLine().beginningFor(cycle.host_ns);
  if (beginning_ns == 0) return false;
  begun_ = true;
  lead_frames_ = static_cast<double>(cycle.host_ns - beginning_ns) / 1e9 * rate_Hz();
  return true;
}

void OutputRun::pull(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  for (std::uint32_t done = 0; done < frames;) {
    const std::uint32_t part_frames = std::min(frames - done, buffer_frames());
    for (std::uint32_t channel = 0; channel < list_.channels(); ++channel) {
      list_.setPlane(channel, planes[channel] + done, part_frames);
    }
    const platform::AudioTimeStamp time = timeStamp(cycle, done);
    std::uint32_t flags = 0;
    if (source_ != nullptr) {
      source_->render(&flags, time, 0, part_frames, list_.list());
    } else {
      callback_.inputProc(callback_.inputProcRefCon, &flags, &time, kDeviceOutputElement,
                          part_frames, &list_.list());
    }
    done += part_frames;
  }
}

}  // namespace linux_host
