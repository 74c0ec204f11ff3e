// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "driver/vouched_program.h"
#include "hosts/linux/audio/audio_graph.h"
#include "hosts/linux/audio/loopback_places.h"
#include "hosts/linux/audio/pipewire_loop.h"
#include "platform/mutex.h"

namespace linux_host {

// The program's control connection to PipeWire: the devices and their properties, kept current on a
// separate thread.
//
// Construction returns at once and connects in the background; readers wait for the first complete
// picture, but never longer than kStartLimit after the construction. When the daemon is absent,
// does not answer or dies, every read fails and onLost is called. From then on the connection looks
// for a daemon every kReturnPoll, for as long as it takes, so that a restarted daemon is found
// within a second. Then onRegained is called, reads see the new state, and devices keep their ids.
//
// Calls on any thread except the connection's own and audio callbacks.
class PipeWireConnection {
 public:
  static constexpr std::chrono::milliseconds kStartLimit{2000};
  static constexpr std::chrono::milliseconds kAnswerLimit{200};
  static constexpr std::chrono::milliseconds kReturnPoll{250};
  static constexpr std::chrono::milliseconds kDriverGrace{3000};

  using DeviceCallback = std::function<void(const std::string& nodeName)>;
  struct Callbacks {
    // Says what happened and what to do about it. On the connection's thread, once for each loss;
    // in the constructor if that thread cannot be started.
    std::function<void(const std::string& message)> onLost;
    // The connection is back. On the connection's thread.
    std::function<void()> onRegained;
    // A capturable device (its node.name) came or went after the first picture; all of them go with
    // the daemon and come with the next. On the connection's thread, where only reads of the
    // connection are allowed.
    DeviceCallback onCaptureDeviceAdded;
    DeviceCallback onCaptureDeviceRemoved;
  };

  explicit PipeWireConnection(Callbacks callbacks = {});
  // Waits, at most kAnswerLimit, until the session manager has reported the defaults: if a client
  // leaves before that, PipeWire 0.3 reports no further metadata changes to any client.
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Replaces the two capture device callbacks; null ends them, and none runs after the return.
  void setCaptureDeviceCallbacks(DeviceCallback onAdded, DeviceCallback onRemoved);

  // Calls `read` with the current picture, which does not change meanwhile. Without a picture,
  // returns false and does not call `read`. `read` must be short and must not call the connection.
  bool withGraph(const std::function<void(const AudioGraph&)>& read) const;
  // Why withGraph() fails; empty while it does not.
  [[nodiscard]] std::string lostMessage() const;

  // This and requestLoopback() return at once; false when the connection is lost. Setting the
  // default also fails if there is no session manager to keep it.
  bool setConfiguredDefaultSink(const std::string& nodeName);
  // Asks the loopback driver for its device, or withdraws the request. Valid until the next call,
  // or until the connection ends or is lost.
  bool requestLoopback(bool isShow);
  // A daemon that has just been started, perhaps by this connection, may not have started its
  // driver yet. If a driver is installed, waits for it, at most until kDriverGrace after the
  // construction.
  void awaitLoopbackDriver() const;

 private:
  class Remote;  // all that lives on the loop's thread

  // The allowed changes: kConnecting -> kStanding or kLost, kStanding -> kLost, kLost -> kStanding.
  enum class Phase {
    kConnecting,  // readers wait
    kStanding,    // readers see the picture
    kLost,        // readers fail
  };

  [[nodiscard]] bool waitUntilStanding(platform::MutexLock& lock) const RA_REQUIRES(mutex_);
  // All functions below: on the loop's thread.
  void lose(const std::string& message);
  void stand();
  void forgetMetadataAsked();
  void tell(DeviceCallback PipeWireConnection::*callback, const std::string& nodeName);

  const LoopbackPlaces loopback_ = LoopbackPlaces::fromEnvironment();
  const loopback::VouchedProgram driver_{loopback_.program};
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  const std::function<void(const std::string&)> onLost_;
  const std::function<void()> onRegained_;

  mutable platform::Mutex mutex_;
  mutable platform::Condition changed_;
  AudioGraph graph_ RA_GUARDED_BY(mutex_);  // written on the loop's thread, but for requests
  Phase phase_ RA_GUARDED_BY(mutex_) = Phase::kConnecting;
  std::string lost_ RA_GUARDED_BY(mutex_);                    // why, while the connection is lost
  std::uint64_t loopbackRequests_ RA_GUARDED_BY(mutex_) = 0;  // so far
  int unansweredMetadata_ RA_GUARDED_BY(mutex_) = 0;
  bool isClosing_ RA_GUARDED_BY(mutex_) = false;

  platform::Mutex callbackMutex_;  // held while a capture device callback runs
  DeviceCallback onCaptureDeviceAdded_ RA_GUARDED_BY(callbackMutex_);
  DeviceCallback onCaptureDeviceRemoved_ RA_GUARDED_BY(callbackMutex_);

  std::unique_ptr<Remote> remote_;
  std::unique_ptr<PipeWireLoop> loop_;  // null when there was no thread for it: lost for good
};

// What to tell the user when a system limit prevents the connection; `reason` is the system's.
std::string noResourcesMessage(const std::string& reason);
// What to tell the user when the client library cannot be set up, or when no daemon can be reached.
// `error` is the errno, by which a system limit may be the reason.
std::string noLibraryMessage(int error);
std::string notRunningMessage(int error);

}  // namespace linux_host
