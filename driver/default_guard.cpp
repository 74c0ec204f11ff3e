// SPDX-License-Identifier: MIT
#include "driver/default_guard.h"

#include <algorithm>

#include "driver/default_value.h"
#include "driver/loopback_protocol.h"

namespace loopback {

std::string deviceNameOf(const DefaultChoice& choice) {
  return choice ? nameInDefault(choice->value).value_or("") : "";
}

DefaultChoice choiceOf(const std::string& deviceName) {
  return MetadataValue{kDefaultValueType, defaultWithName(deviceName)};
}

DefaultGuard::DefaultGuard(DefaultKeys& keys, ChoiceMemory& memory)
    : keys_(keys), memory_(memory), remembered_(memory.load()) {}

void DefaultGuard::serve() {
  serves_ = true;
  if (!shown_ && loopbackIsConfigured()) putBack();
}

void DefaultGuard::configuredChanged(const DefaultChoice& choice) {
  configured_ = choice;
  if (!loopbackIsConfigured()) {
    remember(choice);
    return;
  }
  if (!shown_) {
    putBack();
  } else if (corrected_) {
    corrected_ = false;
    keys_.setEffective(choiceOf(kLoopbackDeviceUID));
  }
}

void DefaultGuard::effectiveChanged(const DefaultChoice& choice) {
  const std::string name = deviceNameOf(choice);
  if (name.empty()) return;
  if (name != kLoopbackDeviceUID) {
    if (name != lastRealDefault_) corrected_ = false;
    lastRealDefault_ = name;
    return;
  }
  if (!shown_ || loopbackIsConfigured()) return;
  // Session managers prefer a device that was ever configured to one that never was.
  const std::string real = bestRealSink();
  if (real.empty()) return;
  lastRealDefault_ = real;
  corrected_ = true;
  keys_.setEffective(choiceOf(real));
}

void DefaultGuard::sessionManagerReady() {
  managerReady_ = true;
}

void DefaultGuard::sessionManagerGone() {
  managerReady_ = false;
  configured_.reset();
  corrected_ = false;
}

void DefaultGuard::sinkAppeared(const std::string& name, int priority) {
  sinks_[name] = priority;
}

void DefaultGuard::sinkGone(const std::string& name) {
  sinks_.erase(name);
}

void DefaultGuard::willShow() {
  // At the start an unset key may mean that the session manager has not filled it in yet. By now it
  // means that the user has chosen nothing.
  if (managerReady_ && !loopbackIsConfigured()) remember(configured_);
  shown_ = true;
}

void DefaultGuard::willHide() {
  shown_ = false;
  corrected_ = false;
  if (loopbackIsConfigured()) putBack();
}

void DefaultGuard::remember(const DefaultChoice& choice) {
  if (choice == remembered_) return;
  remembered_ = choice;
  memory_.store(choice);
}

void DefaultGuard::putBack() {
  if (!serves_) return;
  configured_ = remembered_;
  keys_.setConfigured(remembered_);
}

bool DefaultGuard::loopbackIsConfigured() const {
  return deviceNameOf(configured_) == kLoopbackDeviceUID;
}

std::string DefaultGuard::bestRealSink() const {
  if (sinks_.contains(lastRealDefault_)) return lastRealDefault_;
  const auto best =
      std::max_element(sinks_.begin(), sinks_.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  return best == sinks_.end() ? std::string() : best->first;
}

}  // namespace loopback
