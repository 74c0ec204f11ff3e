// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/audio/loopback_state.h"

// What the daemon has told about the computer's sound, as plain data.

namespace linux_host {

using NodeProperties = std::map<std::string, std::string>;

// The sample formats that a node is in, or may be brought into.
struct NodeFormat {
  std::uint32_t rate_Hz = 0;  // 0: free
  std::uint32_t lowestRate_Hz = 0;
  std::uint32_t highestRate_Hz = 0;
  std::vector<std::uint32_t> listedRates_Hz{};  // empty: any between lowest and highest
  std::uint32_t channels = 0;                   // 0: free
  std::vector<std::uint32_t> positions{};       // enum spa_audio_channel; empty: unknown
};

// What a mixer has set.
struct Levels {
  std::vector<float> channelVolumes{};  // empty: there is no volume
  std::optional<bool> mute{};           // null: it cannot be muted
};

struct AudioNode {
  std::uint32_t id = 0;  // in the registry
  std::string name;
  std::string mediaClass;
  NodeProperties properties;
  std::optional<NodeFormat> format;   // while it is set up to run
  std::optional<NodeFormat> offered;  // what it can be set up for
  Levels levels;
  // All of the above has arrived; the node is part of the system from then on.
  bool known = false;

  // The property, or empty.
  [[nodiscard]] const std::string& property(const std::string& key) const;
  [[nodiscard]] bool isLoopback() const;
  // Records sound of its own: a microphone, not the monitor of a sink.
  [[nodiscard]] bool isSource() const;
  [[nodiscard]] bool isSink() const;
  // Can be recorded from: a source, or the loopback device.
  [[nodiscard]] bool isCapturable() const { return isSource() || isLoopback(); }
};

// A port of a device, such as its internal microphone.
struct Route {
  std::uint32_t index = 0;
  bool isInput = false;
  std::int64_t profileDevice = -1;  // which of the device's nodes it belongs to
  std::string description;
  Levels levels{};
};

struct AudioGraph {
  std::map<std::uint32_t, AudioNode> nodes;
  std::map<std::uint32_t, std::vector<Route>> deviceRoutes;  // active routes by device
  std::map<std::uint32_t, NodeProperties> devices;
  LoopbackState loopbackState;
  std::map<std::string, std::string> defaults;  // the "default" metadata
  std::map<std::string, std::string> settings;  // the "settings" metadata
  bool hasDefaults = false;
  std::string lastRealSink;  // the latest default output that was not the loopback device

  // Null when there is no known node of that name.
  [[nodiscard]] const AudioNode* findNode(const std::string& name) const;
  // Known nodes that are audio devices, oldest first.
  [[nodiscard]] std::vector<const AudioNode*> audioDevices() const;
  // The chosen default if it can be had, else the device of the highest priority; null when there
  // is none at all.
  [[nodiscard]] const AudioNode* defaultSource() const;
  // A loopback device that leaves is no default output any more: it is what the driver puts back.
  [[nodiscard]] const AudioNode* defaultSink() const;

  // The rate that the whole graph runs at, unless a device forces another, Hz.
  [[nodiscard]] std::uint32_t graphRate_Hz() const;
  // The frames a cycle takes when nobody asks for less.
  [[nodiscard]] std::uint32_t graphQuantum_frames() const;
  // The rate the device runs at, or would run at if it were started now.
  [[nodiscard]] std::uint32_t deviceRate_Hz(const AudioNode& node) const;
  // Where each of the device's channels lies (enum spa_audio_channel); its size is their number.
  [[nodiscard]] std::vector<std::uint32_t> channelPositions(const AudioNode& node) const;
  // The levels of the port that the node plays or records through, where that has any, as mixers
  // show and set them; else the node's own. PipeWire 1.4 tells of a change of a node's own levels
  // only once the node has run.
  [[nodiscard]] const Levels& levels(const AudioNode& node) const;
  // The port a source records from; null when it has no ports to choose from.
  [[nodiscard]] std::optional<std::string> activeInput(const AudioNode& node) const;
  // The node's property, else its device's, else empty.
  [[nodiscard]] const std::string& deviceProperty(const AudioNode& node,
                                                  const std::string& key) const;
  // kBuiltInManufacturer for what belongs to the computer itself, the loopback driver's version
  // for its device, else the maker's name, which may be empty.
  [[nodiscard]] std::string manufacturer(const AudioNode& node) const;
  // As users know the device.
  [[nodiscard]] static std::string displayName(const AudioNode& node);

  // The metadata names that default output.
  void defaultSinkIs(const std::string& json);

 private:
  // The sink that is named by the key of the default metadata; null when there is none.
  [[nodiscard]] const AudioNode* sinkInDefault(const char* key) const;
  [[nodiscard]] std::uint32_t setting(const std::string& key) const;
  // Null when it has no ports, or none is in use.
  [[nodiscard]] const Route* activeRoute(const AudioNode& node, bool isInput) const;
};

}  // namespace linux_host
