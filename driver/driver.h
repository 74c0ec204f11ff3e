#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "driver/choice_file.h"
#include "driver/default_guard.h"
#include "driver/default_metadata.h"
#include "driver/guard_process.h"
#include "driver/loopback_sink.h"
#include "driver/request_book.h"
#include "driver/sink_directory.h"

namespace loopback {

// The driver: one connection to the daemon, one thread. Shows the loopback device while a client
// asks for it and keeps the user's default output theirs.
class Driver {
 public:
  struct Options {
    std::string remote;  // the daemon's socket; empty: the one that a daemon serves by default
    std::string version;
    unsigned takeover = 0;
  };

  explicit Driver(const Options& options);
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Until a signal, the daemon's end or a second driver ends it; returns the exit code. Messages go
  // to stderr.
  int run();

 private:
  struct Client;

  bool connect();
  void watchSignals();
  void watchGuard();
  void guardDied();
  void announce();
  void stop();
  // Runs `action` when the daemon has answered all that was asked for so far.
  void afterRoundTrip(std::function<void()> action);

  void globalAppeared(std::uint32_t global, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t global);
  void nodeAppeared(std::uint32_t global, const spa_dict& properties);
  void clientAppeared(std::uint32_t global);
  void clientInfo(std::uint32_t global, const spa_dict& properties);
  void driverFound(std::uint32_t global);
  void yieldToAnotherDriver();
  void daemonGone();

  [[nodiscard]] bool isWanted() const;
  // Shows or hides the device as the requests ask for, after a look at the default keys: one change
  // at a time, each ends in changed().
  void followRequests();
  void show();
  void hide();
  // Keeps the device until the session manager has taken all streams off it.
  void awaitDeparture();
  [[nodiscard]] bool isInUse() const;
  void takeAway();
  void changed();
  void deviceLost();

  Options options_;
  pw_main_loop* mainLoop_ = nullptr;
  pw_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  spa_source* guardSource_ = nullptr;

  GuardProcess guardProcess_;
  ChoiceFile choiceFile_;
  DefaultMetadata defaults_;
  DefaultGuard defaultGuard_;
  RequestBook requests_;
  SinkDirectory sinks_;
  LoopbackSink sink_;
  std::map<std::uint32_t, std::unique_ptr<Client>> clients_;
  std::map<int, std::function<void()>> roundTrips_;
  bool announced_ = false;
  bool anotherDriver_ = false;
  bool stopping_ = false;
  bool isChanging_ = false;
  spa_source* departureTimer_ = nullptr;
  int looks_ = 0;       // at the device that is to go
  int quietLooks_ = 0;  // of these, the latest that saw nobody use it
  int exitCode_ = 0;
};

}  // namespace loopback
