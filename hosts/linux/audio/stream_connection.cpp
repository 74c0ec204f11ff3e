// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/stream_connection.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/node/io.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/audio/pipewire_context.h"
#include "hosts/linux/audio/populated_pages.h"

namespace linux_host {
namespace {

pw_properties* streamProperties(const StreamRequest& request) {
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, request.isPlaying ? "Playback" : "Capture",
      PW_KEY_MEDIA_ROLE, "Production", PW_KEY_MEDIA_NAME, request.mediaName.c_str(),
      PW_KEY_APP_NAME, "Record Audio", PW_KEY_APP_ID, "com.vantrel.korvel.RecordAudio",
      PW_KEY_NODE_NAME, request.nodeName.c_str(), PW_KEY_TARGET_OBJECT, request.deviceNode.c_str(),
      // Without these the session manager would silently link another device when ours goes away,
      // or has gone already.
      PW_KEY_NODE_DONT_RECONNECT, "true", "node.dont-fallback", "true",
      // Other programs that come and go with other latencies must not make ours glitch.
      PW_KEY_NODE_LOCK_QUANTUM, "true",
      // The session manager must not restore another device or level for us either.
      "state.restore-target", "false", "state.restore-props", "false", nullptr);
  // Without this the level depends on PipeWire's release: stereo becomes mono at 0.5 or 0.707, and
  // six channels mixed into two clip at full scale.
  if (request.isMixedDown) pw_properties_set(properties, "channelmix.normalize", "true");
  if (request.isMonitor) pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
  if (request.cycle_frames > 0) {
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", request.cycle_frames,
                       request.rate_Hz);
  }
  return properties;
}

std::string inBrackets(const char* reason) {
  return std::string(" (") + reason + ").";
}

// The library's converter writes to the planes on the data thread, where no page may be missing.
void makeBufferResident(const spa_buffer& buffer) {
  for (std::uint32_t i = 0; i < buffer.n_datas; ++i) {
    const spa_data& data = buffer.datas[i];
    if (data.data != nullptr) static_cast<void>(populatePages(data.data, data.maxsize));
  }
}

}  // namespace

std::uint32_t recordedPlanes(const spa_buffer& buffer, std::uint32_t channels,
                             StreamPlanes& planes) {
  if (channels == 0 || channels > planes.size() || buffer.n_datas < channels) return 0;
  std::uint32_t frames = UINT32_MAX;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const spa_data& data = buffer.datas[channel];
    if (data.data == nullptr || data.chunk == nullptr) return 0;
    const std::uint32_t offset_bytes = std::min(data.chunk->offset, data.maxsize);
    const std::uint32_t size_bytes = std::min(data.chunk->size, data.maxsize - offset_bytes);
    planes[channel] = reinterpret_cast<float*>(  // the daemon aligns buffers for any sample
        reinterpret_cast<std::uintptr_t>(data.data) + offset_bytes);
    frames = std::min(frames, size_bytes / static_cast<std::uint32_t>(sizeof(float)));
  }
  return frames;
}

StreamConnection::StreamConnection(StreamRequest request,
                                   std::function<void(const std::string&)> onFailed)
    : request_(std::move(request)), onFailed_(std::move(onFailed)) {}

StreamConnection::~StreamConnection() = default;

void StreamConnection::connect(pw_loop* loop) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
      // Errors of other objects only mean that an object vanished while it was being used.
      if (id != PW_ID_CORE || result != -EPIPE) return;
      static_cast<StreamConnection*>(data)->fail(
          "The connection to PipeWire broke: it was stopped or has crashed.");
    };
    return events;
  }();
  if (loop == nullptr) {
    fail(noResourcesMessage(strerror(EMFILE)));
    return;
  }
  context_ = makeContext(loop, ContextKind::kAudio);
  if (context_ == nullptr) {
    fail(noLibraryMessage(errno));
    return;
  }
  core_.reset(connectContext(context_.get(), nullptr));
  if (!core_) {
    fail(notRunningMessage(errno));
    return;
  }
  // Before the stream listens, so that a lost daemon is not taken for a lost device.
  core_.listen(&kCoreEvents, this);
  watchDevice();
  connectStream();
}

void StreamConnection::watchDevice() {
  static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, onGlobal,
                                                      onGlobalRemove};
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  if (registry_) registry_.listen(&kRegistryEvents, this);
}

