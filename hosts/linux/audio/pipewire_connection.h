// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "driver/vouched_program.h"
#include "hosts/linux/audio/audio_graph.h"
#include "hosts/linux/audio/loopback_places.h"
#include "hosts/linux/audio/pipewire_loop.h"

namespace linux_host {

// The program's control connection to PipeWire: what devices there are and how they stand, kept
// current on a thread of its own.
//
// Construction returns at once and connects in the background; readers wait for the first complete
// picture, but never longer than kStartLimit after the construction. When the daemon is absent,
// does not answer or dies, every read fails and onLost is called. From then on the connection looks
// for a daemon every kReturnPoll, for as long as it takes: restarted daemons come back within a
// second. Then onRegained is called, reads see what there is now, and devices have the ids they
// had.
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
    // in the constructor when there is no such thread to be had.
    std::function<void(const std::string& message)> onLost;
    // The connection stands again. On the connection's thread.
    std::function<void()> onRegained;
    // A capturable device (its node.name) came or went after the first picture; all of them go with
    // the daemon and come with the next. On the connection's thread, which may call nothing of the
    // connection but reads.
    DeviceCallback onCaptureDeviceAdded;
    DeviceCallback onCaptureDeviceRemoved;
  };

  explicit PipeWireConnection(Callbacks callbacks = {});
  // Waits, at most kAnswerLimit, for a session manager that has not told yet of the defaults:
  // PipeWire 0.3 tells nobody of any more changes of metadata when a client goes in that moment.
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Replaces the two capture device callbacks; null ends them, and none runs after the return.
  void setCaptureDeviceCallbacks(DeviceCallback onAdded, DeviceCallback onRemoved);

  // Calls `read` with the current picture, which stays still meanwhile; false, and no call, when
  // there is none. `read` must be short and must not call the connection.
  bool withGraph(const std::function<void(const AudioGraph&)>& read) const;
  // Why withGraph() fails; empty while it does not.
  [[nodiscard]] std::string lostMessage() const;

  // Both return at once; false when the connection is lost or (the default) when there is no
  // session manager to keep it.
  bool setConfiguredDefaultSink(const std::string& nodeName);
  // Asks the loopback driver for its device, or takes that back: until the next request, or until
  // the connection ends or is lost.
  bool requestLoopback(bool isShow);
  // A daemon that has just been started, by this very connection for example, may not have its
  // driver yet. Waits for that where one is to be, at most until kDriverGrace after the
  // construction.
  void awaitLoopbackDriver() const;

 private:
  class Remote;  // all that lives on the loop's thread

  // Who may follow whom: kConnecting -> kStanding or kLost, kStanding -> kLost, kLost -> kStanding.
  enum class Phase {
    kConnecting,  // readers wait
    kStanding,    // readers see the picture
    kLost,        // readers fail
  };

  [[nodiscard]] bool waitUntilStanding(std::unique_lock<std::mutex>& lock) const;
  // On the loop's thread (all below).
  void lose(const std::string& message);
  void stand();
  void forgetMetadataAsked();
  void tell(DeviceCallback PipeWireConnection::*callback, const std::string& nodeName);

  const LoopbackPlaces loopback_ = LoopbackPlaces::fromEnvironment();
  const loopback::VouchedProgram driver_{loopback_.program};
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  const std::function<void(const std::string&)> onLost_;
  const std::function<void()> onRegained_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  AudioGraph graph_;  // guarded by mutex_; written on the loop's thread, but for requests
  Phase phase_ = Phase::kConnecting;    // guarded by mutex_
  std::string lost_;                    // guarded by mutex_; why, while the connection is lost
  std::uint64_t loopbackRequests_ = 0;  // guarded by mutex_; so far
  int unansweredMetadata_ = 0;          // guarded by mutex_
  bool isClosing_ = false;              // guarded by mutex_

  std::mutex callbackMutex_;               // held while a capture device callback runs
  DeviceCallback onCaptureDeviceAdded_;    // guarded by callbackMutex_
  DeviceCallback onCaptureDeviceRemoved_;  // guarded by callbackMutex_

  std::unique_ptr<Remote> remote_;
  std::unique_ptr<PipeWireLoop> loop_;  // null when there was no thread for it: lost for good
};

// What to tell the user when a limit of the system is in the way; `reason` is the system's.
std::string noResourcesMessage(const std::string& reason);
// What to tell the user when there is no daemon; `reason` is the system's.
std::string notRunningMessage(const std::string& reason);

}  // namespace linux_host
