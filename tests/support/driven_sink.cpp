#include "tests/support/driven_sink.h"

#include <pipewire/pipewire.h>
#include <pthread.h>
#include <spa/node/io.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/realtime_connection.h"

namespace test_support {
namespace {

constexpr std::uint32_t kRate_Hz = 48000;
constexpr double kNsPerSecond = 1e9;

std::uint64_t monotonic_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

void sleepUntil(std::uint64_t time_ns) {
  const timespec until{static_cast<time_t>(time_ns / 1'000'000'000),
                       static_cast<long>(time_ns % 1'000'000'000)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

struct DrivenSink::Impl {
  double speed = 1;
  std::vector<float> samples;
  std::atomic<std::size_t> frames{0};
  std::atomic<int> late{0};
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
  void run();
};

void DrivenSink::Impl::onProcess(void* data) {
  auto* self = static_cast<Impl*>(data);
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream)) {
    const spa_data& plane = buffer->buffer->datas[0];
    const std::uint32_t count = plane.chunk->size / static_cast<std::uint32_t>(sizeof(float));
    const std::size_t before = self->frames.load(std::memory_order_relaxed);
    if (plane.data != nullptr && before + count <= self->samples.size()) {
      std::copy_n(static_cast<const float*>(plane.data), count, self->samples.data() + before);
      self->frames.store(before + count, std::memory_order_release);
    }
    pw_stream_queue_buffer(self->stream, buffer);
  }
}

// Starts the cycles as the device's interrupt would.
void DrivenSink::Impl::run() {
  const sched_param priority{80};
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);  // where it is allowed
  double next_ns = static_cast<double>(monotonic_ns());
  while (!quit) {
    spa_io_position* const io = position;
    if (io == nullptr || !streaming || io->clock.duration == 0) {
      next_ns = static_cast<double>(monotonic_ns()) + 5e6;
      sleepUntil(static_cast<std::uint64_t>(next_ns));
      continue;
    }
    const double cycle_ns =
        static_cast<double>(io->clock.duration) * kNsPerSecond / (kRate_Hz * speed);
    next_ns += cycle_ns;
    if (static_cast<double>(monotonic_ns()) > next_ns + cycle_ns) ++late;
    sleepUntil(static_cast<std::uint64_t>(next_ns));
    io->clock.nsec = static_cast<std::uint64_t>(next_ns);
    io->clock.rate = {1, kRate_Hz};
    io->clock.position += io->clock.duration;
    io->clock.rate_diff = speed;
    io->clock.next_nsec = static_cast<std::uint64_t>(next_ns + cycle_ns);
    pw_stream_trigger_process(stream);
  }
}

DrivenSink::DrivenSink(std::string nodeName, double speed_ppm, double room_s)
    : impl_(std::make_unique<Impl>()) {
  static constexpr pw_stream_events kEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = Impl::onStateChanged;
    events.io_changed = Impl::onIoChanged;
    events.process = Impl::onProcess;
    return events;
  }();
  impl_->speed = 1 + speed_ppm * 1e-6;
  impl_->samples.resize(static_cast<std::size_t>(room_s * kRate_Hz));
  pw_init(nullptr, nullptr);
  impl_->loop = pw_thread_loop_new("test-sink", nullptr);
  impl_->connection = std::make_unique<RealtimeConnection>(pw_thread_loop_get_loop(impl_->loop));
  impl_->stream = pw_stream_new(
      impl_->connection->core(), nodeName.c_str(),
      pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Sink", PW_KEY_NODE_NAME, nodeName.c_str(),
                        PW_KEY_NODE_DRIVER, "true", PW_KEY_NODE_VIRTUAL, "true",
                        PW_KEY_PRIORITY_DRIVER, "2000", nullptr));
  pw_stream_add_listener(impl_->stream, &impl_->listener, &kEvents, impl_.get());
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = kRate_Hz;
  info.channels = 2;
  info.position[0] = SPA_AUDIO_CHANNEL_FL;
  info.position[1] = SPA_AUDIO_CHANNEL_FR;
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  if (pw_stream_connect(impl_->stream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &format, 1) < 0) {
    throw std::runtime_error("the sink cannot connect");
  }
  pw_thread_loop_start(impl_->loop);
  impl_->crystal = std::thread([this] { impl_->run(); });
}

DrivenSink::~DrivenSink() {
  impl_->quit = true;
  impl_->crystal.join();
  pw_thread_loop_stop(impl_->loop);
  pw_stream_destroy(impl_->stream);
  impl_->connection.reset();
  pw_thread_loop_destroy(impl_->loop);
  pw_deinit();
}

std::size_t DrivenSink::frames() const {
  return impl_->frames.load(std::memory_order_acquire);
}

std::vector<float> DrivenSink::samples(std::size_t from, std::size_t to) const {
  const std::size_t end = std::min(to, frames());
  if (from >= end) return {};
  return {impl_->samples.begin() + static_cast<std::ptrdiff_t>(from),
          impl_->samples.begin() + static_cast<std::ptrdiff_t>(end)};
}

int DrivenSink::lateCycles() const {
  return impl_->late;
}

}  // namespace test_support
