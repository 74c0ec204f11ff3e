// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/device_stream.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/node/io.h>

#include <algorithm>
#include <utility>

#include "hosts/linux/audio/stream_connection.h"

namespace linux_host {
namespace {

StreamRequest requestFor(DeviceStream::Direction direction, const DeviceStreamTarget& target) {
  StreamRequest request;
  request.isPlaying = direction == DeviceStream::Direction::kPlay;
  request.nodeName =
      request.isPlaying ? "record-audio-play-through" : "record-audio-play-through-input";
  request.mediaName = "Play-through";
  request.deviceNode = target.nodeName;
  request.displayName = target.nodeName;
  request.isMonitor = target.isMonitor;
  request.isMixedDown = target.isMixedDown;
  request.rate_Hz = target.rate_Hz;
  request.positions = target.positions;
  request.cycle_frames = target.cycle_frames;
  return request;
}

// Returns the frames that fit into the buffer, and sets where to put the samples.
std::uint32_t roomOf(const spa_buffer& buffer, std::uint32_t channels, StreamPlanes& planes) {
  if (buffer.n_datas < channels) return 0;
  std::uint32_t frames = UINT32_MAX;
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const spa_data& data = buffer.datas[channel];
    if (data.data == nullptr || data.chunk == nullptr) return 0;
    planes[channel] = static_cast<float*>(data.data);
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

struct DeviceStream::Remote final : StreamConnection {
  Remote(Direction direction, const DeviceStreamTarget& target, Client& callback,
         std::function<void(const std::string&)> ended)
      : StreamConnection(requestFor(direction, target), std::move(ended)), client(callback) {}
  ~Remote() override { disconnect(); }

  // REAL-TIME (all below): on the stream's data thread.
  void process() override;
  void record(const GraphCycle& cycle);
  void play(const GraphCycle& cycle);

  Client& client;
};

void DeviceStream::Remote::process() {
  if (position() == nullptr) return;
  const spa_io_clock& clock = position()->clock;
  if (clock.rate.num == 0 || clock.rate.denom == 0 || clock.duration == 0) return;
  const GraphCycle cycle{clock.nsec, clock.id, clock.duration,
                         static_cast<double>(clock.rate.denom) / clock.rate.num};
  if (request().isPlaying) {
    play(cycle);
  } else {
    record(cycle);
  }
}

void DeviceStream::Remote::record(const GraphCycle& cycle) {
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream())) {
    StreamPlanes planes;
    const std::uint32_t frames = recordedPlanes(*buffer->buffer, channels(), planes);
    if (frames > 0) client.process(cycle, planes.data(), frames);
    pw_stream_queue_buffer(stream(), buffer);
  }
}

void DeviceStream::Remote::play(const GraphCycle& cycle) {
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream());
  if (buffer == nullptr) return;
  StreamPlanes planes;
  const std::uint32_t room_frames = roomOf(*buffer->buffer, channels(), planes);
  const std::uint64_t wanted_frames =
      buffer->requested != 0 ? buffer->requested : cycle.duration_frames;
  const auto frames =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted_frames, room_frames));
  if (frames > 0 && channels() > 0) client.process(cycle, planes.data(), frames);
  setFrames(*buffer->buffer, frames);
  pw_stream_queue_buffer(stream(), buffer);
}

DeviceStream::DeviceStream(Direction direction, const DeviceStreamTarget& target, Client& client,
                           std::function<void(const std::string&)> onEnded)
    : remote_(std::make_unique<Remote>(direction, target, client, std::move(onEnded))),
      loop_(std::make_unique<PipeWireLoop>(direction == Direction::kPlay ? "audio-play"
                                                                         : "audio-loopback")) {
  loop_->post([this](pw_loop* loop) { remote_->connect(loop); });
}

DeviceStream::~DeviceStream() {
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

}  // namespace linux_host
