// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/pipewire_capture.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "hosts/linux/audio/capture_session.h"

namespace linux_host {
namespace {

class Device : public platform::CaptureDevice {
 public:
  Device(const AudioGraph& graph, const AudioNode& node)
      : uniqueID_(node.name),
        localizedName_(AudioGraph::displayName(node)),
        manufacturer_(graph.manufacturer(node)),
        activeInputSource_(graph.activeInput(node)) {}

  [[nodiscard]] std::string uniqueID() const override { return uniqueID_; }
  [[nodiscard]] std::string localizedName() const override { return localizedName_; }
  [[nodiscard]] std::string manufacturer() const override { return manufacturer_; }
  [[nodiscard]] std::optional<std::string> activeInputSource() const override {
    return activeInputSource_;
  }

 private:
  const std::string uniqueID_;
  const std::string localizedName_;
  const std::string manufacturer_;
  const std::optional<std::string> activeInputSource_;
};

class DeviceInput : public platform::CaptureDeviceInput {
 public:
  explicit DeviceInput(platform::CaptureDevicePtr device) : device_(std::move(device)) {}
  [[nodiscard]] platform::CaptureDevicePtr device() const override { return device_; }

 private:
  const platform::CaptureDevicePtr device_;
};

}  // namespace

std::shared_ptr<CaptureRun> CaptureRuns::start(CaptureSource source, CaptureRun::Events events) {
  mainThread_.assertHeld();
  std::erase_if(runs_, [](const std::shared_ptr<CaptureRun>& run) { return run->hasFinished(); });
  runs_.push_back(std::make_shared<CaptureRun>(std::move(source), std::move(events), rest_, work_));
  return runs_.back();
}

PipeWireCapture::PipeWireCapture(Surroundings surroundings)
    : surroundings_(std::move(surroundings)), runs_(surroundings_.pendingWork) {
  const auto notifier = [this](const char* name) {
    return [this, name](const std::string&) { postDeviceNotification(name); };
  };
  surroundings_.connection.setCaptureDeviceCallbacks(
      notifier(platform::kCaptureDeviceWasConnectedNotification),
      notifier(platform::kCaptureDeviceWasDisconnectedNotification));
}

PipeWireCapture::~PipeWireCapture() {
  surroundings_.connection.setCaptureDeviceCallbacks(nullptr, nullptr);
}

void PipeWireCapture::postDeviceNotification(const char* name) {
  surroundings_.postToMain([this, name, alive = std::weak_ptr<int>(alive_)] {
    if (alive.lock()) surroundings_.notificationCenter.post({name, nullptr, {}});
  });
}

std::vector<platform::CaptureDevicePtr> PipeWireCapture::devicesWithMediaType(
    platform::MediaType type) {
  mainThread_.assertHeld();
  std::vector<platform::CaptureDevicePtr> devices;
  if (type != platform::MediaType::kAudio) return devices;
  surroundings_.connection.withGraph([&](const AudioGraph& graph) {
    for (const AudioNode* node : graph.audioDevices()) {
      // If several nodes have the same name, only the first can be recorded.
      if (node->isCapturable() && graph.findNode(node->name) == node) {
        devices.push_back(std::make_shared<Device>(graph, *node));
      }
    }
  });
  return devices;
}

platform::CaptureDevicePtr PipeWireCapture::defaultDeviceWithMediaType(platform::MediaType type) {
  platform::CaptureDevicePtr device;
  if (type != platform::MediaType::kAudio) return device;
  surroundings_.connection.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = graph.defaultSource();
    if (node != nullptr) device = std::make_shared<Device>(graph, *node);
  });
  return device;
}

platform::CaptureDevicePtr PipeWireCapture::deviceWithUniqueID(const std::string& uniqueID) {
  mainThread_.assertHeld();
  platform::CaptureDevicePtr device;
  surroundings_.connection.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = graph.findNode(uniqueID);
    if (node == nullptr || !node->isCapturable()) return;
    // Until the driver has granted it, the device may be about to go.
    if (node->isLoopback() && !graph.loopbackState.isGranted()) return;
    device = std::make_shared<Device>(graph, *node);
  });
  return device;
}

bool PipeWireCapture::respondsToAuthorizationStatus() const {
  return surroundings_.permission.isKnown();
}

platform::AuthorizationStatus PipeWireCapture::authorizationStatusForMediaType(
    platform::MediaType type) {
  if (type != platform::MediaType::kAudio) return platform::AuthorizationStatus::kAuthorized;
  return surroundings_.permission.status();
}

void PipeWireCapture::requestAccessForMediaType(platform::MediaType type,
                                                std::function<void(bool)> handler) {
  if (type != platform::MediaType::kAudio) {
    handler(true);
    return;
  }
  surroundings_.permission.request(std::move(handler));
}

platform::CaptureSessionPtr PipeWireCapture::createSession() {
  mainThread_.assertHeld();
  auto session = std::make_shared<PipeWireCaptureSession>(surroundings_, runs_);
  std::erase_if(sessions_, [](const auto& old) { return old.expired(); });
  sessions_.push_back(session);
  return session;
}

bool PipeWireCapture::recordsSilence() const {
  mainThread_.assertHeld();
  return std::any_of(sessions_.begin(), sessions_.end(), [](const auto& weak) {
    const auto session = weak.lock();
    return session != nullptr && session->isSilent();
  });
}

std::uint64_t PipeWireCapture::lost_frames() const {
  mainThread_.assertHeld();
  std::uint64_t frames = 0;
  for (const auto& weak : sessions_) {
    if (const auto session = weak.lock()) frames += session->lost_frames();
  }
  return frames;
}

std::uint32_t PipeWireCapture::runningRate_Hz(const std::string& uniqueID) const {
  mainThread_.assertHeld();
  std::uint32_t rate_Hz = 0;
  for (const auto& weak : sessions_) {
    if (const auto session = weak.lock()) {
      rate_Hz = std::max(rate_Hz, session->runningRate_Hz(uniqueID));
    }
  }
  return rate_Hz;
}

void PipeWireCapture::failRecording(const std::string& message) {
  mainThread_.assertHeld();
  // A copy, because the sessions' observers may change the list.
  const auto sessions = sessions_;
  for (const auto& weak : sessions) {
    if (const auto session = weak.lock()) session->fail(message);
  }
}

platform::CaptureSessionPtr PipeWireCapture::createMonitoringSession() {
  mainThread_.assertHeld();
  return std::make_shared<PipeWireCaptureSession>(surroundings_, runs_,
                                                  PipeWireCaptureSession::Notices::kNone);
}

platform::CaptureDeviceInputPtr PipeWireCapture::createDeviceInput(
    const platform::CaptureDevicePtr& device, std::string* error) {
  if (device == nullptr) {
    *error = "There is no sound source to record from.";
    return nullptr;
  }
  if (deviceWithUniqueID(device->uniqueID()) == nullptr) {
    const std::string lost = surroundings_.connection.lostMessage();
    *error = lost.empty() ? "The sound source \"" + device->localizedName() +
                                "\" is not there: it was unplugged or switched off."
                          : lost;
    return nullptr;
  }
  return std::make_shared<DeviceInput>(device);
}

std::shared_ptr<platform::CaptureAudioFileOutput> PipeWireCapture::createAudioFileOutput() {
  return std::make_shared<FileOutput>(surroundings_.files, surroundings_.m4aWriters,
                                      surroundings_.postToMain);
}

std::shared_ptr<platform::CaptureAudioDataOutput> PipeWireCapture::createAudioDataOutput() {
  return std::make_shared<DataOutput>();
}

}  // namespace linux_host
