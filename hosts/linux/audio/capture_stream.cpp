// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_stream.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/node/io.h>
#include <spa/param/props.h>

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/linux/audio/cycle_watch.h"
#include "hosts/linux/audio/stream_connection.h"

namespace linux_host {
namespace {

// Does not request a cycle length: if one recording changed the length right after the end of
// another had changed it, the source could stay connected but silent for the whole recording.
StreamRequest requestFor(const CaptureSource& source) {
  StreamRequest request;
  request.nodeName = "record-audio";
  request.mediaName = "Recording";
  request.deviceNode = source.nodeName;
  request.displayName = source.displayName;
  request.isMonitor = source.isMonitor;
  request.rate_Hz = source.rate_Hz;
  request.positions = source.positions;
  return request;
}

// REAL-TIME. Whether the samples are valid sound; there may be none.
bool isUsable(const spa_buffer& buffer, std::uint32_t channels) {
  if (buffer.n_datas < channels) return false;
  return std::all_of(buffer.datas, buffer.datas + channels, [](const spa_data& data) {
    return data.data != nullptr && data.chunk != nullptr &&
           (static_cast<std::uint32_t>(data.chunk->flags) & SPA_CHUNK_FLAG_CORRUPTED) == 0;
  });
}

}  // namespace

bool storeBuffer(const spa_buffer& buffer, CaptureRing& ring) {
  if (!isUsable(buffer, ring.channels())) return false;
  StreamPlanes planes;
  const std::uint32_t frames = recordedPlanes(buffer, ring.channels(), planes);
  if (frames > 0) ring.write(planes.data(), frames);
  return true;
}

struct CaptureStream::Remote final : StreamConnection {
  Remote(const CaptureSource& source, CaptureRing& into,
         std::function<void(const std::string&)> failed)
      : StreamConnection(requestFor(source), std::move(failed)),
        ring(into),
        watch(source.rate_Hz) {}
  ~Remote() override { disconnect(); }

  // Only the device's own level counts. If a mixer muted an earlier recording, the session manager
  // may have muted this stream by now; that must not silence this recording.
  void willStream() override {
    std::array<float, kMostStreamChannels> full{};
    full.fill(1.0F);
    float notMuted = 0.0F;
    pw_stream_set_control(stream(), SPA_PROP_volume, 1, full.data(), SPA_PROP_mute, 1, &notMuted,
                          SPA_PROP_channelVolumes, channels(), full.data(), 0);
  }
  void process() override {
    if (position() != nullptr) {
      if (const std::uint64_t missed = watch.see(position()->clock); missed > 0) ring.miss(missed);
    }
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream())) {
      if (!storeBuffer(*buffer->buffer, ring)) ring.miss(watch.cycle_frames());
      pw_stream_queue_buffer(stream(), buffer);
    }
  }

  CaptureRing& ring;
  CycleWatch watch;
};

CaptureStream::CaptureStream(const CaptureSource& source, CaptureRing& ring,
                             std::function<void(const std::string&)> onFailed)
    : remote_(std::make_unique<Remote>(source, ring, std::move(onFailed))),
      loop_(std::make_unique<PipeWireLoop>("audio-capture")) {
  loop_->post([this](pw_loop* loop) { remote_->connect(loop); });
}

CaptureStream::~CaptureStream() {
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

}  // namespace linux_host
