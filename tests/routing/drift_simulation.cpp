// SPDX-License-Identifier: MIT
#include "tests/routing/drift_simulation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace routing_test {

namespace {

// A prime number of samples, so that a slip by whole periods or blocks never looks right.
constexpr std::int64_t kSignalPeriod_frames = 16411;
constexpr double kSignalCycles = 7;
constexpr double kAmplitude = 0.5;
constexpr std::uint32_t kMostPulled_frames = 4096;

// The signal's greatest second difference, doubled for the corners of linear interpolation.
double greatestHonestSecondDifference(double ratio) {
  const double omega = 2 * std::numbers::pi * kSignalCycles / kSignalPeriod_frames * ratio;
  return 2 * kAmplitude * omega * omega + 4e-7;  // and for rounding to 24 bits
}

}  // namespace

DriftSimulation::DriftSimulation(const Scenario& scenario)
    : scenario_(scenario),
      jitter_(static_cast<std::uint64_t>(scenario.input_ppm * 10 + 5000)),
      input_(48000, scenario.input_ppm, kBuffer_frames),
      output_(scenario.outputRate_hz, scenario.output_ppm, scenario.output_frames),
      ratio_(48000 / scenario.outputRate_hz),
      block_(1, kMostPulled_frames) {
  machine_.setChannels(1, 1);
  machine_.setNominalRate(kSpeakers, scenario.outputRate_hz);
  machine_.host.audioHardware.setDeviceTiming(kSpeakers, false, 24, scenario.output_frames);
  machine_.startPlaying();
  machine_.host.audioUnits.render = [this](const platform::AudioTimeStamp& time,
                                           std::uint32_t frames, platform::AudioBufferList& list) {
    render(time, frames, list);
  };
  for (std::int64_t i = 0; i < kSignalPeriod_frames + kMostPulled_frames; ++i) {
    const double phase = 2 * std::numbers::pi * kSignalCycles *
                         static_cast<double>(i % kSignalPeriod_frames) /
                         static_cast<double>(kSignalPeriod_frames);
    signal_.push_back(static_cast<float>(kAmplitude * std::sin(phase)));
  }
}

const float* DriftSimulation::signal(std::int64_t sampleTime) const {
  return signal_.data() + sampleTime % kSignalPeriod_frames;
}

void DriftSimulation::render(const platform::AudioTimeStamp& time, std::uint32_t frames,
                             platform::AudioBufferList& list) {
  std::memcpy(list.mBuffers[0].mData, signal(static_cast<std::int64_t>(time.mSampleTime)),
              frames * sizeof(float));
}

Findings DriftSimulation::run() {
  double nextInput_s = 0;
  double nextOutput_s = 0;
  const auto schedule = [this](const DeviceClock& clock, std::int64_t frames, double previous_s) {
    const double due_s = clock.timeOf(static_cast<double>(frames));
    return std::max(due_s + jitter_.next() * kLargestJitter_s, previous_s);
  };
  // An input block is complete when its last frame is there.
  nextInput_s = schedule(input_, input_.period_frames, 0);
  nextOutput_s = schedule(output_, 0, 0);
  bool isToSuspend = scenario_.suspension_s > 0;
  while (std::min(nextInput_s, nextOutput_s) < scenario_.duration_s) {
    if (isToSuspend && nextOutput_s > scenario_.duration_s / 2) {
      isToSuspend = false;
      suspend();
      nextInput_s = schedule(input_, input_.frames + input_.period_frames, nextInput_s);
      nextOutput_s = schedule(output_, output_.frames, nextOutput_s);
      continue;
    }
    if (nextInput_s <= nextOutput_s) {
      inputCycle();
      input_.frames += input_.period_frames;
      nextInput_s = schedule(input_, input_.frames + input_.period_frames, nextInput_s);
    } else {
      const double ideal_s = output_.timeOf(static_cast<double>(output_.frames));
      seconds_ = ideal_s;
      if (jitter_.next() < kXrunProbability) {
        skipOutputCycle();
      } else {
        outputCycle(ideal_s);
      }
      output_.frames += output_.period_frames;
      nextOutput_s = schedule(output_, output_.frames, nextOutput_s);
    }
  }
  return findings_;
}

void DriftSimulation::suspend() {
  const double awake_s =
      output_.timeOf(static_cast<double>(output_.frames)) + scenario_.suspension_s;
  while (input_.timeOf(static_cast<double>(input_.frames + input_.period_frames)) < awake_s) {
    input_.frames += input_.period_frames;
  }
  while (output_.timeOf(static_cast<double>(output_.frames)) < awake_s) {
    seconds_ = output_.timeOf(static_cast<double>(output_.frames));
    skipOutputCycle();
    output_.frames += output_.period_frames;
  }
}

void DriftSimulation::inputCycle() {
  ++findings_.inputBlocks;
  if (jitter_.next() < kXrunProbability) {
    ++findings_.inputXruns;
    lastXrun_s_ = seconds_;
    return;
  }
  const platform::OSStatus status = machine_.host.audioUnits.driveInput(
      at(static_cast<double>(kFirstInputTime + input_.frames)), input_.period_frames);
  if (status != platform::noErr) ++findings_.wrongBlocks;
}

// As a phase-locked loop estimates it: right in the long run, and off by some millionths from one
// period to the next.
double DriftSimulation::estimatedSpeed(DeviceClock& clock) {
  constexpr double kPhaseNoise_frames = 0.001;
  const double error = (jitter_.next() - 0.5) * kPhaseNoise_frames;
  const double change = error - clock.estimateError;
  clock.estimateError = error;
  return clock.speed * (1 + change / clock.period_frames);
}

