// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>

namespace loopback {

// The raw value of a metadata key; none when the key is not set.
struct MetadataValue {
  std::string type;
  std::string value;
  friend bool operator==(const MetadataValue&, const MetadataValue&) = default;
};
using DefaultChoice = std::optional<MetadataValue>;

// The "name" of a default key's value; empty when there is none.
[[nodiscard]] std::string deviceNameOf(const DefaultChoice& choice);
[[nodiscard]] DefaultChoice choiceOf(const std::string& deviceName);

// Through this the guard writes the default keys.
class DefaultKeys {
 public:
  virtual ~DefaultKeys() = default;
  // None clears the key. Ignored while there is no session manager.
  virtual void setConfigured(const DefaultChoice& choice) = 0;
  virtual void setEffective(const DefaultChoice& choice) = 0;
};

// Keeps one choice beyond the life of this process.
class ChoiceMemory {
 public:
  virtual ~ChoiceMemory() = default;
  // The choice of the last store(), which may itself be none; none if there was no store().
  [[nodiscard]] virtual DefaultChoice load() = 0;
  virtual void store(const DefaultChoice& choice) = 0;
};

// Protects the user's choice of the default output. The loopback device becomes the default only
// when a program configures it while it is shown. The previous choice is put back when the device
// is hidden, or is found configured while hidden. Knows nothing of PipeWire; called on the driver's
// single thread.
class DefaultGuard {
 public:
  DefaultGuard(DefaultKeys& keys, ChoiceMemory& memory);

  // Before this call the guard only observes and writes nothing, because another driver may be
  // serving.
  void serve();

  void configuredChanged(const DefaultChoice& choice);
  void effectiveChanged(const DefaultChoice& choice);
  // The session manager is there, and all keys that it had set have been reported.
  void sessionManagerReady();
  // The session manager has gone, and its keys with it. That says nothing about the user's choice.
  void sessionManagerGone();

  // Reports sinks other than the loopback device as they come and go.
  void sinkAppeared(const std::string& name, int priority);
  void sinkGone(const std::string& name);

  // Call before the device is created.
  void willShow();
  // Call before the device is destroyed: puts the user's choice back.
  void willHide();

  // The last default output other than the loopback device; empty if none is known.
  [[nodiscard]] const std::string& lastRealDefault() const { return lastRealDefault_; }

 private:
  void remember(const DefaultChoice& choice);
  void putBack();
  [[nodiscard]] bool loopbackIsConfigured() const;
  [[nodiscard]] std::string bestRealSink() const;

  DefaultKeys& keys_;
  ChoiceMemory& memory_;
  DefaultChoice configured_;
  DefaultChoice remembered_;
  std::string lastRealDefault_;
  std::map<std::string, int> sinks_;  // name to priority
  bool serves_ = false;
  bool managerReady_ = false;
  bool shown_ = false;
  // The session manager made the loopback the default on its own and was corrected. It still thinks
  // that the loopback is the default, so it would not announce it if it is configured.
  bool corrected_ = false;
};

}  // namespace loopback
