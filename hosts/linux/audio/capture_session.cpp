// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_session.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "hosts/linux/audio/stream_connection.h"
#include "hosts/linux/base/log.h"

namespace linux_host {

PipeWireCaptureSession::~PipeWireCaptureSession() {
  PipeWireCaptureSession::stopRunning();
}

bool PipeWireCaptureSession::canAddInput(const platform::CaptureDeviceInputPtr& input) const {
  return input != nullptr && inputs_.empty();
}

bool PipeWireCaptureSession::canAddOutput(const platform::CaptureOutputPtr& output) const {
  return outputs_.empty() && std::dynamic_pointer_cast<SessionOutput>(output) != nullptr;
}

void PipeWireCaptureSession::addInput(const platform::CaptureDeviceInputPtr& input) {
  mainThread_.assertHeld();
  if (canAddInput(input)) inputs_.push_back(input);
}

void PipeWireCaptureSession::addOutput(const platform::CaptureOutputPtr& output) {
  mainThread_.assertHeld();
  if (canAddOutput(output)) outputs_.push_back(output);
}

Expected<CaptureSource> PipeWireCaptureSession::describeSource() const {
  if (inputs_.empty() || outputs_.empty()) {
    return Unexpected("The capture session has no input or no output.");
  }
  const platform::CaptureDevicePtr device = inputs_.front()->device();
  CaptureSource source;
  bool isFound = false;
  const bool isThere = surroundings_.connection.withGraph([&](const AudioGraph& graph) {
    const AudioNode* node = graph.findNode(device->uniqueID());
    if (node == nullptr || !node->isCapturable()) return;
    isFound = true;
    source.nodeName = node->name;
    source.displayName = device->localizedName();
    source.isMonitor = node->isLoopback();
    source.rate_Hz = graph.deviceRate_Hz(*node);
    source.positions = graph.channelPositions(*node);
  });
  if (!isThere) return Unexpected(surroundings_.connection.lostMessage());
  if (!isFound) {
    return Unexpected("The sound source \"" + device->localizedName() +
                      "\" is not there: it was unplugged or switched off.");
  }
  if (source.positions.size() > kMostStreamChannels) source.positions.resize(kMostStreamChannels);
  const auto output = std::dynamic_pointer_cast<SessionOutput>(outputs_.front());
  source.rate_Hz = output->wantedRate_Hz(source.rate_Hz);
  return source;
}

CaptureRun::Events PipeWireCaptureSession::eventsOf(RunNumber number) {
  const auto toMain = [session = weak_from_this(), post = surroundings_.postToMain](auto action) {
    post([session, action] {
      if (const auto self = session.lock()) action(*self);
    });
  };
  CaptureRun::Events events;
  events.onSamples = [toMain, number] {
    toMain([number](PipeWireCaptureSession& self) { self.onSamples(number); });
  };
  events.onFailed = [toMain, number](const std::string& message) {
    toMain([number, message](PipeWireCaptureSession& self) { self.onFailed(number, message); });
  };
  // A session that only listens keeps nothing, so it loses nothing.
  events.onWarning = [isQuiet = notices_ == Notices::kNone](const std::string& message) {
    if (!isQuiet) logMessage(LogLevel::kWarning, message);
  };
  return events;
}

void PipeWireCaptureSession::startRunning() {
  mainThread_.assertHeld();
  if (run_ != nullptr) {
    run_->announce();
    return;
  }
  const RunNumber number = ++runNumber_;
  auto source = describeSource();
  if (!source) {
    failLater(number, source.error());
    return;
  }
  try {
    run_ = runs_.start(*std::move(source), eventsOf(number));
  } catch (const std::exception& exception) {
    failLater(number, std::string("The recording cannot begin: ") + exception.what() +
                          ". Close other programs and start again.");
    return;
  }
  const auto output = std::dynamic_pointer_cast<SessionOutput>(outputs_.front());
  output->attach(run_, preset_);
}

// From the main loop, like any other fault.
void PipeWireCaptureSession::failLater(RunNumber number, const std::string& error) {
  surroundings_.postToMain([session = weak_from_this(), number, error] {
    const auto self = session.lock();
    if (self && self->run_ == nullptr && self->runNumber_ == number) self->postRuntimeError(error);
  });
}

void PipeWireCaptureSession::stopRunning() {
  mainThread_.assertHeld();
  if (run_ == nullptr) return;
  run_->end();
  run_.reset();
}

void PipeWireCaptureSession::onSamples(RunNumber number) {
  mainThread_.assertHeld();
  if (run_ == nullptr || runNumber_ != number) return;
  const std::shared_ptr<CaptureRun> run = run_;
  // The error will be reported, and nothing else should be.
  if (run->hasFailed()) return;
  post(platform::kCaptureSessionDidStartRunningNotification, {});
  run->deliver();
}

void PipeWireCaptureSession::onFailed(RunNumber number, const std::string& message) {
  mainThread_.assertHeld();
  if (runNumber_ == number) fail(message);
}

void PipeWireCaptureSession::fail(const std::string& message) {
  mainThread_.assertHeld();
  if (run_ == nullptr) return;
  stopRunning();
  postRuntimeError(message);
}

void PipeWireCaptureSession::postRuntimeError(const std::string& message) {
  post(platform::kCaptureSessionRuntimeErrorNotification,
       {{platform::kCaptureSessionErrorKey, platform::Value(message)}});
}

void PipeWireCaptureSession::post(const char* name, platform::Dictionary userInfo) {
  if (notices_ == Notices::kNone) return;
  surroundings_.notificationCenter.post(
      platform::captureSessionNotification(name, shared_from_this(), std::move(userInfo)));
}

}  // namespace linux_host
