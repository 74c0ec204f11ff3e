#include "tests/support/driven_microphone.h"

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
#include "tests/support/signal_feed.h"

namespace test_support {
namespace {

constexpr std::uint32_t kMicrophoneRate_Hz = 48000;
std::uint64_t now_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

void waitUntilTime(std::uint64_t time_ns) {
  const timespec until{static_cast<time_t>(time_ns / 1'000'000'000),
                       static_cast<long>(time_ns % 1'000'000'000)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace

struct DrivenMicrophone::Impl {
  std::atomic<int> toSkip{0};
  std::atomic<std::uint64_t> skipped_frames{0};
  std::atomic<std::uint64_t> frame{0};  // the number of the cycle's first
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

void DrivenMicrophone::Impl::onProcess(void* data) {
  auto* self = static_cast<Impl*>(data);
  pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream);
  spa_io_position* const io = self->position;
  if (buffer == nullptr || io == nullptr) return;
  const spa_data& plane = buffer->buffer->datas[0];
  const auto frames = std::min(static_cast<std::uint32_t>(io->clock.duration),
                               plane.maxsize / static_cast<std::uint32_t>(sizeof(float)));
  auto* samples = static_cast<float*>(plane.data);
  for (std::uint32_t i = 0; samples != nullptr && i < frames; ++i) {
    samples[i] = frameNumber(self->frame + i, 0);
  }
  plane.chunk->offset = 0;
  plane.chunk->stride = sizeof(float);
  plane.chunk->size = frames * static_cast<std::uint32_t>(sizeof(float));
  pw_stream_queue_buffer(self->stream, buffer);
}

// Starts the cycles as the device's interrupt would.
void DrivenMicrophone::Impl::run() {
  const sched_param priority{80};
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);  // where it is allowed
  std::uint64_t next_ns = now_ns();
  while (!quit) {
    spa_io_position* const io = position;
    if (io == nullptr || !streaming || io->clock.duration == 0) {
      next_ns = now_ns() + 5'000'000;
      waitUntilTime(next_ns);
      continue;
    }
    const auto cycles = static_cast<std::uint64_t>(1 + toSkip.exchange(0));
    skipped_frames += (cycles - 1) * io->clock.duration;
    const std::uint64_t cycle_ns = io->clock.duration * 1'000'000'000 / kMicrophoneRate_Hz;
    next_ns += cycles * cycle_ns;
    waitUntilTime(next_ns);
    frame += cycles * io->clock.duration;
    io->clock.nsec = next_ns;
    io->clock.rate = {1, kMicrophoneRate_Hz};
    io->clock.position += cycles * io->clock.duration;
    io->clock.rate_diff = 1.0;
    io->clock.next_nsec = next_ns + cycle_ns;
    pw_stream_trigger_process(stream);
  }
}

DrivenMicrophone::DrivenMicrophone(std::string nodeName) : impl_(std::make_unique<Impl>()) {
  static constexpr pw_stream_events kEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = Impl::onStateChanged;
    events.io_changed = Impl::onIoChanged;
    events.process = Impl::onProcess;
    return events;
  }();
  pw_init(nullptr, nullptr);
  impl_->loop = pw_thread_loop_new("test-microphone", nullptr);
  impl_->connection = std::make_unique<RealtimeConnection>(pw_thread_loop_get_loop(impl_->loop));
  impl_->stream = pw_stream_new(
      impl_->connection->core(), nodeName.c_str(),
      pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Source", PW_KEY_NODE_NAME, nodeName.c_str(),
                        PW_KEY_NODE_DRIVER, "true", PW_KEY_NODE_VIRTUAL, "true",
                        PW_KEY_PRIORITY_DRIVER, "2000", nullptr));
  pw_stream_add_listener(impl_->stream, &impl_->listener, &kEvents, impl_.get());
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = kMicrophoneRate_Hz;
  info.channels = 1;
  info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  if (pw_stream_connect(impl_->stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, &format, 1) < 0) {
    throw std::runtime_error("the microphone cannot connect");
  }
  pw_thread_loop_start(impl_->loop);
  impl_->crystal = std::thread([this] { impl_->run(); });
}

DrivenMicrophone::~DrivenMicrophone() {
  impl_->quit = true;
  impl_->crystal.join();
  pw_thread_loop_stop(impl_->loop);
  pw_stream_destroy(impl_->stream);
  impl_->connection.reset();
  pw_thread_loop_destroy(impl_->loop);
  pw_deinit();
}

void DrivenMicrophone::skip(int cycles) {
  impl_->toSkip = cycles;
}

std::uint64_t DrivenMicrophone::skippedFrames() const {
  return impl_->skipped_frames;
}

}  // namespace test_support
