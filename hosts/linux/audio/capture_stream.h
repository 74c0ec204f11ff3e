// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/capture_ring.h"
#include "hosts/linux/audio/pipewire_loop.h"

struct spa_buffer;

namespace linux_host {

// What to record, and how.
struct CaptureSource {
  std::string nodeName;
  std::string displayName;  // for messages
  bool isMonitor = false;   // the node is a sink: records what is played to it
  std::uint32_t rate_Hz = 0;
  std::vector<std::uint32_t> positions;  // enum spa_audio_channel, one for each channel
};

// Stores the samples of one stream buffer in the ring: 32-bit float, one plane per channel. Stores
// nothing and returns false if the buffer lacks planes or its samples are marked as corrupted.
// REAL-TIME: allocates nothing, takes no lock, makes no system call.
bool storeBuffer(const spa_buffer& buffer, CaptureRing& ring);

// A PipeWire recording stream from a device into a ring. It stays with its device: when the device
// goes away the stream fails and is never moved to another one.
//
// Each stream has a connection, a loop thread and a data thread of its own. Created and destroyed
// on any other thread.
class CaptureStream {
 public:
  // Returns at once; samples arrive in the ring when the device runs. `onFailed` is called with an
  // explanation, on the stream's thread, at most once; it must not destroy the stream. The ring
  // outlives the stream. Throws std::system_error if no thread can be started.
  CaptureStream(const CaptureSource& source, CaptureRing& ring,
                std::function<void(const std::string& message)> onFailed);
  // Returns when the last sample has been stored and `onFailed` will not be called any more.
  ~CaptureStream();
  CaptureStream(const CaptureStream&) = delete;
  CaptureStream& operator=(const CaptureStream&) = delete;

 private:
  struct Remote;  // everything that lives on the loop's thread
  std::unique_ptr<Remote> remote_;
  std::unique_ptr<PipeWireLoop> loop_;
};

}  // namespace linux_host
