// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_connection.h"

#include <pipewire/pipewire.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "driver/loopback_protocol.h"
#include "driver/pipewire_owners.h"
#include "driver/unique_fd.h"
#include "hosts/linux/audio/graph_watcher.h"
#include "hosts/linux/audio/pipewire_context.h"

namespace linux_host {
namespace {

timespec toTimespec(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

// The devices that can be recorded from.
std::vector<std::string> captureDevices(const AudioGraph& graph) {
  std::vector<std::string> names;
  for (const AudioNode* node : graph.audioDevices()) {
    if (node->isCapturable()) names.push_back(node->name);
  }
  return names;
}

bool isSystemLimit(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EAGAIN;
}

// More than the library's set-up takes.
constexpr int kManyDescriptors = 32;

// The library reports a plug-in that it cannot open for lack of a descriptor as a missing one.
bool areDescriptorsShort() {
  std::array<loopback::UniqueFd, kManyDescriptors> taken;
  return !std::all_of(taken.begin(), taken.end(), [](loopback::UniqueFd& fd) {
    fd = loopback::UniqueFd(eventfd(0, EFD_CLOEXEC));
    return fd.valid();
  });
}

}  // namespace

std::string noResourcesMessage(const std::string& reason) {
  return "The system has no thread or descriptor left for the connection to PipeWire (" + reason +
         "), so there is no sound to record. Close other programs and start again.";
}

std::string noLibraryMessage(int error) {
  if (isSystemLimit(error)) return noResourcesMessage(strerror(error));
  if (areDescriptorsShort()) return noResourcesMessage(strerror(EMFILE));
  return "PipeWire's client library cannot be set up (" + std::string(strerror(error)) +
         "). Check that PipeWire's client configuration is installed.";
}

std::string notRunningMessage(int error) {
  if (isSystemLimit(error)) return noResourcesMessage(strerror(error));
  return "PipeWire is not running (" + std::string(strerror(error)) +
         "), so there is no sound to record. Start it with "
         "\"systemctl --user start pipewire wireplumber\" or log in again.";
}

// Everything that lives on the loop's thread: one watcher after the other.
class PipeWireConnection::Remote final : public GraphWatcher::Owner {
 public:
  explicit Remote(PipeWireConnection& owner) : owner_(owner) {}
  Remote(const Remote&) = delete;
  Remote& operator=(const Remote&) = delete;

  void begin(pw_loop* loop);
  void setDefaultSink(const std::string& nodeName) {
    if (watcher_) watcher_->setDefaultSink(nodeName);
  }
  void setOwnProperties(const NodeProperties& properties) {
    if (watcher_) watcher_->setOwnProperties(properties);
  }

 private:
  // The state of the watcher: kNone -> kAsking -> kComplete, and from each of them to kNone.
  enum class Stage {
    kNone,      // there is no watcher, or one to be destroyed
    kAsking,    // the daemon has not reported everything yet
    kComplete,  // the daemon has reported everything
  };

  void tryToConnect();
  void wakeAfter(std::chrono::nanoseconds time);
  void onTime();

  void update(const std::function<void(AudioGraph&)>& change) override;
  void pictureIsComplete() override;
  void captureDeviceCame(const std::string& nodeName) override;
  void captureDeviceWent(const std::string& nodeName) override;
  void connectionBroke() override;
  bool metadataAsked() override;
  void metadataAnswered() override;