void StreamConnection::onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type,
                                std::uint32_t, const spa_dict* properties) {
  auto* self = static_cast<StreamConnection*>(data);
  if (self->deviceId_ || properties == nullptr || !spa_streq(type, PW_TYPE_INTERFACE_Node)) return;
  const char* name = spa_dict_lookup(properties, PW_KEY_NODE_NAME);
  if (name == nullptr || self->request_.deviceNode != name) return;
  self->deviceId_ = id;
  static constexpr pw_node_events kDeviceEvents = [] {
    pw_node_events events{};
    events.version = PW_VERSION_NODE_EVENTS;
    events.info = onDeviceInfo;
    return events;
  }();
  self->device_.reset(pw_registry_bind(self->registry_.as<pw_registry>(), id,
                                       PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
  if (self->device_) self->device_.listen(&kDeviceEvents, self);
}

// A device that was suspended while it ran for the stream runs again at once, but its link may
// carry only silence from then on. A new link carries the sound.
void StreamConnection::onDeviceInfo(void* data, const pw_node_info* info) {
  auto* self = static_cast<StreamConnection*>(data);
  if (info->state == PW_NODE_STATE_RUNNING) {
    self->deviceHasRun_ = static_cast<bool>(self->stream_);
  } else if (info->state == PW_NODE_STATE_SUSPENDED && self->deviceHasRun_) {
    self->disconnect();
    self->connectStream();
  }
}

void StreamConnection::onGlobalRemove(void* data, std::uint32_t id) {
  auto* self = static_cast<StreamConnection*>(data);
  if (self->deviceId_ != id) return;
  // At once: nobody is to link what is left of it with another device.
  self->disconnect();
  self->stateChanged(PW_STREAM_STATE_UNCONNECTED, nullptr);
}

void StreamConnection::connectStream() {
  static constexpr pw_stream_events kStreamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* data, pw_stream_state, pw_stream_state now, const char* error) {
      static_cast<StreamConnection*>(data)->stateChanged(now, error);
    };
    events.io_changed = [](void* data, std::uint32_t id, void* area, std::uint32_t size_bytes) {
      static_cast<StreamConnection*>(data)->ioChanged(id, area, size_bytes);
    };
    events.add_buffer = [](void*, pw_buffer* buffer) { makeBufferResident(*buffer->buffer); };
    events.process = [](void* data) { static_cast<StreamConnection*>(data)->process(); };
    return events;
  }();
  stream_.reset(pw_stream_new(core_.get(), "Record Audio", streamProperties(request_)));
  if (!stream_) {
    fail("PipeWire cannot create a stream" + inBrackets(strerror(errno)));
    return;
  }
  stream_.listen(&kStreamEvents, this);

  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = request_.rate_Hz;
  info.channels = channels();
  std::copy(request_.positions.begin(), request_.positions.end(), info.position);
  std::array<std::uint8_t, 1024> buffer;
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), buffer.size());
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  const pw_direction direction = request_.isPlaying ? PW_DIRECTION_OUTPUT : PW_DIRECTION_INPUT;
  const int result = pw_stream_connect(stream_.get(), direction, PW_ID_ANY, flags, &format, 1);
  if (result < 0) stateChanged(PW_STREAM_STATE_ERROR, strerror(-result));
}

void StreamConnection::ioChanged(std::uint32_t id, void* area, std::uint32_t size_bytes) {
  if (id != SPA_IO_Position) return;
  const void* now = size_bytes >= sizeof(spa_io_position) ? area : nullptr;
  // Waits for the data thread, so that it no longer uses the old area when that is unmapped.
  pw_data_loop_invoke(pw_context_get_data_loop(context_.get()), takePosition, 0, &now, sizeof now,
                      true, this);
}

int StreamConnection::takePosition(spa_loop*, bool, std::uint32_t, const void* data, std::size_t,
                                   void* self) {
  std::memcpy(&static_cast<StreamConnection*>(self)->position_, data, sizeof(void*));
  return 0;
}

void StreamConnection::disconnect() {
  deviceHasRun_ = false;
  stream_.reset();
}

void StreamConnection::fail(const std::string& message) {
  if (std::exchange(hasFailed_, true)) return;
  onFailed_(message);
}

void StreamConnection::stateChanged(int state, const char* error) {
  if (state == PW_STREAM_STATE_ERROR) {
    fail((request_.isPlaying ? "PipeWire cannot play on \"" : "PipeWire cannot record from \"") +
         request_.displayName + "\"" + inBrackets(error == nullptr ? "unknown error" : error));
  } else if (state == PW_STREAM_STATE_UNCONNECTED) {
    fail((request_.isPlaying ? "The sound output \"" : "The sound source \"") +
         request_.displayName + "\" is gone: it was unplugged or switched off.");
  } else if (state == PW_STREAM_STATE_STREAMING) {
    willStream();
  }
}

}  // namespace linux_host
