#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hosts/linux/audio/audio_graph.h"
#include "hosts/linux/audio/pipewire_loop.h"

namespace linux_host {

// The program's control connection to PipeWire: what devices there are and how they stand, kept
// current on a thread of its own.
//
// Construction returns at once and connects in the background; readers wait for the first complete
// picture, but never longer than kStartLimit after the construction. When the daemon is absent or
// dies, every read fails from then on and onLost is called once. A connection is never re-made.
//
// Calls on any thread except the connection's own and audio callbacks.
class PipeWireConnection {
 public:
  static constexpr std::chrono::milliseconds kStartLimit{2000};
  static constexpr std::chrono::milliseconds kAnswerLimit{200};

  struct Callbacks {
    // Says what happened and what to do about it. On the connection's thread, once at most.
    std::function<void(const std::string& message)> onLost;
    // A capturable device (its node.name) came or went after the first picture. On the
    // connection's thread; `deviceWentAway` may call nothing of the connection but reads.
    std::function<void(const std::string& nodeName)> onCaptureDeviceAdded;
    std::function<void(const std::string& nodeName)> onCaptureDeviceRemoved;
  };

  explicit PipeWireConnection(Callbacks callbacks = {});
  // Waits, at most kAnswerLimit, for a session manager that has not told yet of the defaults:
  // PipeWire 0.3 tells nobody of any more changes of metadata when a client goes in that moment.
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Replaces the two capture device callbacks; null ends them, and none runs after the return.
  void setCaptureDeviceCallbacks(std::function<void(const std::string&)> onAdded,
                                 std::function<void(const std::string&)> onRemoved);

  // Calls `read` with the current picture, which stays still meanwhile; false, and no call, when
  // there is none. `read` must be short and must not call the connection.
  bool withGraph(const std::function<void(const AudioGraph&)>& read) const;
  // Why withGraph() fails; empty while it does not.
  [[nodiscard]] std::string lostMessage() const;

  // Both return at once; false when the connection is lost or (the default) when there is no
  // session manager to keep it.
  bool setConfiguredDefaultSink(const std::string& nodeName);
  // Puts a property on this client, for others to see, until the connection ends.
  bool setOwnProperty(const std::string& key, const std::string& value);

 private:
  struct Remote;  // all that lives on the loop's thread

  [[nodiscard]] bool waitUntilReady(std::unique_lock<std::mutex>& lock) const;
  void lose(const std::string& message);
  void publishReady();
  // False when no more metadata is to be bound.
  bool metadataAsked();
  void metadataAnswered();

  const std::chrono::steady_clock::time_point deadline_;
  const std::function<void(const std::string&)> onLost_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  AudioGraph graph_;            // guarded by mutex_; written on the loop's thread alone
  bool ready_ = false;          // guarded by mutex_
  std::string lost_;            // guarded by mutex_; empty while the connection stands
  int unansweredMetadata_ = 0;  // guarded by mutex_
  bool isClosing_ = false;      // guarded by mutex_

  std::mutex callbackMutex_;  // held while a capture device callback runs
  std::function<void(const std::string&)> onCaptureDeviceAdded_;
  std::function<void(const std::string&)> onCaptureDeviceRemoved_;

  std::unique_ptr<Remote> remote_;
  std::unique_ptr<PipeWireLoop> loop_;
};

// What to tell the user when there is no daemon; `reason` is the system's.
std::string notRunningMessage(const std::string& reason);

}  // namespace linux_host
