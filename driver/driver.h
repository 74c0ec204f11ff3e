// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "driver/choice_writer.h"
#include "driver/default_guard.h"
#include "driver/default_metadata.h"
#include "driver/device_phase.h"
#include "driver/guard_process.h"
#include "driver/loopback_sink.h"
#include "driver/pipewire_owners.h"
#include "driver/request_book.h"
#include "driver/sink_directory.h"
#include "driver/vouched_program.h"

namespace loopback {

// The driver: one connection to the daemon, one thread. Shows the loopback device while a client
// asks for it and protects the user's choice of the default output.
class Driver {
 public:
  struct Options {
    std::string remote;  // the daemon's socket; empty: the default socket
    std::string version;
    unsigned takeover = 0;
  };

  explicit Driver(const Options& options);
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Runs until a signal, the daemon's end or another driver ends it. Returns the exit code.
  // Messages go to stderr.
  int run();

 private:
  struct Client;

  bool connect();
  // A timer that calls that function; empty, with errno set, when there is no descriptor for it.
  template <void (Driver::*kAction)()>
  LoopSource timer() {
    return timer([](void* data, std::uint64_t) { (static_cast<Driver*>(data)->*kAction)(); });
  }
  LoopSource timer(void (*fire)(void* driver, std::uint64_t expirations));
  // False, with a message on stderr, when the system has no descriptors left for them.
  bool prepareLoop();
  bool watchSignals();
  void watchGuard();
  void guardDied();
  // Serves from now on, unless another driver does. That one may be leaving, and gets some time for
  // it.
  void announce();
  void yieldToAnotherDriver();
  void stop();
  // Runs `action` when the daemon has answered all requests so far.
  void afterRoundTrip(std::function<void()> action);

  void globalAppeared(std::uint32_t global, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t global);
  void nodeAppeared(std::uint32_t global, const spa_dict& properties);
  void clientAppeared(std::uint32_t global);
  void clientInfo(std::uint32_t global, const spa_dict& properties);
  // For a client that is another driver, or no longer is one.
  void driverFound(std::uint32_t global);
  void driverGone(std::uint32_t global);
  void daemonGone();

  // Shows or hides the device as requested, if the phase allows it. Called again at the end of
  // every phase.
  void followRequests();
  void enter(DevicePhase phase);
  void startShowing();
  void makeDevice();
  void deviceMade();
  // Cancels a removal that has begun.
  void stay();
  void deviceIsThere();
  void startLeaving();
  void putDefaultsBack();
  // Keeps the device until the session manager has moved all streams off it.
  void awaitDeparture();
  [[nodiscard]] bool isInUse() const;
  void takeAway();
  void deviceLost();
  // Publishes the requests for which the device is there and stays.
  void publishGrants();
  void publish(const char* key, const std::string& value);
  // Ends the process when the daemon has received everything.
  void endWhenHidden();
  // Ends the process after the current event.
  void end() { isRunning_ = false; }

  Options options_;
  // These two wait at their end, for another process and for the disk: the connection is closed by
  // then.
  GuardProcess guardProcess_;
  ChoiceWriter choices_;

  LoopPtr loop_;
  bool isRunning_ = true;  // until the loop is to end
  ContextPtr context_;
  CorePtr core_;
  BoundProxy registry_;
  LoopSource guardSource_;
  LoopSource predecessorTimer_;
  LoopSource departureTimer_;
  LoopSource stopTimer_;

  const VouchedProgram ownProgram_ = VouchedProgram::ownProgram();
  DefaultMetadata defaults_;
  DefaultGuard defaultGuard_;
  RequestBook requests_;
  SinkDirectory sinks_;
  LoopbackSink sink_;
  std::map<std::uint32_t, std::unique_ptr<Client>> clients_;
  std::set<std::uint32_t> otherDrivers_;
  std::map<int, std::function<void()>> roundTrips_;
  DevicePhase phase_ = DevicePhase::kStarting;
  std::string granted_;  // as last published
  // While leaving: the number of checks so far, and of the last consecutive ones that found the
  // device unused.
  int looks_ = 0;
  int quietLooks_ = 0;
  int exitCode_ = 0;
};

}  // namespace loopback
