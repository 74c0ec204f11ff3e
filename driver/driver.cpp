// SPDX-License-Identifier: MIT
#include "driver/driver.h"

#include <pipewire/impl.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "driver/choice_file.h"
#include "driver/loopback_protocol.h"
#include "driver/report.h"

namespace loopback {
namespace {

constexpr timespec kStopLimit{.tv_sec = 0, .tv_nsec = 900'000'000};

// If a device goes away while WirePlumber 0.4 is linking a stream to it, WirePlumber takes the
// stream's next link for a failed one: it gives up linking the stream, or leaves it on two devices.
// So the device stays until nothing uses it, and long enough for pending links to appear.
constexpr timespec kLookInterval{.tv_sec = 0, .tv_nsec = 5'000'000};
constexpr int kQuietLooks = 5;
constexpr int kMostLooks = 70;

// How long a driver that is found at the start may take to leave, if it is leaving.
constexpr timespec kPredecessorLimit{.tv_sec = 1, .tv_nsec = 500'000'000};

std::string lookup(const spa_dict& properties, const char* key) {
  const char* value = spa_dict_lookup(&properties, key);
  return value != nullptr ? value : "";
}

std::uint32_t lookupNumber(const spa_dict& properties, const char* key) {
  return static_cast<std::uint32_t>(std::strtoul(lookup(properties, key).c_str(), nullptr, 10));
}

// A daemon names its own socket in this variable; PIPEWIRE_REMOTE, meant for clients, may name
// another daemon.
std::string servedSocket() {
  const char* name = std::getenv("PIPEWIRE_CORE");
  return name != nullptr && name[0] != '\0' ? name : PW_DEFAULT_REMOTE;
}

std::vector<std::string> successorArguments(const std::string& remote) {
  if (remote.empty()) return {};
  return {"--remote", remote};
}

}  // namespace

struct Driver::Client {
  Client(Driver& owner, std::uint32_t id) : driver(owner), global(id) {}

