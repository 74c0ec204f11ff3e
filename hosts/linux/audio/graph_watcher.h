// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "driver/pipewire_owners.h"
#include "driver/vouched_program.h"
#include "hosts/linux/audio/audio_graph.h"

struct pw_client_info;
struct pw_device_info;
struct pw_metadata;
struct pw_node_info;

namespace linux_host {

// One connection to the daemon: receives what the daemon reports about the computer's sound and
// passes it to the owner. Used once; after the daemon's end another watcher takes its place.
//
// Created, used and destroyed on its loop's thread.
class GraphWatcher {
 public:
  // Owns the picture. Called on the loop's thread; must not destroy the watcher.
  class Owner {
   public:
    virtual ~Owner() = default;
    // Applies the change, which is short, to the picture.
    virtual void update(const std::function<void(AudioGraph&)>& change) = 0;
    // Everything that existed when the connection was made is in the picture. Called once.
    virtual void pictureIsComplete() = 0;
    // Something that can be recorded from came or went.
    virtual void captureDeviceCame(const std::string& nodeName) = 0;
    virtual void captureDeviceWent(const std::string& nodeName) = 0;
    // The daemon is gone. Called once; nothing follows.
    virtual void connectionBroke() = 0;
    // A metadata object is about to be requested; returns false to prevent that.
    virtual bool metadataAsked() = 0;
    // A requested metadata object has reported everything.
    virtual void metadataAnswered() = 0;
  };

  // The owner and the loopback driver's program outlive the watcher.
  GraphWatcher(Owner& owner, const loopback::VouchedProgram& driver);
  ~GraphWatcher();
  GraphWatcher(const GraphWatcher&) = delete;
  GraphWatcher& operator=(const GraphWatcher&) = delete;

  // Call once. False, with errno set, when no daemon listens. The context outlives the watcher.
  [[nodiscard]] bool connect(pw_context* context);

  // Does nothing if there is no session manager to keep the default.
  void setDefaultSink(const std::string& nodeName);
  // Sets properties of this client, which other clients see, at once.
  void setOwnProperties(const NodeProperties& properties);

 private:
  struct Binding;  // one watched object of the daemon

  static void onDone(void* data, std::uint32_t id, int sequence);
  static void onError(void* data, std::uint32_t id, int sequence, int result, const char* message);
  static void onGlobal(void* data, std::uint32_t id, std::uint32_t permissions, const char* type,
                       std::uint32_t version, const spa_dict* properties);
  static void onGlobalRemove(void* data, std::uint32_t id);
  static void onNodeInfo(void* data, const pw_node_info* info);
  static void onNodeParam(void* data, int sequence, std::uint32_t paramId, std::uint32_t index,
                          std::uint32_t next, const spa_pod* param);
  static void onDeviceInfo(void* data, const pw_device_info* info);
  static void onDeviceParam(void* data, int sequence, std::uint32_t paramId, std::uint32_t index,
                            std::uint32_t next, const spa_pod* param);
  static void onClientInfo(void* data, const pw_client_info* info);
  static int onMetadata(void* data, std::uint32_t subject, const char* key, const char* type,
                        const char* value);

  // Null when the object is already gone.
  Binding* bind(std::uint32_t id, const char* type, std::uint32_t version);
  void bindNode(std::uint32_t id, const NodeProperties& properties);
  void bindDevice(std::uint32_t id, const NodeProperties& properties);
  void bindClient(std::uint32_t id);
  void bindMetadata(std::uint32_t id, const NodeProperties& properties);
  void markKnown(std::uint32_t nodeId);

  Owner& owner_;
  const loopback::VouchedProgram& driver_;
  loopback::CorePtr core_;
  loopback::BoundProxy registry_;
  std::map<std::uint32_t, std::unique_ptr<Binding>> bindings_;
  pw_metadata* defaults_ = nullptr;
  bool hasBroken_ = false;
  int globalsSequence_ = -1;     // answered when all objects have been announced
  int detailsSequence_ = -1;     // answered when their properties have arrived, too
  std::set<int> metadataSyncs_;  // answered when a metadata object has reported everything
  std::map<int, std::uint32_t> nodeSyncs_;  // answered when that node's properties have arrived
};

}  // namespace linux_host
