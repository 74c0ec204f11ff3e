// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "driver/pipewire_owners.h"

struct pw_node_info;
struct spa_io_position;

namespace linux_host {

// No stream has more channels than this.
inline constexpr std::uint32_t kMostStreamChannels = 64;

// The device that a stream connects to, and how the stream presents itself.
struct StreamRequest {
  bool isPlaying = false;
  std::string nodeName;     // the stream's own
  std::string mediaName;    // the stream's own, for mixers
  std::string deviceNode;   // the device's node
  std::string displayName;  // the device's, for messages
  bool isMonitor = false;   // recording: the device is a sink, records what is played to it
  // Channels are mixed into fewer: the sum is never louder than the loudest channel can be.
  bool isMixedDown = false;
  std::uint32_t rate_Hz = 0;
  std::vector<std::uint32_t> positions;  // enum spa_audio_channel, one for each channel
  // The cycle length to request; 0: no request.
  std::uint32_t cycle_frames = 0;
};

// A stream of planar 32-bit float between this process and one device, with its own connection to
// the daemon. It stays with its device: when the device goes away the stream fails. Neither that
// nor a change of the default moves it to another device. It checks for itself whether the device
// is there: some session managers end a stream whose device has gone, others let it idle.
//
// A connection has its own data thread, so that a stream with a long cycle does not delay another
// one.
//
// Created, used and destroyed on its loop's thread, except where marked REAL-TIME.
class StreamConnection {
 public:
  // `onFailed` is called with an explanation, at most once; it must not destroy the connection.
  StreamConnection(StreamRequest request, std::function<void(const std::string&)> onFailed);
  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;
  virtual ~StreamConnection();

  // Returns at once; cycles come when the device runs. Without a loop the connection fails.
  void connect(pw_loop* loop);

 protected:
  // REAL-TIME: called once per cycle on the stream's data thread; must allocate nothing, take no
  // lock and make no system call.
  virtual void process() = 0;
  // Called before the first cycle.
  virtual void willStream() {}
  // The graph's clock; null before the stream has a place in the graph. REAL-TIME: on the stream's
  // data thread, valid during process().
  [[nodiscard]] const spa_io_position* position() const { return position_; }

  // Returns when the last cycle is over. The destructor of a class that overrides process() must
  // call it.
  void disconnect();
  [[nodiscard]] const StreamRequest& request() const { return request_; }
  [[nodiscard]] std::uint32_t channels() const {
    return static_cast<std::uint32_t>(request_.positions.size());
  }
  [[nodiscard]] pw_stream* stream() const { return stream_.get(); }

 private:
  static void onGlobal(void* data, std::uint32_t id, std::uint32_t permissions, const char* type,
                       std::uint32_t version, const spa_dict* properties);
  static void onGlobalRemove(void* data, std::uint32_t id);
  static void onDeviceInfo(void* data, const pw_node_info* info);

  void watchDevice();
  void connectStream();
  void fail(const std::string& message);
  void stateChanged(int state, const char* error);
  // A shared memory area of the daemon (enum spa_io_type) has been added, or removed when `area` is
  // null.
  void ioChanged(std::uint32_t id, void* area, std::uint32_t size_bytes);
  static int takePosition(spa_loop* loop, bool async, std::uint32_t sequence, const void* data,
                          std::size_t size_bytes, void* self);

  const StreamRequest request_;
  const std::function<void(const std::string&)> onFailed_;
  bool hasFailed_ = false;
  std::optional<std::uint32_t> deviceId_;      // in the registry
  bool deviceHasRun_ = false;                  // for the stream that there is now
  const spa_io_position* position_ = nullptr;  // the data thread's
  loopback::ContextPtr context_;
  loopback::CorePtr core_;
  loopback::BoundProxy registry_;
  loopback::BoundProxy device_;
  loopback::StreamPtr stream_;
};

using StreamPlanes = std::array<float*, kMostStreamChannels>;

// Finds the samples in the first `channels` planes of a recorded buffer. Returns the number of
// frames in each; 0 when the buffer lacks planes, is empty or cannot be trusted. REAL-TIME:
// allocates nothing, takes no lock, makes no system call.
[[nodiscard]] std::uint32_t recordedPlanes(const spa_buffer& buffer, std::uint32_t channels,
                                           StreamPlanes& planes);

}  // namespace linux_host
