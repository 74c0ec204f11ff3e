// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>

namespace loopback {

// The value of a metadata key as it stands there; none when the key is not set.
struct MetadataValue {
  std::string type;
  std::string value;
  friend bool operator==(const MetadataValue&, const MetadataValue&) = default;
};
using DefaultChoice = std::optional<MetadataValue>;

// The "name" of a default key's value; empty when there is none.
[[nodiscard]] std::string deviceNameOf(const DefaultChoice& choice);
[[nodiscard]] DefaultChoice choiceOf(const std::string& deviceName);

// Where the guard writes the default keys.
class DefaultKeys {
 public:
  virtual ~DefaultKeys() = default;
  // None clears the key. Dropped while the session manager is away.
  virtual void setConfigured(const DefaultChoice& choice) = 0;
  virtual void setEffective(const DefaultChoice& choice) = 0;
};

// Remembers one choice beyond the life of this process.
class ChoiceMemory {
 public:
  virtual ~ChoiceMemory() = default;
  // The choice of the last store(), which may itself be none; none if there never was one.
  [[nodiscard]] virtual DefaultChoice load() = 0;
  virtual void store(const DefaultChoice& choice) = 0;
};

// Keeps the user's default output theirs: the loopback device becomes the default only when
// somebody configures it while it is shown, and whatever was configured before is put back when it
// is hidden or found configured while hidden. Knows nothing of PipeWire; driven by the driver's
// one thread.
class DefaultGuard {
 public:
  DefaultGuard(DefaultKeys& keys, ChoiceMemory& memory);

  // Before, it follows what happens and writes nothing: another driver may be serving.
  void serve();

  void configuredChanged(const DefaultChoice& choice);
  void effectiveChanged(const DefaultChoice& choice);
  // The session manager is there and all keys it had set have been reported.
  void sessionManagerReady();
  // It has gone and its keys with it, which says nothing about the user's choice.
  void sessionManagerGone();

  // Sinks other than the loopback device as they come and go.
  void sinkAppeared(const std::string& name, int priority);
  void sinkGone(const std::string& name);

  // To be called before the device is made.
  void willShow();
  // To be called before the device is destroyed: puts the user's choice back.
  void willHide();

  // What is used now, as far as it is not the loopback device; empty when never known.
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
  // The session manager took the loopback for its default by itself and was corrected; it still
  // believes in it, and so would not announce it once it is configured.
  bool corrected_ = false;
};

}  // namespace loopback
