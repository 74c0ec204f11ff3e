#include "hosts/linux/audio/pipewire_connection.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "driver/loopback_protocol.h"
#include "hosts/linux/audio/pipewire_context.h"
#include "hosts/linux/audio/spa_params.h"

namespace linux_host {

namespace {

constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

bool startsWith(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

const std::string& valueOf(const NodeProperties& properties, const char* key) {
  static const std::string kNone;
  const auto found = properties.find(key);
  return found == properties.end() ? kNone : found->second;
}

template <typename Interface>
Interface* as(pw_proxy* proxy) {
  return reinterpret_cast<Interface*>(proxy);
}

}  // namespace

std::string notRunningMessage(const std::string& reason) {
  return "PipeWire is not running (" + reason +
         "), so there is no sound to record. Start it with "
         "\"systemctl --user start pipewire wireplumber\" or log in again.";
}

// Made, used and destroyed on the loop's thread.
struct PipeWireConnection::Remote {
  // One object of the daemon that is watched.
  struct Binding {
    Binding(Remote* owner, std::uint32_t globalId, pw_proxy* boundProxy)
        : remote(owner), id(globalId), proxy(boundProxy) {}
    ~Binding() {
      spa_hook_remove(&listener);
      pw_proxy_destroy(proxy);
    }
    Binding(const Binding&) = delete;
    Binding& operator=(const Binding&) = delete;

    Remote* remote;
    std::uint32_t id;
    pw_proxy* proxy;
    spa_hook listener{};
    std::map<std::string, std::string>* metadata = nullptr;  // of a metadata object: its copy
  };

  explicit Remote(PipeWireConnection& owner) : owner_(owner) {}
  ~Remote() { disconnect(); }
  Remote(const Remote&) = delete;
  Remote& operator=(const Remote&) = delete;

  void connect(pw_loop* loop);
  void disconnect();
  bool setDefaultSink(const std::string& nodeName);
  void setOwnProperty(const std::string& key, const std::string& value);

 private:
  static void onDone(void* data, std::uint32_t id, int sequence);
  static void onError(void* data, std::uint32_t id, int sequence, int result, const char* message);
  static void onStartLimit(void* data, std::uint64_t expirations);
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

  template <typename Change>
  void update(const Change& change) {
    const std::lock_guard lock(owner_.mutex_);
    change(owner_.graph_);
  }

