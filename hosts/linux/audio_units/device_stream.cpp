#include "hosts/linux/audio_units/device_stream.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/node/io.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio/pipewire_context.h"
#include "hosts/linux/audio_units/stream_format.h"

namespace linux_host {
namespace {

using Planes = std::array<float*, kMostUnitChannels>;

pw_properties* streamProperties(DeviceStream::Direction direction,
                                const DeviceStreamTarget& target) {
  const bool isPlaying = direction == DeviceStream::Direction::kPlay;
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, isPlaying ? "Playback" : "Capture",
      PW_KEY_MEDIA_ROLE, "Production", PW_KEY_MEDIA_NAME, "Play-through", PW_KEY_APP_NAME,
      "Record Audio", PW_KEY_APP_ID, "com.vantrel.korvel.RecordAudio", PW_KEY_NODE_NAME,
      isPlaying ? "record-audio-play-through" : "record-audio-play-through-input",
      PW_KEY_TARGET_OBJECT, target.nodeName.c_str(),
      // Neither a change of the default nor the end of the device may move the stream.
      PW_KEY_NODE_DONT_RECONNECT, "true",
      // Other programs that come and go with other latencies must not make ours glitch.
      PW_KEY_NODE_LOCK_QUANTUM, "true", nullptr);
  if (target.isMonitor) pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
  pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", target.cycle_frames, target.rate_Hz);
  return properties;
}

float* samplesAt(const spa_data& data, std::uint32_t offset_bytes) {
  // The daemon aligns buffers for any sample.
  return reinterpret_cast<float*>(reinterpret_cast<std::uintptr_t>(data.data) + offset_bytes);
}

// What a buffer holds; 0 when it lacks planes.
std::uint32_t recordedPlanes(const spa_buffer& buffer, std::uint32_t channels, Planes& planes) {
  if (buffer.n_datas < channels) return 0;
  std::uint32_t frames = UINT32_MAX;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const spa_data& data = buffer.datas[channel];
    if (data.data == nullptr || data.chunk == nullptr) return 0;
    const std::uint32_t offset_bytes = std::min(data.chunk->offset, data.maxsize);
    const std::uint32_t size_bytes = std::min(data.chunk->size, data.maxsize - offset_bytes);
    planes[channel] = samplesAt(data, offset_bytes);
    frames = std::min(frames, size_bytes / static_cast<std::uint32_t>(sizeof(float)));
  }
  return frames;
}

// Where to put the samples of a buffer that has room for at most the frames returned.
std::uint32_t roomOf(const spa_buffer& buffer, std::uint32_t channels, Planes& planes) {
  if (buffer.n_datas < channels) return 0;
  std::uint32_t frames = UINT32_MAX;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const spa_data& data = buffer.datas[channel];
    if (data.data == nullptr || data.chunk == nullptr) return 0;
    planes[channel] = samplesAt(data, 0);
    frames = std::min(frames, data.maxsize / static_cast<std::uint32_t>(sizeof(float)));
  }
  return frames;
}

void setFrames(const spa_buffer& buffer, std::uint32_t frames) {
  for (std::uint32_t i = 0; i < buffer.n_datas; ++i) {
    if (buffer.datas[i].chunk == nullptr) continue;
    buffer.datas[i].chunk->offset = 0;
    buffer.datas[i].chunk->stride = sizeof(float);
    buffer.datas[i].chunk->size = frames * static_cast<std::uint32_t>(sizeof(float));
  }
}

}  // namespace

// Made, used and destroyed on the loop's thread, except what is marked REAL-TIME.
struct DeviceStream::Remote {
  Remote(Direction way, DeviceStreamTarget to, Client& callback,
         std::function<void(const std::string&)> ended)
      : direction(way), target(std::move(to)), client(callback), onEnded(std::move(ended)) {}
  ~Remote() { disconnect(); }
  Remote(const Remote&) = delete;
  Remote& operator=(const Remote&) = delete;

  void connect(pw_loop* loop);
  void connectStream();
  void disconnect();
  void end(const std::string& message);

  static void onCoreError(void* data, std::uint32_t id, int sequence, int result,
                          const char* message);
  static void onStateChanged(void* data, pw_stream_state before, pw_stream_state now,
                             const char* error);
  static void onIoChanged(void* data, std::uint32_t id, void* area, std::uint32_t size_bytes);

  // REAL-TIME: on the stream's data thread.
  static int takePosition(spa_loop* loop, bool async, std::uint32_t sequence, const void* data,
                          std::size_t size_bytes, void* self);
  static void onProcess(void* data);
  void record(const GraphCycle& cycle);
  void play(const GraphCycle& cycle);
  [[nodiscard]] std::uint32_t channels() const {
    return static_cast<std::uint32_t>(target.positions.size());
  }

  const Direction direction;
  const DeviceStreamTarget target;
  Client& client;
  const std::function<void(const std::string&)> onEnded;
  bool hasEnded = false;
  pw_context* context = nullptr;
  pw_core* core = nullptr;
  pw_stream* stream = nullptr;
  spa_hook coreListener{};
  spa_hook streamListener{};
  const spa_io_position* position = nullptr;  // the data thread's
};

void DeviceStream::Remote::connect(pw_loop* loop) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.error = onCoreError;
    return events;
  }();
  context = makeContext(loop, ContextKind::kAudio);
  if (context == nullptr) {
    end(std::string("PipeWire's client library cannot be set up (") + strerror(errno) + ").");
    return;
  }
  core = connectContext(context, nullptr);
  if (core == nullptr) {
    end(notRunningMessage(strerror(errno)));
    return;
  }
  pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
  connectStream();
}