  Driver& driver;
  std::uint32_t global;
  BoundProxy proxy;
};

Driver::Driver(const Options& options)
    : options_(options),
      guardProcess_(successorArguments(options.remote), options.takeover),
      choices_(std::make_unique<ChoiceFile>(ChoiceFile::defaultPath())),
      defaultGuard_(defaults_, choices_),
      sink_(options.version,
            {.onMade = [this] { deviceMade(); }, .onLost = [this] { deviceLost(); }}) {
  defaults_.follow(defaultGuard_);
}

Driver::~Driver() = default;

int Driver::run() {
  guardProcess_.start();
  if (!prepareLoop()) {
    reportErrno("cannot create an event loop");
    return EXIT_FAILURE;
  }
  watchGuard();
  if (!connect()) return EXIT_FAILURE;
  // The first round trip reports the existing objects, the second their details.
  afterRoundTrip([this] { afterRoundTrip([this] { announce(); }); });
  // Not the library's main loop: that takes a descriptor to be ended, and without one never ends.
  pw_loop_enter(loop_.get());
  while (isRunning_) pw_loop_iterate(loop_.get(), -1);
  pw_loop_leave(loop_.get());
  return exitCode_;
}

LoopSource Driver::timer(void (*fire)(void* driver, std::uint64_t expirations)) {
  return {loop_.get(), pw_loop_add_timer(loop_.get(), fire, this)};
}

// Everything that the end needs is made here: by then there may be no descriptor left.
bool Driver::prepareLoop() {
  loop_.reset(pw_loop_new(nullptr));
  if (loop_ == nullptr) return false;
  departureTimer_ = timer<&Driver::awaitDeparture>();
  predecessorTimer_ = timer<&Driver::yieldToAnotherDriver>();
  stopTimer_ = timer<&Driver::end>();
  return departureTimer_ && predecessorTimer_ && stopTimer_ && watchSignals();
}

bool Driver::connect() {
  static const pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = [](void* data, std::uint32_t, int sequence) {
      auto& trips = static_cast<Driver*>(data)->roundTrips_;
      if (auto trip = trips.extract(sequence)) trip.mapped()();
    };
    events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
      // Any other error is about an object that has just gone; the driver does not depend on it.
      if (id == PW_ID_CORE && result == -EPIPE) static_cast<Driver*>(data)->daemonGone();
    };
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{
      .version = PW_VERSION_REGISTRY_EVENTS,
      .global =
          [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
             const spa_dict* properties) {
            static_cast<Driver*>(data)->globalAppeared(id, type, properties);
          },
      .global_remove = [](void* data,
                          std::uint32_t id) { static_cast<Driver*>(data)->globalRemoved(id); },
  };
  const std::string remote = options_.remote.empty() ? servedSocket() : options_.remote;
  // Loads none of the user's client configuration, only the two modules that are used. The library
  // warns about that in the daemon's log.
  if (std::getenv("PIPEWIRE_DEBUG") == nullptr) pw_log_set_level(SPA_LOG_LEVEL_ERROR);
  context_.reset(
      pw_context_new(loop_.get(), pw_properties_new(PW_KEY_CONFIG_NAME, "null", nullptr), 0));
  if (context_ == nullptr ||
      pw_context_load_module(context_.get(), "libpipewire-module-protocol-native", nullptr,
                             nullptr) == nullptr ||
      pw_context_load_module(context_.get(), "libpipewire-module-metadata", nullptr, nullptr) ==
          nullptr) {
    reportErrno("cannot set up PipeWire's client library");
    return false;
  }
  core_.reset(pw_context_connect(
      context_.get(),
      pw_properties_new(PW_KEY_REMOTE_NAME, remote.c_str(), PW_KEY_APP_NAME, "loopback-driver",
                        PW_KEY_MEDIA_CATEGORY, "Manager", nullptr),
      0));
  if (!core_ || !defaults_.start(context_.get(), remote, [this] { daemonGone(); })) {
    reportErrno("cannot connect to the PipeWire daemon at \"" + remote + "\"");
    return false;
  }
  core_.listen(&kCoreEvents, this);
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  registry_.listen(&kRegistryEvents, this);
  return true;
}

bool Driver::watchSignals() {
  const auto onSignal = [](void* data, int) { static_cast<Driver*>(data)->stop(); };
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    if (pw_loop_add_signal(loop_.get(), number, onSignal, this) == nullptr) return false;
  }
  return true;
}

void Driver::watchGuard() {
  if (guardProcess_.fd() < 0) return;
  guardSource_ = LoopSource(
      loop_.get(),
      pw_loop_add_io(
          loop_.get(), guardProcess_.fd(), SPA_IO_IN | SPA_IO_HUP | SPA_IO_ERR, false,
          [](void* data, int, std::uint32_t) { static_cast<Driver*>(data)->guardDied(); }, this));
}

void Driver::guardDied() {
  guardSource_.reset();
  if (guardProcess_.bury() && guardProcess_.start()) watchGuard();
}

void Driver::announce() {
  if (phase_ != DevicePhase::kStarting || requests_.isClosed()) return;
  if (!otherDrivers_.empty()) {
    predecessorTimer_.startTimer(kPredecessorLimit);
    return;
  }
  enter(DevicePhase::kHidden);
  publishGrants();
  publish(kLoopbackDriverKey, options_.version);
  defaultGuard_.serve();
}

void Driver::yieldToAnotherDriver() {
  if (requests_.isClosed()) return;
  report("another driver already serves this daemon");
  stop();
}

void Driver::stop() {
  if (requests_.isClosed()) return;
  requests_.close();
  // A driver that starts now must not take this one for a serving driver.
  if (phase_ != DevicePhase::kStarting) publish(kLoopbackDriverKey, {});
  followRequests();
  // A daemon that does not answer must not hold up the end of the session.
  stopTimer_.startTimer(kStopLimit);
}

void Driver::afterRoundTrip(std::function<void()> action) {
  roundTrips_[pw_core_sync(core_.get(), PW_ID_CORE, 0)] = std::move(action);
}

