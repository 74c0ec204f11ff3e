// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "hosts/linux/audio_units/unit.h"
#include "platform/thread_role.h"

namespace linux_host {

// A graph of connected units. Main thread; the units' callbacks run while it is started.
class UnitGraph {
 public:
  // Creates the unit for a description; null when there is none.
  using Factory = std::function<std::unique_ptr<Unit>(const platform::AudioComponentDescription&)>;

  explicit UnitGraph(Factory factory) : factory_(std::move(factory)) {}
  ~UnitGraph() { close(); }
  UnitGraph(const UnitGraph&) = delete;
  UnitGraph& operator=(const UnitGraph&) = delete;

  platform::OSStatus addNode(const platform::AudioComponentDescription& description,
                             platform::AUNode* outNode);
  // The node's unit, which lives while the graph is open; null before.
  platform::OSStatus nodeUnit(platform::AUNode node, Unit** outUnit);
  platform::OSStatus connect(platform::AUNode source, std::uint32_t sourceOutput,
                             platform::AUNode destination, std::uint32_t destinationInput);
  // Creates the units.
  platform::OSStatus open();
  // Stops and deletes the units.
  platform::OSStatus close();
  // Initializes all units. At the first failure, undoes those before it and returns the error.
  platform::OSStatus initialize();
  // Starts the units bound to devices.
  platform::OSStatus start();
  platform::OSStatus stop();
  [[nodiscard]] bool owns(const Unit* unit) const;

 private:
  // close() leads back to kClosed from each of them.
  //   kClosed       the nodes have no units                  -> kOpen
  //   kOpen         the units are there and can be connected -> kInitialized
  //   kInitialized  the units are ready to be started
  enum class State { kClosed, kOpen, kInitialized };

  struct Node {
    platform::AudioComponentDescription description;
    std::unique_ptr<Unit> unit;
  };

  Node* find(platform::AUNode node);
  static bool isBoundToDevice(const Node& node) {
    return node.description.componentType == platform::kAudioUnitType_Output;
  }

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const Factory factory_;
  std::vector<Node> nodes_;  // node n is at index n - 1
  State state_ = State::kClosed;
};

}  // namespace linux_host