  PipeWireConnection& owner_;
  pw_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_source* startTimer_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  std::map<std::uint32_t, std::unique_ptr<Binding>> bindings_;
  pw_metadata* defaults_ = nullptr;
  int globalsSequence_ = -1;                // answered when all objects have been announced
  int detailsSequence_ = -1;                // answered when their properties have arrived too
  std::set<int> metadataSyncs_;             // answered when a metadata object has told all
  std::map<int, std::uint32_t> nodeSyncs_;  // answered when that node's properties have arrived
};

void PipeWireConnection::Remote::connect(pw_loop* loop) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = onDone;
    events.error = onError;
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, onGlobal,
                                                      onGlobalRemove};
  loop_ = loop;
  context_ = makeContext(loop, ContextKind::kControl);
  if (context_ == nullptr) {
    owner_.lose("PipeWire's client library cannot be set up (" + std::string(strerror(errno)) +
                "). Check that PipeWire's client configuration is installed.");
    return;
  }
  core_ = connectContext(context_, pw_properties_new(PW_KEY_APP_NAME, "Record Audio", PW_KEY_APP_ID,
                                                     kApplicationId, nullptr));
  if (core_ == nullptr) {
    owner_.lose(notRunningMessage(strerror(errno)));
    return;
  }
  pw_core_add_listener(core_, &coreListener_, &kCoreEvents, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(registry_, &registryListener_, &kRegistryEvents, this);
  globalsSequence_ = pw_core_sync(core_, PW_ID_CORE, 0);

  startTimer_ = pw_loop_add_timer(loop_, onStartLimit, this);
  timespec limit{std::chrono::duration_cast<std::chrono::seconds>(kStartLimit).count(), 0};
  pw_loop_update_timer(loop_, startTimer_, &limit, nullptr, false);
}

void PipeWireConnection::Remote::disconnect() {
  if (startTimer_ != nullptr) pw_loop_destroy_source(loop_, startTimer_);
  startTimer_ = nullptr;
  bindings_.clear();
  defaults_ = nullptr;
  if (registry_ != nullptr) {
    spa_hook_remove(&registryListener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  }
  registry_ = nullptr;
  if (core_ != nullptr) {
    spa_hook_remove(&coreListener_);
    pw_core_disconnect(core_);
  }
  core_ = nullptr;
  if (context_ != nullptr) pw_context_destroy(context_);
  context_ = nullptr;
}

void PipeWireConnection::Remote::onStartLimit(void* data, std::uint64_t) {
  auto* self = static_cast<Remote*>(data);
  self->owner_.lose(
      "PipeWire runs but does not answer, so there is no sound to record. Restart it with "
      "\"systemctl --user restart pipewire wireplumber\".");
}

void PipeWireConnection::Remote::onDone(void* data, std::uint32_t id, int sequence) {
  auto* self = static_cast<Remote*>(data);
  if (id != PW_ID_CORE) return;
  if (self->metadataSyncs_.erase(sequence) > 0) self->owner_.metadataAnswered();
  if (const auto sync = self->nodeSyncs_.find(sequence); sync != self->nodeSyncs_.end()) {
    const std::uint32_t nodeId = sync->second;
    self->nodeSyncs_.erase(sync);
    self->markKnown(nodeId);
  }
  if (sequence == self->globalsSequence_) {
    self->detailsSequence_ = pw_core_sync(self->core_, PW_ID_CORE, 0);
  } else if (sequence == self->detailsSequence_) {
    pw_loop_destroy_source(self->loop_, self->startTimer_);
    self->startTimer_ = nullptr;
    self->owner_.publishReady();
  }
}

void PipeWireConnection::Remote::onError(void* data, std::uint32_t id, int, int result,
                                         const char*) {
  // Errors of other objects only say that one vanished while it was being asked.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  static_cast<Remote*>(data)->owner_.lose(
      "The connection to PipeWire broke: it was stopped or has crashed. Start it with "
      "\"systemctl --user start pipewire wireplumber\".");
}

void PipeWireConnection::Remote::onGlobal(void* data, std::uint32_t id, std::uint32_t,
                                          const char* type, std::uint32_t,
                                          const spa_dict* dictionary) {
  auto* self = static_cast<Remote*>(data);
  const std::string kind = type;
  if (kind == PW_TYPE_INTERFACE_Node) {
    self->bindNode(id, readDictionary(dictionary));
  } else if (kind == PW_TYPE_INTERFACE_Device) {
    self->bindDevice(id, readDictionary(dictionary));
  } else if (kind == PW_TYPE_INTERFACE_Client) {
    self->bindClient(id);
  } else if (kind == PW_TYPE_INTERFACE_Metadata) {
    self->bindMetadata(id, readDictionary(dictionary));
  }
}

void PipeWireConnection::Remote::onGlobalRemove(void* data, std::uint32_t id) {
  auto* self = static_cast<Remote*>(data);
  const auto found = self->bindings_.find(id);
  if (found == self->bindings_.end()) return;
  Binding& binding = *found->second;
  std::string removedDevice;
  self->update([&](AudioGraph& graph) {
    const auto node = graph.nodes.find(id);
    if (node != graph.nodes.end()) {
      if (node->second.known && node->second.isCapturable()) removedDevice = node->second.name;
      graph.nodes.erase(node);
    }
    graph.devices.erase(id);
    graph.deviceRoutes.erase(id);
    graph.loopbackDrivers.erase(id);
    if (binding.metadata != nullptr) binding.metadata->clear();
    if (binding.proxy == reinterpret_cast<pw_proxy*>(self->defaults_)) graph.hasDefaults = false;
  });
  if (binding.proxy == reinterpret_cast<pw_proxy*>(self->defaults_)) self->defaults_ = nullptr;
  self->bindings_.erase(found);

  const std::lock_guard lock(self->owner_.callbackMutex_);
  if (!removedDevice.empty() && self->owner_.onCaptureDeviceRemoved_) {
    self->owner_.onCaptureDeviceRemoved_(removedDevice);
  }
}

PipeWireConnection::Remote::Binding* PipeWireConnection::Remote::bind(std::uint32_t id,
                                                                      const char* type,
                                                                      std::uint32_t version) {
  auto* proxy = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, type, version, 0));
  if (proxy == nullptr) return nullptr;
  return (bindings_[id] = std::make_unique<Binding>(this, id, proxy)).get();
}

