// SPDX-License-Identifier: MIT
#include "tests/support/signal_feed.h"

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/realtime_connection.h"

namespace test_support {
namespace {

constexpr double kFeedRate_Hz = 48000.0;
constexpr std::uint64_t kNumbers = 1U << 23;

float tone(double frequency_Hz, std::uint64_t frame) {
  // Whole periods are subtracted first, so that the phase stays exact for hours.
  const double phase =
      std::fmod(static_cast<double>(frame) * frequency_Hz, kFeedRate_Hz) / kFeedRate_Hz;
  return static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * phase));
}

}  // namespace

float tone1000Hz(std::uint64_t frame, std::uint32_t) {
  return tone(1000.0, frame);
}

float toneEachChannel(std::uint64_t frame, std::uint32_t channel) {
  return tone(channel % 2 == 0 ? 1000.0 : 500.0, frame);
}

float frameNumber(std::uint64_t frame, std::uint32_t) {
  return static_cast<float>(frame % kNumbers + 1) / static_cast<float>(kNumbers);
}

std::uint64_t frameNumberOf(float sample) {
  return static_cast<std::uint64_t>(sample * static_cast<float>(kNumbers)) - 1;
}

struct SignalFeed::Impl {
  std::string name;
  Signal signal;
  pw_thread_loop* loop = nullptr;
  std::unique_ptr<RealtimeConnection> connection;
  pw_filter* filter = nullptr;
  spa_hook listener{};
  std::vector<void*> ports;
  std::atomic<std::uint64_t> frame{0};

  static void onProcess(void* data, spa_io_position* position) {
    auto* self = static_cast<Impl*>(data);
    const auto count = static_cast<std::uint32_t>(position->clock.duration);
    const std::uint64_t first = self->frame.load(std::memory_order_relaxed);
    for (std::uint32_t channel = 0; channel < self->ports.size(); ++channel) {
      auto* samples = static_cast<float*>(pw_filter_get_dsp_buffer(self->ports[channel], count));
      if (samples == nullptr) continue;
      for (std::uint32_t i = 0; i < count; ++i) samples[i] = self->signal(first + i, channel);
    }
    self->frame.store(first + count, std::memory_order_relaxed);
  }
};

SignalFeed::SignalFeed(std::string nodeName, std::uint32_t channels, Signal signal)
    : impl_(std::make_unique<Impl>()) {
  static constexpr pw_filter_events kEvents = [] {
    pw_filter_events events{};
    events.version = PW_VERSION_FILTER_EVENTS;
    events.process = Impl::onProcess;
    return events;
  }();
  impl_->name = std::move(nodeName);
  impl_->signal = signal;
  pw_init(nullptr, nullptr);
  impl_->loop = pw_thread_loop_new("test-signal", nullptr);
  impl_->connection = std::make_unique<RealtimeConnection>(pw_thread_loop_get_loop(impl_->loop));
  impl_->filter =
      pw_filter_new(impl_->connection->core(), impl_->name.c_str(),
                    pw_properties_new(PW_KEY_NODE_NAME, impl_->name.c_str(), PW_KEY_MEDIA_TYPE,
                                      "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                      PW_KEY_NODE_AUTOCONNECT, "false", nullptr));
  pw_filter_add_listener(impl_->filter, &impl_->listener, &kEvents, impl_.get());
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    impl_->ports.push_back(pw_filter_add_port(
        impl_->filter, PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(int),
        pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME,
                          ("out_" + std::to_string(channel)).c_str(), nullptr),
        nullptr, 0));
  }
  if (pw_filter_connect(impl_->filter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0) {
    throw std::runtime_error("the signal feed cannot connect");
  }
  pw_thread_loop_start(impl_->loop);
}

SignalFeed::~SignalFeed() {
  pw_thread_loop_stop(impl_->loop);
  pw_filter_destroy(impl_->filter);
  impl_->connection.reset();
  pw_thread_loop_destroy(impl_->loop);
  pw_deinit();
}

const std::string& SignalFeed::nodeName() const {
  return impl_->name;
}

std::uint64_t SignalFeed::framesPlayed() const {
  return impl_->frame.load(std::memory_order_relaxed);
}

}  // namespace test_support
