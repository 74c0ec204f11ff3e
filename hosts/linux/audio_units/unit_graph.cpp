// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/unit_graph.h"

#include <algorithm>

namespace linux_host {

using platform::AUNode;
using platform::noErr;
using platform::OSStatus;

UnitGraph::Node* UnitGraph::find(AUNode node) {
  const bool isThere = node >= 1 && static_cast<std::size_t>(node) <= nodes_.size();
  return isThere ? &nodes_[static_cast<std::size_t>(node) - 1] : nullptr;
}

bool UnitGraph::owns(const Unit* unit) const {
  return std::any_of(nodes_.begin(), nodes_.end(),
                     [&](const Node& node) { return node.unit.get() == unit; });
}

OSStatus UnitGraph::addNode(const platform::AudioComponentDescription& description,
                            AUNode* outNode) {
  mainThread_.assertHeld();
  if (state_ == State::kInitialized) return platform::kAudioUnitErr_CannotDoInCurrentContext;
  std::unique_ptr<Unit> unit = factory_(description);
  if (!unit) return platform::kAudioUnitErr_InvalidElement;
  if (state_ == State::kClosed) unit.reset();  // created only to check that this is possible
  nodes_.push_back({description, std::move(unit)});
  *outNode = static_cast<AUNode>(nodes_.size());
  return noErr;
}

OSStatus UnitGraph::nodeUnit(AUNode node, Unit** outUnit) {
  mainThread_.assertHeld();
  const Node* found = find(node);
  if (found == nullptr) return platform::kAUGraphErr_NodeNotFound;
  *outUnit = found->unit.get();
  return noErr;
}

OSStatus UnitGraph::connect(AUNode source, std::uint32_t sourceOutput, AUNode destination,
                            std::uint32_t destinationInput) {
  mainThread_.assertHeld();
  Node* from = find(source);
  Node* to = find(destination);
  if (from == nullptr || to == nullptr) return platform::kAUGraphErr_NodeNotFound;
  if (state_ == State::kClosed) return platform::kAudioUnitErr_Uninitialized;
  if (from == to || sourceOutput != 0 || destinationInput != 0 || !from->unit->canFeed()) {
    return platform::kAUGraphErr_InvalidConnection;
  }
  return to->unit->connect(from->unit.get());
}

OSStatus UnitGraph::open() {
  mainThread_.assertHeld();
  if (state_ != State::kClosed) return noErr;
  for (Node& node : nodes_) node.unit = factory_(node.description);
  state_ = State::kOpen;
  return noErr;
}

OSStatus UnitGraph::close() {
  mainThread_.assertHeld();
  static_cast<void>(stop());
  // A unit that pulls goes before the unit that it pulls.
  for (Node& node : nodes_) {
    if (isBoundToDevice(node)) node.unit.reset();
  }
  for (Node& node : nodes_) node.unit.reset();
  state_ = State::kClosed;
  return noErr;
}

OSStatus UnitGraph::initialize() {
  mainThread_.assertHeld();
  if (state_ == State::kClosed) return platform::kAudioUnitErr_Uninitialized;
  for (std::size_t i = 0; i < nodes_.size(); ++i) {
    const OSStatus status = nodes_[i].unit->initialize();
    if (status == noErr) continue;
    while (i-- > 0) nodes_[i].unit->uninitialize();
    return status;
  }
  state_ = State::kInitialized;
  return noErr;
}

OSStatus UnitGraph::start() {
  mainThread_.assertHeld();
  if (state_ != State::kInitialized) return platform::kAudioUnitErr_Uninitialized;
  for (Node& node : nodes_) {
    if (!isBoundToDevice(node)) continue;
    if (const OSStatus status = node.unit->start(); status != noErr) {
      static_cast<void>(stop());
      return status;
    }
  }
  return noErr;
}

OSStatus UnitGraph::stop() {
  mainThread_.assertHeld();
  for (Node& node : nodes_) {
    if (node.unit && isBoundToDevice(node)) node.unit->stop();
  }
  return noErr;
}

}  // namespace linux_host