void PipeWireConnection::Remote::bindNode(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_node_events kEvents{PW_VERSION_NODE_EVENTS, onNodeInfo, onNodeParam};
  if (!startsWith(valueOf(properties, PW_KEY_MEDIA_CLASS), "Audio/")) return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE);
  if (binding == nullptr) return;
  update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[id];
    node.id = id;
    node.name = valueOf(properties, PW_KEY_NODE_NAME);
    node.mediaClass = valueOf(properties, PW_KEY_MEDIA_CLASS);
    node.properties = properties;
  });
  auto* node = as<pw_node>(binding->proxy);
  pw_node_add_listener(node, &binding->listener, &kEvents, binding);
  std::uint32_t params[] = {SPA_PARAM_Props, SPA_PARAM_EnumFormat, SPA_PARAM_Format};
  pw_node_subscribe_params(node, params, std::size(params));
  nodeSyncs_[pw_core_sync(core_, PW_ID_CORE, 0)] = id;
}

void PipeWireConnection::Remote::markKnown(std::uint32_t nodeId) {
  std::string addedDevice;
  update([&](AudioGraph& graph) {
    const auto node = graph.nodes.find(nodeId);
    if (node == graph.nodes.end()) return;
    node->second.known = true;
    if (owner_.ready_ && node->second.isCapturable()) addedDevice = node->second.name;
  });
  const std::lock_guard lock(owner_.callbackMutex_);
  if (!addedDevice.empty() && owner_.onCaptureDeviceAdded_) {
    owner_.onCaptureDeviceAdded_(addedDevice);
  }
}

void PipeWireConnection::Remote::onNodeInfo(void* data, const pw_node_info* info) {
  auto* binding = static_cast<Binding*>(data);
  binding->remote->update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[binding->id];
    if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0) {
      node.properties = readDictionary(info->props);
    }
    if ((info->change_mask & PW_NODE_CHANGE_MASK_PARAMS) == 0) return;
    for (std::uint32_t i = 0; i < info->n_params; ++i) {
      const spa_param_info& param = info->params[i];
      // A node that was suspended has no format any more, and none is sent to say so.
      const bool isReadable = (param.flags & SPA_PARAM_INFO_READ) != 0;
      if (param.id == SPA_PARAM_Format && !isReadable) node.format.reset();
    }
  });
}

void PipeWireConnection::Remote::onNodeParam(void* data, int, std::uint32_t paramId,
                                             std::uint32_t index, std::uint32_t,
                                             const spa_pod* param) {
  auto* binding = static_cast<Binding*>(data);
  if (param == nullptr) return;
  binding->remote->update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[binding->id];
    switch (paramId) {
      case SPA_PARAM_Props:
        readProps(param, &node);
        break;
      case SPA_PARAM_Format:
        node.format = readFormat(param);
        break;
      case SPA_PARAM_EnumFormat:
        if (index == 0) node.offered.reset();
        if (!node.offered) node.offered = readFormat(param);
        break;
      default:
        break;
    }
  });
}