void DriftSimulation::skipOutputCycle() {
  ++findings_.outputBlocks;
  ++findings_.outputXruns;
  lastXrun_s_ = seconds_;
  const double rate = machine_.host.audioUnits.lastParameter.value;
  if (machine_.playThrough->firstOutputTime < 0) return;
  stage_.position += output_.period_frames * ratio_ * rate;
  stage_.pulledEnd = static_cast<std::int64_t>(stage_.position);
}

void DriftSimulation::outputCycle(double ideal_s) {
  ++findings_.outputBlocks;
  auto& hardware = machine_.host.audioHardware;
  hardware.setRateScalar(kLoopback, estimatedSpeed(input_));
  hardware.setRateScalar(kSpeakers, estimatedSpeed(output_));

  const std::int64_t pulledBefore = stage_.pulledEnd;
  const std::uint32_t frames = pull();
  if (machine_.playThrough->firstOutputTime >= 0) {
    const std::int64_t readTime =
        pulledBefore - static_cast<std::int64_t>(machine_.playThrough->inputToOutputOffset);
    if (settled()) comparePulled(readTime, frames);
    measure(ideal_s, readTime, frames);
    checkOutput(pulledBefore, findings_.outputBlocks % 1024 == 0);
  }
  const double rate = machine_.playThrough->firstOutputTime >= 0
                          ? static_cast<double>(machine_.host.audioUnits.lastParameter.value)
                          : 1.0;
  stage_.position += output_.period_frames * ratio_ * rate;
  const float* const pulled = block_.plane(0).data();
  std::copy_n(pulled + frames - kTail_frames, kTail_frames, stage_.tail.begin());
}

// Pulls what this cycle needs beyond what was pulled before; returns how many frames.
std::uint32_t DriftSimulation::pull() {
  const double rate = machine_.host.audioUnits.setParameterCalls > 0
                          ? static_cast<double>(machine_.host.audioUnits.lastParameter.value)
                          : 1.0;
  const double last = stage_.position + (output_.period_frames - 1) * ratio_ * rate;
  // One more than interpolation needs, so that there is enough for the rate that this pull sets.
  const std::int64_t end = static_cast<std::int64_t>(last) + 3;
  const auto frames = static_cast<std::uint32_t>(end - stage_.pulledEnd);
  block_.buffer(0).mDataByteSize = frames * static_cast<std::uint32_t>(sizeof(float));
  const platform::OSStatus status = machine_.host.audioUnits.driveOutput(
      at(static_cast<double>(stage_.pulledEnd)), frames, &block_.list());
  if (status != platform::noErr) ++findings_.wrongBlocks;
  stage_.pulledEnd = end;
  return frames;
}

void DriftSimulation::comparePulled(std::int64_t firstFrame, std::uint32_t frames) {
  const bool right =
      firstFrame >= kFirstInputTime &&
      std::memcmp(block_.plane(0).data(), signal(firstFrame), frames * sizeof(float)) == 0;
  if (!right) ++findings_.wrongBlocks;
}

float DriftSimulation::stageSample(std::int64_t frame, std::int64_t pulledBefore) {
  if (frame >= pulledBefore) {
    return block_.plane(0)[static_cast<std::size_t>(frame - pulledBefore)];
  }
  return stage_.tail.at(static_cast<std::size_t>(frame - (pulledBefore - kTail_frames)));
}

void DriftSimulation::checkOutput(std::int64_t pulledBefore, bool whole) {
  constexpr std::uint32_t kEdge = 4;
  const double rate = ratio_ * static_cast<double>(machine_.host.audioUnits.lastParameter.value);
  const double most = greatestHonestSecondDifference(ratio_);
  double before = stage_.lastOutputs[0];
  double last = stage_.lastOutputs[1];
  for (std::uint32_t i = 0; i < output_.period_frames; ++i) {
    const bool jumped = !whole && i == kEdge;
    if (jumped) i = output_.period_frames - kEdge;
    const double position = stage_.position + i * rate;
    const auto frame = static_cast<std::int64_t>(position);
    const double left = static_cast<double>(stageSample(frame, pulledBefore));
    const double right = static_cast<double>(stageSample(frame + 1, pulledBefore));
    const double sample = left + (right - left) * (position - static_cast<double>(frame));
    const bool joined = whole || i < kEdge || i >= output_.period_frames - kEdge + 2;
    if (joined && settled()) {
      const double second = std::abs(sample - 2 * last + before);
      findings_.greatestSecondDifference = std::max(findings_.greatestSecondDifference, second);
      if (second > most) ++findings_.discontinuities;
    }
    before = last;
    last = sample;
  }
  stage_.lastOutputs = {before, last};
}

void DriftSimulation::measure(double ideal_s, std::int64_t readTime, std::uint32_t frames) {
  if (seconds_ <= 1.0) return;
  const double captured = static_cast<double>(kFirstInputTime) + ideal_s * input_.actual_hz;
  const double playing = static_cast<double>(readTime) - static_cast<double>(stage_.pulledEnd) +
                         static_cast<double>(frames) + stage_.position;
  const double latency = captured - playing;
  findings_.leastLatency = std::min(findings_.leastLatency, latency);
  findings_.greatestLatency = std::max(findings_.greatestLatency, latency);
  if (!settled()) return;
  std::int64_t start = 0;
  std::int64_t end = 0;
  machine_.playThrough->ringBuffer->getTimeBounds(start, end);
  const auto fill = static_cast<double>(end - readTime);
  findings_.leastFill = std::min(findings_.leastFill, fill - frames);
  findings_.greatestFill = std::max(findings_.greatestFill, fill);
}

}  // namespace routing_test
