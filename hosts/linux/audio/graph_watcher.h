// SPDX-License-Identifier: MIT
#pragma once

#include <spa/utils/hook.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "driver/vouched_program.h"
#include "hosts/linux/audio/audio_graph.h"

struct pw_client_info;
struct pw_context;
struct pw_core;
struct pw_device_info;
struct pw_metadata;
struct pw_node_info;
struct pw_proxy;
struct pw_registry;
struct spa_dict;
struct spa_pod;

namespace linux_host {

// One connection to the daemon: hears what the daemon tells of the computer's sound, and has it
// written down. It is used once; after the daemon's end another one takes its place.
//
// Made, used and destroyed on its loop's thread.
class GraphWatcher {
 public:
  // Whose picture it is. Called on the loop's thread; must not destroy the watcher.
  class Owner {
   public:
    virtual ~Owner() = default;
    // Makes the change, which is short, to the picture.
    virtual void update(const std::function<void(AudioGraph&)>& change) = 0;
    // All that there was when the connection was made is in the picture; once.
    virtual void pictureIsComplete() = 0;
    // Something that can be recorded from came or went.
    virtual void captureDeviceCame(const std::string& nodeName) = 0;
    virtual void captureDeviceWent(const std::string& nodeName) = 0;
    // The daemon is gone; once. Nothing is heard any more.
    virtual void connectionBroke() = 0;
    // A metadata object is to be asked for; false when none is to be any more.
    virtual bool metadataAsked() = 0;
    // One that was asked for has told all.
    virtual void metadataAnswered() = 0;
  };

  // The owner and the program, which is that of the loopback driver, outlive the watcher.
  GraphWatcher(Owner& owner, const loopback::VouchedProgram& driver);
  ~GraphWatcher();
  GraphWatcher(const GraphWatcher&) = delete;
  GraphWatcher& operator=(const GraphWatcher&) = delete;

  // To be called once. False, with errno set, when no daemon listens. The context outlives the
  // watcher.
  [[nodiscard]] bool connect(pw_context* context);

  // Nothing happens where there is no session manager to keep the default.
  void setDefaultSink(const std::string& nodeName);
  // Puts properties on this client at once, for others to see.
  void setOwnProperties(const NodeProperties& properties);

 private:
  struct Binding;  // one object of the daemon that is watched

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

  // Null when the object is gone already.
  Binding* bind(std::uint32_t id, const char* type, std::uint32_t version);
  void bindNode(std::uint32_t id, const NodeProperties& properties);
  void bindDevice(std::uint32_t id, const NodeProperties& properties);
  void bindClient(std::uint32_t id);
  void bindMetadata(std::uint32_t id, const NodeProperties& properties);
  void markKnown(std::uint32_t nodeId);

  Owner& owner_;
  const loopback::VouchedProgram& driver_;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  std::map<std::uint32_t, std::unique_ptr<Binding>> bindings_;
  pw_metadata* defaults_ = nullptr;
  bool hasBroken_ = false;
  int globalsSequence_ = -1;                // answered when all objects have been announced
  int detailsSequence_ = -1;                // answered when their properties have arrived too
  std::set<int> metadataSyncs_;             // answered when a metadata object has told all
  std::map<int, std::uint32_t> nodeSyncs_;  // answered when that node's properties have arrived
};

}  // namespace linux_host