void PipeWireConnection::Remote::bindDevice(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_device_events kEvents{PW_VERSION_DEVICE_EVENTS, onDeviceInfo, onDeviceParam};
  if (valueOf(properties, PW_KEY_MEDIA_CLASS) != "Audio/Device") return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE);
  if (binding == nullptr) return;
  auto* device = as<pw_device>(binding->proxy);
  pw_device_add_listener(device, &binding->listener, &kEvents, binding);
  std::uint32_t params[] = {SPA_PARAM_Route};
  pw_device_subscribe_params(device, params, std::size(params));
}

void PipeWireConnection::Remote::onDeviceInfo(void* data, const pw_device_info* info) {
  auto* binding = static_cast<Binding*>(data);
  if ((info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS) == 0) return;
  binding->remote->update(
      [&](AudioGraph& graph) { graph.devices[binding->id] = readDictionary(info->props); });
}

void PipeWireConnection::Remote::onDeviceParam(void* data, int, std::uint32_t paramId,
                                               std::uint32_t index, std::uint32_t,
                                               const spa_pod* param) {
  auto* binding = static_cast<Binding*>(data);
  if (paramId != SPA_PARAM_Route || param == nullptr) return;
  binding->remote->update([&](AudioGraph& graph) {
    std::vector<Route>& routes = graph.deviceRoutes[binding->id];
    if (index == 0) routes.clear();
    if (auto route = readRoute(param)) routes.push_back(std::move(*route));
  });
}

void PipeWireConnection::Remote::bindClient(std::uint32_t id) {
  static constexpr pw_client_events kEvents{PW_VERSION_CLIENT_EVENTS, onClientInfo, nullptr};
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT);
  if (binding == nullptr) return;
  pw_client_add_listener(as<pw_client>(binding->proxy), &binding->listener, &kEvents, binding);
}

void PipeWireConnection::Remote::onClientInfo(void* data, const pw_client_info* info) {
  auto* binding = static_cast<Binding*>(data);
  if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
  const char* version = spa_dict_lookup(info->props, loopback::kLoopbackDriverKey);
  binding->remote->update([&](AudioGraph& graph) {
    if (version != nullptr) {
      graph.loopbackDrivers[binding->id] = version;
    } else {
      graph.loopbackDrivers.erase(binding->id);
    }
  });
}

void PipeWireConnection::Remote::bindMetadata(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_metadata_events kEvents{PW_VERSION_METADATA_EVENTS, onMetadata};
  const std::string& name = valueOf(properties, PW_KEY_METADATA_NAME);
  const bool isDefaults = name == loopback::kDefaultMetadataName;
  if (!isDefaults && name != "settings") return;
  if (!owner_.metadataAsked()) return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA);
  // Answered after the object, whether that could be bound or not.
  metadataSyncs_.insert(pw_core_sync(core_, PW_ID_CORE, 0));
  if (binding == nullptr) return;
  auto* metadata = as<pw_metadata>(binding->proxy);
  if (isDefaults) defaults_ = metadata;
  update([&](AudioGraph& graph) {
    binding->metadata = isDefaults ? &graph.defaults : &graph.settings;
    binding->metadata->clear();
    if (isDefaults) graph.hasDefaults = true;
  });
  pw_metadata_add_listener(metadata, &binding->listener, &kEvents, binding);
}

int PipeWireConnection::Remote::onMetadata(void* data, std::uint32_t subject, const char* key,
                                           const char*, const char* value) {
  auto* binding = static_cast<Binding*>(data);
  if (subject != PW_ID_CORE) return 0;
  binding->remote->update([&](AudioGraph&) {
    if (key == nullptr) {
      binding->metadata->clear();
    } else if (value == nullptr) {
      binding->metadata->erase(key);
    } else {
      (*binding->metadata)[key] = value;
    }
  });
  return 0;
}

bool PipeWireConnection::Remote::setDefaultSink(const std::string& nodeName) {
  if (defaults_ == nullptr) return false;
  pw_metadata_set_property(defaults_, PW_ID_CORE, loopback::kConfiguredDefaultSinkKey,
                           loopback::kDefaultValueType, defaultWithName(nodeName).c_str());
  return true;
}

