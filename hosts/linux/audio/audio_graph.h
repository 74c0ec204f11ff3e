// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/audio/loopback_state.h"

// What the daemon has reported about the computer's sound, as plain data.

namespace linux_host {

using NodeProperties = std::map<std::string, std::string>;

// The sample formats that a node has, or can be set to.
struct NodeFormat {
  std::uint32_t rate_Hz = 0;  // 0: free
  std::uint32_t lowestRate_Hz = 0;
  std::uint32_t highestRate_Hz = 0;
  std::vector<std::uint32_t> listedRates_Hz{};  // empty: any between lowest and highest
  std::uint32_t channels = 0;                   // 0: free
  std::vector<std::uint32_t> positions{};       // enum spa_audio_channel; empty: unknown
};

// The levels that a mixer has set.
struct Levels {
  std::vector<float> channelVolumes{};  // empty: it has no volume
  std::optional<bool> mute{};           // null: it cannot be muted
};

struct AudioNode {
  std::uint32_t id = 0;  // in the registry
  std::string name;
  std::string mediaClass;
  NodeProperties properties;
  std::optional<NodeFormat> format;   // while it is configured
  std::optional<NodeFormat> offered;  // what it can be configured for
  Levels levels;
  // All of the above has arrived; from then on the node counts.
  bool known = false;

  // The property, or empty.
  [[nodiscard]] const std::string& property(const std::string& key) const;
  [[nodiscard]] bool isLoopback() const;
  // A source in its own right, such as a microphone; not the monitor of a sink.
  [[nodiscard]] bool isSource() const;
  [[nodiscard]] bool isSink() const;
  // Can be recorded from: a source, or the loopback device.
  [[nodiscard]] bool isCapturable() const { return isSource() || isLoopback(); }
};

// A port of a device, such as its internal microphone.
struct Route {
  std::uint32_t index = 0;
  bool isInput = false;
  std::int64_t profileDevice = -1;  // the device's node that it belongs to
  std::string description;
  Levels levels{};
};

struct AudioGraph {
  std::map<std::uint32_t, AudioNode> nodes;
  std::map<std::uint32_t, std::vector<Route>> deviceRoutes;  // active routes, by device
  std::map<std::uint32_t, NodeProperties> devices;
  LoopbackState loopbackState;
  std::map<std::string, std::string> defaults;  // the "default" metadata
  std::map<std::string, std::string> settings;  // the "settings" metadata
  bool hasDefaults = false;
  std::string lastRealSink;  // the last default output that was not the loopback device

  // Null when no known node has that name.
  [[nodiscard]] const AudioNode* findNode(const std::string& name) const;
  // Known nodes that are audio devices, oldest first.
  [[nodiscard]] std::vector<const AudioNode*> audioDevices() const;
  // The chosen default if it is available, else the device with the highest priority; null when
  // there is no device.
  [[nodiscard]] const AudioNode* defaultSource() const;
  // A loopback device that is being removed no longer counts as the default output; the device that
  // the driver puts back does.
  [[nodiscard]] const AudioNode* defaultSink() const;

  // The graph's rate unless a device forces another, Hz.
  [[nodiscard]] std::uint32_t graphRate_Hz() const;
  // The length of a cycle when no stream asks for less, frames.
  [[nodiscard]] std::uint32_t graphQuantum_frames() const;
  // The rate at which the device runs, or would run if it were started now.
  [[nodiscard]] std::uint32_t deviceRate_Hz(const AudioNode& node) const;
  // The position of each of the device's channels (enum spa_audio_channel); the size is the number
  // of channels.
  [[nodiscard]] std::vector<std::uint32_t> channelPositions(const AudioNode& node) const;
  // The levels of the port that the node plays or records through, as mixers show and set them, if
  // the port has any; else the node's own. PipeWire 1.4 reports a change of a node's own levels
  // only once the node has run.
  [[nodiscard]] const Levels& levels(const AudioNode& node) const;
  // The port that a source records from; null when it has no ports to choose from.
  [[nodiscard]] std::optional<std::string> activeInput(const AudioNode& node) const;
  // The node's property, or else its device's; empty if neither has it.
  [[nodiscard]] const std::string& deviceProperty(const AudioNode& node,
                                                  const std::string& key) const;
  // kBuiltInManufacturer for the computer's own devices, the loopback driver's version for its
  // device, else the manufacturer's name, which may be empty.
  [[nodiscard]] std::string manufacturer(const AudioNode& node) const;
  // The name of the device that users know.
  [[nodiscard]] static std::string displayName(const AudioNode& node);

  // Takes the default output from the metadata.
  void defaultSinkIs(const std::string& json);

 private:
  // The sink named by that key of the default metadata; null when there is none.
  [[nodiscard]] const AudioNode* sinkInDefault(const char* key) const;
  [[nodiscard]] std::uint32_t setting(const std::string& key) const;
  // Null when it has no ports or none is active.
  [[nodiscard]] const Route* activeRoute(const AudioNode& node, bool isInput) const;
};

}  // namespace linux_host