void Driver::globalAppeared(std::uint32_t global, const char* type, const spa_dict* properties) {
  if (properties == nullptr) return;
  const std::string_view kind = type;
  if (kind == PW_TYPE_INTERFACE_Client) {
    clientAppeared(global);
  } else if (kind == PW_TYPE_INTERFACE_Node) {
    nodeAppeared(global, *properties);
  } else if (kind == PW_TYPE_INTERFACE_Link) {
    sinks_.addLink(global, lookupNumber(*properties, PW_KEY_LINK_INPUT_NODE));
  } else if (kind == PW_TYPE_INTERFACE_Port) {
    if (lookup(*properties, PW_KEY_PORT_DIRECTION) != "in") return;
    sinks_.addInputPort(global, lookupNumber(*properties, PW_KEY_NODE_ID),
                        lookupNumber(*properties, PW_KEY_PORT_ID),
                        lookup(*properties, PW_KEY_AUDIO_CHANNEL));
  }
}

void Driver::globalRemoved(std::uint32_t global) {
  const std::string sink = sinks_.sinkName(global);
  if (!sink.empty()) defaultGuard_.sinkGone(sink);
  sinks_.remove(global);
  if (clients_.erase(global) == 0) return;
  driverGone(global);
  requests_.clientGone(global);
  followRequests();
}

void Driver::nodeAppeared(std::uint32_t global, const spa_dict& properties) {
  const std::string mediaClass = lookup(properties, PW_KEY_MEDIA_CLASS);
  const std::string name = lookup(properties, PW_KEY_NODE_NAME);
  if (mediaClass != "Audio/Sink" && mediaClass != "Audio/Duplex") return;
  if (name.empty() || name == kLoopbackDeviceUID) return;
  sinks_.addSink(global, name);
  defaultGuard_.sinkAppeared(name, std::atoi(lookup(properties, PW_KEY_PRIORITY_SESSION).c_str()));
}

void Driver::clientAppeared(std::uint32_t global) {
  static const pw_client_events kEvents = [] {
    pw_client_events events{};
    events.version = PW_VERSION_CLIENT_EVENTS;
    events.info = [](void* data, const pw_client_info* info) {
      const auto* client = static_cast<Client*>(data);
      if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
      if (info->props != nullptr) client->driver.clientInfo(client->global, *info->props);
    };
    return events;
  }();
  auto client = std::make_unique<Client>(*this, global);
  client->proxy.reset(pw_registry_bind(registry_.as<pw_registry>(), global,
                                       PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0));
  if (!client->proxy) return;
  client->proxy.listen(&kEvents, client.get());
  clients_[global] = std::move(client);
}

void Driver::clientInfo(std::uint32_t global, const spa_dict& properties) {
  const bool isDriver =
      !lookup(properties, kLoopbackDriverKey).empty() && ownProgram_.isRunBy(properties);
  isDriver ? driverFound(global) : driverGone(global);
  requests_.requestIs(
      global,
      {lookup(properties, kLoopbackRequestKey), lookup(properties, kLoopbackRequestNumberKey)},
      phase_ != DevicePhase::kStarting);
  followRequests();
}

void Driver::driverFound(std::uint32_t global) {
  const auto own =
      pw_proxy_get_bound_id(reinterpret_cast<pw_proxy*>(pw_core_get_client(core_.get())));
  if (global == own) return;
  otherDrivers_.insert(global);
  // If two drivers start at the same moment, one has to go, and both have to agree which.
  if (phase_ != DevicePhase::kStarting && global < own) yieldToAnotherDriver();
}

void Driver::driverGone(std::uint32_t global) {
  if (otherDrivers_.erase(global) == 0 || !otherDrivers_.empty()) return;
  predecessorTimer_.startTimer({});
  // The details of the other clients must be known first.
  if (phase_ == DevicePhase::kStarting) afterRoundTrip([this] { announce(); });
}