void PipeWireConnection::Remote::setOwnProperty(const std::string& key, const std::string& value) {
  if (core_ == nullptr) return;
  const spa_dict_item item{key.c_str(), value.c_str()};
  const spa_dict dictionary{0, 1, &item};
  pw_client_update_properties(pw_core_get_client(core_), &dictionary);
}

PipeWireConnection::PipeWireConnection(Callbacks callbacks)
    : deadline_(std::chrono::steady_clock::now() + kStartLimit),
      onLost_(std::move(callbacks.onLost)),
      onCaptureDeviceAdded_(std::move(callbacks.onCaptureDeviceAdded)),
      onCaptureDeviceRemoved_(std::move(callbacks.onCaptureDeviceRemoved)),
      remote_(std::make_unique<Remote>(*this)),
      loop_(std::make_unique<PipeWireLoop>("audio-control")) {
  loop_->post([this](pw_loop* loop) { remote_->connect(loop); });
}

PipeWireConnection::~PipeWireConnection() {
  {
    std::unique_lock lock(mutex_);
    isClosing_ = true;
    changed_.wait_for(lock, kAnswerLimit,
                      [this] { return unansweredMetadata_ == 0 || !lost_.empty(); });
  }
  loop_->post([this](pw_loop*) { remote_.reset(); });
  loop_.reset();
}

void PipeWireConnection::setCaptureDeviceCallbacks(
    std::function<void(const std::string&)> onAdded,
    std::function<void(const std::string&)> onRemoved) {
  const std::lock_guard lock(callbackMutex_);
  onCaptureDeviceAdded_ = std::move(onAdded);
  onCaptureDeviceRemoved_ = std::move(onRemoved);
}

bool PipeWireConnection::waitUntilReady(std::unique_lock<std::mutex>& lock) const {
  changed_.wait_until(lock, deadline_, [this] { return ready_ || !lost_.empty(); });
  return ready_ && lost_.empty();
}

bool PipeWireConnection::withGraph(const std::function<void(const AudioGraph&)>& read) const {
  std::unique_lock lock(mutex_);
  if (!waitUntilReady(lock)) return false;
  read(graph_);
  return true;
}

std::string PipeWireConnection::lostMessage() const {
  const std::lock_guard lock(mutex_);
  return lost_;
}

bool PipeWireConnection::setConfiguredDefaultSink(const std::string& nodeName) {
  std::unique_lock lock(mutex_);
  if (!waitUntilReady(lock) || !graph_.hasDefaults) return false;
  lock.unlock();
  loop_->post([this, nodeName](pw_loop*) { remote_->setDefaultSink(nodeName); });
  return true;
}

bool PipeWireConnection::setOwnProperty(const std::string& key, const std::string& value) {
  std::unique_lock lock(mutex_);
  if (!waitUntilReady(lock)) return false;
  lock.unlock();
  loop_->post([this, key, value](pw_loop*) { remote_->setOwnProperty(key, value); });
  return true;
}

void PipeWireConnection::lose(const std::string& message) {
  {
    const std::lock_guard lock(mutex_);
    if (!lost_.empty()) return;
    lost_ = message;
    graph_ = AudioGraph{};
  }
  changed_.notify_all();
  if (onLost_) onLost_(message);
}

bool PipeWireConnection::metadataAsked() {
  const std::lock_guard lock(mutex_);
  if (!isClosing_) ++unansweredMetadata_;
  return !isClosing_;
}

void PipeWireConnection::metadataAnswered() {
  {
    const std::lock_guard lock(mutex_);
    --unansweredMetadata_;
  }
  changed_.notify_all();
}

void PipeWireConnection::publishReady() {
  {
    const std::lock_guard lock(mutex_);
    ready_ = true;
  }
  changed_.notify_all();
}

}  // namespace linux_host
