// SPDX-License-Identifier: MIT
#include "tests/integration/play_through_rig.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <cmath>

#include "driver/loopback_protocol.h"
#include "hosts/linux/audio_units/speaker_layout.h"
#include "tests/support/private_pipewire.h"

namespace linux_host {
namespace {

constexpr std::uint32_t kCycle_frames = 1024;

platform::Host withSound(const platform::Host& rest, platform::AudioHardware& hardware,
                         platform::AudioUnits& units) {
  return {rest.application,
          rest.alerts,
          rest.workspace,
          rest.interfaceLoader,
          rest.cursor,
          rest.systemColors,
          rest.userNotificationCenter,
          rest.wallClock,
          rest.userDefaults,
          rest.fileManager,
          rest.mainBundle,
          rest.bundleLoader,
          rest.processInfo,
          rest.runLoop,
          rest.notificationCenter,
          rest.dateFormatter,
          rest.userAccount,
          rest.hostClock,
          rest.dispatch,
          rest.capture,
          hardware,
          units,
          rest.authorization,
          rest.launchServices,
          rest.appleEvents,
          rest.interruptedRecordings};
}

}  // namespace

MonitorRecorder::MonitorRecorder(const std::string& sinkName, double rate_Hz,
                                 std::uint32_t channels, double room_s)
    : rate_Hz_(rate_Hz),
      channels_(channels),
      room_frames_(static_cast<std::size_t>(room_s * rate_Hz)),
      planes_(channels, std::vector<float>(room_frames_)),
      blocks_(room_frames_ / 16) {
  DeviceStreamTarget target;
  target.nodeName = sinkName;
  target.isMonitor = true;
  target.rate_Hz = static_cast<std::uint32_t>(rate_Hz);
  target.positions = speakerLayout({}, channels);
  target.cycle_frames = kCycle_frames;
  stream_ = std::make_unique<DeviceStream>(DeviceStream::Direction::kRecord, target,
                                           static_cast<DeviceStream::Client&>(*this),
                                           [this](const std::string&) { hasEnded_ = true; });
}

MonitorRecorder::~MonitorRecorder() {
  stream_.reset();
}

void MonitorRecorder::process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) {
  const std::size_t before = frames_.load(std::memory_order_relaxed);
  const std::size_t block = blockCount_.load(std::memory_order_relaxed);
  if (before + frames > room_frames_ || block == blocks_.size()) return;
  for (std::uint32_t channel = 0; channel < channels_; ++channel) {
    std::copy_n(planes[channel], frames, planes_[channel].data() + before);
  }
  blocks_[block] = {cycle.host_ns, before};
  blockCount_.store(block + 1, std::memory_order_release);
  frames_.store(before + frames, std::memory_order_release);
}

std::vector<float> MonitorRecorder::samples(std::uint32_t channel, std::size_t from,
                                            std::size_t to) const {
  const std::vector<float>& plane = planes_.at(channel);
  const std::size_t end = std::min(to, frames());
  if (from >= end) return {};
  return {plane.begin() + static_cast<std::ptrdiff_t>(from),
          plane.begin() + static_cast<std::ptrdiff_t>(end)};
}

std::vector<MonitorRecorder::Block> MonitorRecorder::blocks() const {
  const std::size_t count = blockCount_.load(std::memory_order_acquire);
  return {blocks_.begin(), blocks_.begin() + static_cast<std::ptrdiff_t>(count)};
}

double MonitorRecorder::timeOfFirstLouder_s(float level, std::size_t from) const {
  const std::vector<Block> all = blocks();
  const std::vector<float>& plane = planes_.at(0);
  const std::size_t end = frames();
  std::size_t frame = from;
  while (frame < end && std::abs(plane[frame]) <= level) ++frame;
  if (frame == end) return 0;
  const auto block =
      std::upper_bound(all.begin(), all.end(), frame,
                       [](std::size_t value, const Block& b) { return value < b.firstFrame; }) -
      1;
  return static_cast<double>(block->host_ns) / 1e9 +
         static_cast<double>(frame - block->firstFrame) / rate_Hz_;
}

PlayThroughRig::PlayThroughRig() : host(withSound(rest.host, hardware, units)) {}

platform::OSStatus PlayThroughRig::start(const std::string& sinkName) {
  playThrough = std::make_unique<record_audio::AudioPlayThrough>(host);
  const bool areThere = test_support::waitUntil([&] {
    bool found = false;
    connection.withGraph([&](const AudioGraph& graph) {
      found = graph.findNode(loopback::kLoopbackDeviceUID) != nullptr &&
              graph.findNode(sinkName) != nullptr;
    });
    return found;
  });
  if (!areThere || !playThrough->initDevices(hardware.deviceId(sinkName))) {
    return platform::kAudioHardwareBadDeviceError;
  }
  return playThrough->start();
}

}  // namespace linux_host