void Driver::daemonGone() {
  if (!requests_.isClosed()) report("the connection to PipeWire has ended");
  requests_.close();
  end();
}

void Driver::followRequests() {
  switch (phase_) {
    case DevicePhase::kStarting:
    case DevicePhase::kHidden:
      if (requests_.isClosed()) return endWhenHidden();
      if (requests_.anyoneAsks()) startShowing();
      return;
    case DevicePhase::kShowing:
      return;  // follows the requests once the device is there
    case DevicePhase::kShown:
      if (!requests_.anyoneAsks()) return startLeaving();
      return publishGrants();
    case DevicePhase::kLeaving:
      if (requests_.anyoneAsks() && sink_.exists()) stay();
      return;
  }
}

void Driver::enter(DevicePhase phase) {
  if (!mayFollow(phase_, phase)) {
    // The guard starts another driver, which begins by putting everything back.
    report("is in an invalid state and ends");
    std::abort();
  }
  phase_ = phase;
}

void Driver::startShowing() {
  enter(DevicePhase::kShowing);
  defaults_.readAgain([this] { makeDevice(); });
}

void Driver::makeDevice() {
  if (!requests_.anyoneAsks()) return startLeaving();
  defaultGuard_.willShow();
  if (sink_.show(core_.get(), sinks_.channelsFor(defaultGuard_.lastRealDefault()))) return;
  requests_.forgetAll();
  startLeaving();
}

void Driver::deviceMade() {
  if (phase_ == DevicePhase::kShowing) deviceIsThere();
}

void Driver::stay() {
  enter(DevicePhase::kShowing);
  departureTimer_.startTimer({});
  defaultGuard_.willShow();
  // A client that is told that the device stays may make it the default; our earlier writes must
  // arrive before that.
  defaults_.afterWrites([this] { deviceIsThere(); });
}

void Driver::deviceIsThere() {
  enter(DevicePhase::kShown);
  defaults_.readAgainLater();
  followRequests();
}

void Driver::startLeaving() {
  enter(DevicePhase::kLeaving);
  publishGrants();
  defaults_.readAgain([this] { putDefaultsBack(); });
}

void Driver::putDefaultsBack() {
  const bool wasInUse = isInUse();
  defaultGuard_.willHide();
  defaults_.afterWrites([this, wasInUse] {
    if (!wasInUse && !isInUse()) return takeAway();
    looks_ = 0;
    quietLooks_ = 0;
    awaitDeparture();
  });
}

void Driver::awaitDeparture() {
  quietLooks_ = isInUse() ? 0 : quietLooks_ + 1;
  const bool isNeeded = sink_.exists() && quietLooks_ <= kQuietLooks && ++looks_ <= kMostLooks;
  if (!isNeeded) return takeAway();
  departureTimer_.startTimer(kLookInterval);
}

bool Driver::isInUse() const {
  return sink_.exists() && !defaults_.hangs() &&
         (defaults_.isLoopbackDefault() || sinks_.isPlayedTo(sink_.node()));
}

void Driver::takeAway() {
  sink_.hide();
  enter(DevicePhase::kHidden);
  defaults_.readAgainLater();
  followRequests();
}

void Driver::deviceLost() {
  requests_.forgetAll();
  if (phase_ != DevicePhase::kLeaving) startLeaving();
}

void Driver::publishGrants() {
  const std::string granted =
      phase_ == DevicePhase::kShown ? requests_.askers() : kLoopbackNoneGranted;
  if (granted == granted_) return;
  granted_ = granted;
  publish(kLoopbackGrantedKey, granted);
}

void Driver::publish(const char* key, const std::string& value) {
  const spa_dict_item item{key, value.empty() ? nullptr : value.c_str()};
  const spa_dict properties = SPA_DICT_INIT(&item, 1);
  pw_client_update_properties(pw_core_get_client(core_.get()), &properties);
}

void Driver::endWhenHidden() {
  defaults_.afterWrites([this] { afterRoundTrip([this] { end(); }); });
}

}  // namespace loopback