  PipeWireConnection& owner_;
  pw_loop* loop_ = nullptr;
  loopback::ContextPtr context_;
  loopback::LoopSource timer_;
  Stage stage_ = Stage::kNone;
  std::unique_ptr<GraphWatcher> watcher_;
};

void PipeWireConnection::Remote::begin(pw_loop* loop) {
  if (loop == nullptr) {
    owner_.lose(noResourcesMessage(strerror(EMFILE)));
    return;
  }
  loop_ = loop;
  context_ = makeContext(loop, ContextKind::kControl);
  if (context_ == nullptr) {
    owner_.lose(noLibraryMessage(errno));
    return;
  }
  timer_ = loopback::LoopSource(
      loop_,
      pw_loop_add_timer(
          loop_, [](void* self, std::uint64_t) { static_cast<Remote*>(self)->onTime(); }, this));
  if (!timer_) {
    owner_.lose(noResourcesMessage(strerror(errno)));
    return;
  }
  tryToConnect();
}

void PipeWireConnection::Remote::wakeAfter(std::chrono::nanoseconds time) {
  timer_.startTimer(toTimespec(time));
}

void PipeWireConnection::Remote::tryToConnect() {
  update([](AudioGraph& graph) { graph = AudioGraph{}; });
  watcher_ = std::make_unique<GraphWatcher>(*this, owner_.driver_);
  if (!watcher_->connect(context_.get())) {
    const int error = errno;
    watcher_.reset();
    owner_.lose(notRunningMessage(error));
    wakeAfter(kReturnPoll);
    return;
  }
  stage_ = Stage::kAsking;
  wakeAfter(kStartLimit);
}

void PipeWireConnection::Remote::onTime() {
  switch (stage_) {
    case Stage::kNone:
      watcher_.reset();
      tryToConnect();
      break;
    case Stage::kAsking:
      // The watcher stays and still waits for the answer.
      owner_.lose(
          "PipeWire runs but does not answer, so there is no sound to record. Restart it with "
          "\"systemctl --user restart pipewire wireplumber\".");
      break;
    case Stage::kComplete:
      break;
  }
}

void PipeWireConnection::Remote::update(const std::function<void(AudioGraph&)>& change) {
  {
    const platform::MutexLock lock(owner_.mutex_);
    change(owner_.graph_);
  }
  owner_.changed_.notify_all();
}

void PipeWireConnection::Remote::pictureIsComplete() {
  stage_ = Stage::kComplete;
  owner_.stand();
}

void PipeWireConnection::Remote::captureDeviceCame(const std::string& nodeName) {
  if (stage_ == Stage::kComplete) owner_.tell(&PipeWireConnection::onCaptureDeviceAdded_, nodeName);
}

void PipeWireConnection::Remote::captureDeviceWent(const std::string& nodeName) {
  if (stage_ != Stage::kComplete) return;
  owner_.tell(&PipeWireConnection::onCaptureDeviceRemoved_, nodeName);
}

void PipeWireConnection::Remote::connectionBroke() {
  stage_ = Stage::kNone;
  owner_.forgetMetadataAsked();
  owner_.lose(
      "The connection to PipeWire broke: it was stopped or has crashed. Start it with "
      "\"systemctl --user start pipewire wireplumber\".");
  // Later, because the watcher is the caller.
  wakeAfter(kReturnPoll);
}

bool PipeWireConnection::Remote::metadataAsked() {
  const platform::MutexLock lock(owner_.mutex_);
  if (!owner_.isClosing_) ++owner_.unansweredMetadata_;
  return !owner_.isClosing_;
}

void PipeWireConnection::Remote::metadataAnswered() {
  {
    const platform::MutexLock lock(owner_.mutex_);
    --owner_.unansweredMetadata_;
  }
  owner_.changed_.notify_all();
}

PipeWireConnection::PipeWireConnection(Callbacks callbacks)
    : onLost_(std::move(callbacks.onLost)),
      onRegained_(std::move(callbacks.onRegained)),
      onCaptureDeviceAdded_(std::move(callbacks.onCaptureDeviceAdded)),
      onCaptureDeviceRemoved_(std::move(callbacks.onCaptureDeviceRemoved)),
      remote_(std::make_unique<Remote>(*this)) {
  try {
    loop_ = std::make_unique<PipeWireLoop>("audio-control");
  } catch (const std::system_error& error) {
    lose(noResourcesMessage(error.code().message()));
    return;
  }
  loop_->post([this](pw_loop* loop) { remote_->begin(loop); });
}

PipeWireConnection::~PipeWireConnection() {
  {
    platform::MutexLock lock(mutex_);
    isClosing_ = true;
    changed_.wait_for(lock, kAnswerLimit,
                      [this]() RA_REQUIRES(mutex_) { return unansweredMetadata_ == 0; });
  }
  if (loop_ == nullptr) return;
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

void PipeWireConnection::setCaptureDeviceCallbacks(
    std::function<void(const std::string&)> onAdded,
    std::function<void(const std::string&)> onRemoved) {
  const platform::MutexLock lock(callbackMutex_);
  onCaptureDeviceAdded_ = std::move(onAdded);
  onCaptureDeviceRemoved_ = std::move(onRemoved);
}

void PipeWireConnection::tell(DeviceCallback PipeWireConnection::*callback,
                              const std::string& nodeName) {
  const platform::MutexLock lock(callbackMutex_);
  if (this->*callback) (this->*callback)(nodeName);
}

bool PipeWireConnection::waitUntilStanding(platform::MutexLock& lock) const {
  changed_.wait_until(lock, begin_ + kStartLimit,
                      [this]() RA_REQUIRES(mutex_) { return phase_ != Phase::kConnecting; });
  return phase_ == Phase::kStanding;
}

bool PipeWireConnection::withGraph(const std::function<void(const AudioGraph&)>& read) const {
  platform::MutexLock lock(mutex_);
  if (!waitUntilStanding(lock)) return false;
  read(graph_);
  return true;
}

std::string PipeWireConnection::lostMessage() const {
  const platform::MutexLock lock(mutex_);
  return lost_;
}

bool PipeWireConnection::setConfiguredDefaultSink(const std::string& nodeName) {
  platform::MutexLock lock(mutex_);
  if (!waitUntilStanding(lock) || !graph_.hasDefaults) return false;
  lock.unlock();
  loop_->post([this, nodeName](pw_loop*) { remote_->setDefaultSink(nodeName); });
  return true;
}

bool PipeWireConnection::requestLoopback(bool isShow) {
  platform::MutexLock lock(mutex_);
  if (!waitUntilStanding(lock)) return false;
  const std::uint64_t number = ++loopbackRequests_;
  graph_.loopbackState.request(isShow, number);
  lock.unlock();
  const NodeProperties request = {
      {loopback::kLoopbackRequestKey,
       isShow ? loopback::kLoopbackRequestShowText : loopback::kLoopbackRequestHideText},
      {loopback::kLoopbackRequestNumberKey, std::to_string(number)}};
  loop_->post([this, request](pw_loop*) { remote_->setOwnProperties(request); });
  return true;
}

void PipeWireConnection::awaitLoopbackDriver() const {
  std::error_code unknown;
  if (!std::filesystem::exists(loopback_.startUpFile, unknown)) return;
  platform::MutexLock lock(mutex_);
  if (!waitUntilStanding(lock)) return;
  changed_.wait_until(lock, begin_ + kDriverGrace, [this]() RA_REQUIRES(mutex_) {
    return phase_ != Phase::kStanding || graph_.loopbackState.driverVersion().has_value();
  });
}

void PipeWireConnection::lose(const std::string& message) {
  std::vector<std::string> gone;
  {
    const platform::MutexLock lock(mutex_);
    if (phase_ == Phase::kLost) return;
    if (phase_ == Phase::kStanding) gone = captureDevices(graph_);
    phase_ = Phase::kLost;
    lost_ = message;
  }
  changed_.notify_all();
  if (onLost_) onLost_(message);
  for (const std::string& name : gone) tell(&PipeWireConnection::onCaptureDeviceRemoved_, name);
}

void PipeWireConnection::stand() {
  std::vector<std::string> returned;
  bool wasLost = false;
  {
    const platform::MutexLock lock(mutex_);
    wasLost = phase_ == Phase::kLost;
    if (wasLost) returned = captureDevices(graph_);
    phase_ = Phase::kStanding;
    lost_.clear();
  }
  changed_.notify_all();
  if (wasLost && onRegained_) onRegained_();
  for (const std::string& name : returned) tell(&PipeWireConnection::onCaptureDeviceAdded_, name);
}

void PipeWireConnection::forgetMetadataAsked() {
  {
    const platform::MutexLock lock(mutex_);
    unansweredMetadata_ = 0;
  }
  changed_.notify_all();
}

}  // namespace linux_host