void DeviceStream::Remote::connectStream() {
  static constexpr pw_stream_events kStreamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = onStateChanged;
    events.io_changed = onIoChanged;
    events.process = onProcess;
    return events;
  }();
  stream = pw_stream_new(core, "Record Audio", streamProperties(direction, target));
  if (stream == nullptr) {
    end(std::string("PipeWire cannot make a stream (") + strerror(errno) + ").");
    return;
  }
  pw_stream_add_listener(stream, &streamListener, &kStreamEvents, this);

  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = target.rate_Hz;
  info.channels = channels();
  std::copy(target.positions.begin(), target.positions.end(), info.position);
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  const pw_direction way = direction == Direction::kPlay ? PW_DIRECTION_OUTPUT : PW_DIRECTION_INPUT;
  const int result = pw_stream_connect(stream, way, PW_ID_ANY, flags, &format, 1);
  if (result < 0) {
    end("PipeWire cannot connect to \"" + target.nodeName + "\" (" + strerror(-result) + ").");
  }
}

void DeviceStream::Remote::disconnect() {
  if (stream != nullptr) {
    spa_hook_remove(&streamListener);
    pw_stream_destroy(stream);
  }
  stream = nullptr;
  if (core != nullptr) {
    spa_hook_remove(&coreListener);
    pw_core_disconnect(core);
  }
  core = nullptr;
  if (context != nullptr) pw_context_destroy(context);
  context = nullptr;
}

void DeviceStream::Remote::end(const std::string& message) {
  if (std::exchange(hasEnded, true)) return;
  onEnded(message);
}

void DeviceStream::Remote::onCoreError(void* data, std::uint32_t id, int, int result, const char*) {
  // Errors of other objects only say that one vanished while it was being used.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  static_cast<Remote*>(data)->end(
      "The connection to PipeWire broke: it was stopped or has crashed.");
}

void DeviceStream::Remote::onStateChanged(void* data, pw_stream_state, pw_stream_state now,
                                          const char* error) {
  auto* self = static_cast<Remote*>(data);
  if (now == PW_STREAM_STATE_ERROR) {
    self->end("The stream with \"" + self->target.nodeName + "\" has failed (" +
              (error == nullptr ? "unknown error" : error) + ").");
  } else if (now == PW_STREAM_STATE_UNCONNECTED) {
    self->end("The device \"" + self->target.nodeName +
              "\" is gone: it was unplugged or switched off.");
  }
}

void DeviceStream::Remote::onIoChanged(void* data, std::uint32_t id, void* area,
                                       std::uint32_t size_bytes) {
  if (id != SPA_IO_Position) return;
  auto* self = static_cast<Remote*>(data);
  const void* position = size_bytes >= sizeof(spa_io_position) ? area : nullptr;
  // Waits for the data thread, so that it has let go of the old area when that is unmapped.
  pw_data_loop_invoke(pw_context_get_data_loop(self->context), takePosition, 0, &position,
                      sizeof position, true, self);
}

int DeviceStream::Remote::takePosition(spa_loop*, bool, std::uint32_t, const void* data,
                                       std::size_t, void* self) {
  std::memcpy(&static_cast<Remote*>(self)->position, data, sizeof(void*));
  return 0;
}

void DeviceStream::Remote::onProcess(void* data) {
  auto* self = static_cast<Remote*>(data);
  if (self->position == nullptr) return;
  const spa_io_clock& clock = self->position->clock;
  if (clock.rate.num == 0 || clock.rate.denom == 0 || clock.duration == 0) return;
  const GraphCycle cycle{clock.nsec, clock.id, clock.duration,
                         static_cast<double>(clock.rate.denom) / clock.rate.num};
  if (self->direction == Direction::kPlay) {
    self->play(cycle);
  } else {
    self->record(cycle);
  }
}

void DeviceStream::Remote::record(const GraphCycle& cycle) {
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
    Planes planes;
    const std::uint32_t frames = recordedPlanes(*buffer->buffer, channels(), planes);
    if (frames > 0 && channels() > 0) client.process(cycle, planes.data(), frames);
    pw_stream_queue_buffer(stream, buffer);
  }
}

void DeviceStream::Remote::play(const GraphCycle& cycle) {
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
  if (buffer == nullptr) return;
  Planes planes;
  const std::uint32_t room_frames = roomOf(*buffer->buffer, channels(), planes);
  const std::uint64_t wanted_frames =
      buffer->requested != 0 ? buffer->requested : cycle.duration_frames;
  const auto frames =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted_frames, room_frames));
  if (frames > 0 && channels() > 0) client.process(cycle, planes.data(), frames);
  setFrames(*buffer->buffer, frames);
  pw_stream_queue_buffer(stream, buffer);
}

DeviceStream::DeviceStream(Direction direction, DeviceStreamTarget target, Client& client,
                           std::function<void(const std::string&)> onEnded)
    : remote_(std::make_unique<Remote>(direction, std::move(target), client, std::move(onEnded))),
      loop_(std::make_unique<PipeWireLoop>(direction == Direction::kPlay ? "audio-play"
                                                                         : "audio-loopback")) {
  loop_->post([this](pw_loop* loop) { remote_->connect(loop); });
}

DeviceStream::~DeviceStream() {
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

}  // namespace linux_host
