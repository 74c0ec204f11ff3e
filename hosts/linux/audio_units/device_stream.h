// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/pipewire_loop.h"
#include "hosts/linux/audio_units/clock_follower.h"

namespace linux_host {

// What to play to or record from, and how.
struct DeviceStreamTarget {
  std::string nodeName;
  bool isMonitor = false;  // recording: the node is a sink, record what is played to it
  // Channels are mixed into fewer: the sum is never louder than the loudest channel can be.
  bool isMixedDown = false;
  std::uint32_t rate_Hz = 0;
  std::vector<std::uint32_t> positions;  // enum spa_audio_channel, one for each channel
  std::uint32_t cycle_frames = 0;        // the length of a cycle to ask for
};

// A stream of planar float between one device and a callback. It stays with its device: when the
// device goes away the stream falls silent for good and is never moved to another one.
//
// Each stream has a connection, a loop thread and a data thread of its own. Created and destroyed
// on any other thread.
class DeviceStream {
 public:
  enum class Direction { kRecord, kPlay };
  // REAL-TIME: called once per cycle on the stream's data thread; must allocate nothing, take no
  // lock and make no system call. The planes of all channels have `frames` frames each, already
  // filled or to be filled.
  class Client {
   public:
    virtual ~Client() = default;
    virtual void process(const GraphCycle& cycle, float* const* planes, std::uint32_t frames) = 0;
  };

  // Returns at once; callbacks come when the device runs. `onEnded` is called with an explanation
  // if the stream ends early, on the stream's thread, at most once; it must not destroy the stream.
  // The client outlives the stream. Throws std::system_error when no thread can be started.
  DeviceStream(Direction direction, const DeviceStreamTarget& target, Client& client,
               std::function<void(const std::string& message)> onEnded);
  // Returns when the last callback has returned.
  ~DeviceStream();
  DeviceStream(const DeviceStream&) = delete;
  DeviceStream& operator=(const DeviceStream&) = delete;

 private:
  struct Remote;  // everything that lives on the loop's thread
  std::unique_ptr<Remote> remote_;
  std::unique_ptr<PipeWireLoop> loop_;
};

}  // namespace linux_host
