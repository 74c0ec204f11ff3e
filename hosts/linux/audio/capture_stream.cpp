#include "hosts/linux/audio/capture_stream.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/props.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio/pipewire_context.h"

namespace linux_host {
namespace {

// Long enough to cost little, short enough that a stop loses little.
constexpr std::uint32_t kQuantum_frames = 1024;

pw_properties* streamProperties(const CaptureSource& source) {
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Production",
      PW_KEY_MEDIA_NAME, "Recording", PW_KEY_APP_NAME, "Record Audio", PW_KEY_APP_ID,
      "com.vantrel.korvel.RecordAudio", PW_KEY_NODE_NAME, "record-audio", PW_KEY_TARGET_OBJECT,
      source.nodeName.c_str(),
      // Without this the session manager would silently link another device when ours goes.
      PW_KEY_NODE_DONT_RECONNECT, "true",
      // Other programs that come and go with other latencies must not make ours glitch.
      PW_KEY_NODE_LOCK_QUANTUM, "true",
      // Nor is it for the session manager to remember another device or level for us. One that
      // does not know these is set right by resetLevel().
      "state.restore-target", "false", "state.restore-props", "false", nullptr);
  if (source.isMonitor) pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
  pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", kQuantum_frames, source.rate_Hz);
  return properties;
}

}  // namespace

void storeBuffer(const spa_buffer& buffer, CaptureRing& ring) {
  std::array<const float*, CaptureStream::kMaxChannels> planes;
  const std::uint32_t channels = ring.channels();
  if (buffer.n_datas < channels || channels > planes.size()) return;
  std::uint32_t frames = UINT32_MAX;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const spa_data& data = buffer.datas[channel];
    if (data.data == nullptr || data.chunk == nullptr) return;
    const std::uint32_t offset_bytes = std::min(data.chunk->offset, data.maxsize);
    const std::uint32_t size_bytes = std::min(data.chunk->size, data.maxsize - offset_bytes);
    planes[channel] = reinterpret_cast<const float*>(  // the daemon aligns buffers for any sample
        reinterpret_cast<std::uintptr_t>(data.data) + offset_bytes);
    frames = std::min(frames, size_bytes / static_cast<std::uint32_t>(sizeof(float)));
  }
  if (frames > 0 && channels > 0) ring.write(planes.data(), frames);
}

// Made, used and destroyed on the loop's thread, except onProcess().
struct CaptureStream::Remote {
  Remote(CaptureSource from, CaptureRing& into, std::function<void(const std::string&)> failed)
      : source(std::move(from)), ring(into), onFailed(std::move(failed)) {}
  ~Remote() { disconnect(); }
  Remote(const Remote&) = delete;
  Remote& operator=(const Remote&) = delete;

  void connect(pw_loop* loop);
  void connectStream();
  void disconnect();
  // The device's own level is the only one that counts: a mixer that muted an earlier recording
  // must not silence this one.
  void resetLevel();
  void fail(const std::string& message);

  static void onCoreError(void* data, std::uint32_t id, int sequence, int result,
                          const char* message);
  static void onStateChanged(void* data, pw_stream_state before, pw_stream_state now,
                             const char* error);
  // REAL-TIME: on the stream's data thread.
  static void onProcess(void* data);

  const CaptureSource source;
  CaptureRing& ring;
  const std::function<void(const std::string&)> onFailed;
  bool hasFailed = false;
  pw_context* context = nullptr;
  pw_core* core = nullptr;
  pw_stream* stream = nullptr;
  spa_hook coreListener{};
  spa_hook streamListener{};
};

void CaptureStream::Remote::connect(pw_loop* loop) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.error = onCoreError;
    return events;
  }();
  context = makeContext(loop, ContextKind::kAudio);
  if (context == nullptr) {
    fail(std::string("PipeWire's client library cannot be set up (") + strerror(errno) + ").");
    return;
  }
  core = connectContext(context, nullptr);
  if (core == nullptr) {
    fail(notRunningMessage(strerror(errno)));
    return;
  }
  // Before the stream listens, so that the death of the daemon is told from that of the device.
  pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
  connectStream();
}

void CaptureStream::Remote::connectStream() {
  static constexpr pw_stream_events kStreamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = onStateChanged;
    events.process = onProcess;
    return events;
  }();
  stream = pw_stream_new(core, "Record Audio", streamProperties(source));
  if (stream == nullptr) {
    fail(std::string("PipeWire cannot make a recording stream (") + strerror(errno) + ").");
    return;
  }
  pw_stream_add_listener(stream, &streamListener, &kStreamEvents, this);

  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = source.rate_Hz;
  info.channels = static_cast<std::uint32_t>(source.positions.size());
  std::copy(source.positions.begin(), source.positions.end(), info.position);
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  const int result = pw_stream_connect(stream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &format, 1);
  if (result < 0) {
    fail("PipeWire cannot record from \"" + source.displayName + "\" (" + strerror(-result) + ").");
  }
}

void CaptureStream::Remote::disconnect() {
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

void CaptureStream::Remote::resetLevel() {
  std::array<float, kMaxChannels> full{};
  full.fill(1.0F);
  float notMuted = 0.0F;
  pw_stream_set_control(stream, SPA_PROP_volume, 1, full.data(), SPA_PROP_mute, 1, &notMuted,
                        SPA_PROP_channelVolumes,
                        static_cast<std::uint32_t>(source.positions.size()), full.data(), 0);
}

void CaptureStream::Remote::fail(const std::string& message) {
  if (std::exchange(hasFailed, true)) return;
  onFailed(message);
}

void CaptureStream::Remote::onCoreError(void* data, std::uint32_t id, int, int result,
                                        const char*) {
  // Errors of other objects only say that one vanished while it was being used.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  static_cast<Remote*>(data)->fail(
      "The connection to PipeWire broke: it was stopped or has crashed.");
}

void CaptureStream::Remote::onStateChanged(void* data, pw_stream_state, pw_stream_state now,
                                           const char* error) {
  auto* self = static_cast<Remote*>(data);
  if (now == PW_STREAM_STATE_ERROR) {
    self->fail("PipeWire cannot record from \"" + self->source.displayName + "\" (" +
               (error == nullptr ? "unknown error" : error) + ").");
  } else if (now == PW_STREAM_STATE_UNCONNECTED) {
    self->fail("The sound source \"" + self->source.displayName +
               "\" is gone: it was unplugged or switched off.");
  } else if (now == PW_STREAM_STATE_STREAMING) {
    // By now the session manager has put on the stream what it remembered, and before the first
    // cycle.
    self->resetLevel();
  }
}

void CaptureStream::Remote::onProcess(void* data) {
  auto* self = static_cast<Remote*>(data);
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream)) {
    storeBuffer(*buffer->buffer, self->ring);
    pw_stream_queue_buffer(self->stream, buffer);
  }
}

CaptureStream::CaptureStream(CaptureSource source, CaptureRing& ring,
                             std::function<void(const std::string&)> onFailed)
    : remote_(std::make_unique<Remote>(std::move(source), ring, std::move(onFailed))),
      loop_(std::make_unique<PipeWireLoop>("audio-capture")) {
  loop_->post([this](pw_loop* loop) { remote_->connect(loop); });
}

CaptureStream::~CaptureStream() {
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

}  // namespace linux_host
