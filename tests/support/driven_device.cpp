// SPDX-License-Identifier: MIT
#include "tests/support/driven_device.h"

#include <pipewire/pipewire.h>
#include <pthread.h>
#include <spa/node/io.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/realtime_connection.h"

namespace test_support {
namespace {

constexpr double kNsPerSecond = 1e9;
// The pause between two checks whether the device runs.
constexpr double kPause_ns = 5e6;

double now_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * kNsPerSecond + static_cast<double>(now.tv_nsec);
}

void sleepUntil(double time_ns) {
  const auto whole_ns = static_cast<std::uint64_t>(time_ns);
  const timespec until{static_cast<time_t>(whole_ns / 1'000'000'000),
                       static_cast<long>(whole_ns % 1'000'000'000)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

struct DrivenDevice::Impl {
  explicit Impl(Wiring parts) : wiring(std::move(parts)) {}

  const Wiring wiring;
  std::atomic<int> late{0};
  std::atomic<std::uint64_t> frame{0};  // the number of the cycle's first frame
  std::atomic<spa_io_position*> position{nullptr};
  std::atomic<bool> streaming{false};
  std::atomic<bool> quit{false};
  pw_thread_loop* loop = nullptr;
  std::unique_ptr<RealtimeConnection> connection;
  pw_stream* stream = nullptr;
  spa_hook listener{};
  std::thread crystal;

  static void onIoChanged(void* data, std::uint32_t id, void* area, std::uint32_t) {
    if (id == SPA_IO_Position) {
      static_cast<Impl*>(data)->position = static_cast<spa_io_position*>(area);
    }
  }
  static void onStateChanged(void* data, pw_stream_state, pw_stream_state now, const char*) {
    static_cast<Impl*>(data)->streaming = now == PW_STREAM_STATE_STREAMING;
  }
  static void onProcess(void* data);
  void connect();
  void run();
};

void DrivenDevice::Impl::onProcess(void* data) {
  auto* self = static_cast<Impl*>(data);
  spa_io_position* const io = self->position;
  if (io == nullptr) return;
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream)) {
    self->wiring.exchange(*buffer->buffer, self->frame,
                          static_cast<std::uint32_t>(io->clock.duration));
    pw_stream_queue_buffer(self->stream, buffer);
    if (!self->wiring.isSink) return;
  }
}

// Starts the cycles as the device's interrupt would.
void DrivenDevice::Impl::run() {
  const sched_param priority{80};
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);  // if permitted
  double next_ns = now_ns();
  while (!quit) {
    spa_io_position* const io = position;
    if (io == nullptr || !streaming || io->clock.duration == 0) {
      next_ns = now_ns() + kPause_ns;
      sleepUntil(next_ns);
      continue;
    }
    const std::uint64_t cycles = 1 + wiring.leftOut(io->clock.duration);
    const std::uint64_t passed_frames = cycles * io->clock.duration;
    const double cycle_ns =
        static_cast<double>(io->clock.duration) * kNsPerSecond / (kRate_Hz * wiring.speed);
    next_ns += static_cast<double>(cycles) * cycle_ns;
    if (now_ns() > next_ns + cycle_ns) ++late;
    sleepUntil(next_ns);
    frame += passed_frames;
    io->clock.nsec = static_cast<std::uint64_t>(next_ns);
    io->clock.rate = {1, kRate_Hz};
    io->clock.position += passed_frames;
    io->clock.rate_diff = wiring.speed;
    io->clock.next_nsec = static_cast<std::uint64_t>(next_ns + cycle_ns);
    pw_stream_trigger_process(stream);
  }
}

void DrivenDevice::Impl::connect() {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = kRate_Hz;
  info.channels = static_cast<std::uint32_t>(wiring.positions.size());
  std::copy(wiring.positions.begin(), wiring.positions.end(), info.position);
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  const auto direction = wiring.isSink ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT;
  if (pw_stream_connect(stream, direction, PW_ID_ANY, flags, &format, 1) < 0) {
    throw std::runtime_error(wiring.nodeName + " cannot connect");
  }
}

DrivenDevice::DrivenDevice(Wiring wiring) : impl_(std::make_unique<Impl>(std::move(wiring))) {
  static constexpr pw_stream_events kEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = Impl::onStateChanged;
    events.io_changed = Impl::onIoChanged;
    events.process = Impl::onProcess;
    return events;
  }();
  pw_init(nullptr, nullptr);
  const char* const name = impl_->wiring.nodeName.c_str();
  impl_->loop = pw_thread_loop_new(name, nullptr);
  impl_->connection = std::make_unique<RealtimeConnection>(pw_thread_loop_get_loop(impl_->loop));
  impl_->stream = pw_stream_new(
      impl_->connection->core(), name,
      pw_properties_new(PW_KEY_MEDIA_CLASS, impl_->wiring.isSink ? "Audio/Sink" : "Audio/Source",
                        PW_KEY_NODE_NAME, name, PW_KEY_NODE_DRIVER, "true", PW_KEY_NODE_VIRTUAL,
                        "true", PW_KEY_PRIORITY_DRIVER, "2000", nullptr));
  pw_stream_add_listener(impl_->stream, &impl_->listener, &kEvents, impl_.get());
  impl_->connect();
  pw_thread_loop_start(impl_->loop);
  impl_->crystal = std::thread([this] { impl_->run(); });
}

DrivenDevice::~DrivenDevice() {
  impl_->quit = true;
  impl_->crystal.join();
  pw_thread_loop_stop(impl_->loop);
  pw_stream_destroy(impl_->stream);
  impl_->connection.reset();
  pw_thread_loop_destroy(impl_->loop);
  pw_deinit();
}

int DrivenDevice::lateCycles() const {
  return impl_->late;
}

}  // namespace test_support
