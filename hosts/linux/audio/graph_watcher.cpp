// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/graph_watcher.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "driver/default_value.h"
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

}  // namespace

struct GraphWatcher::Binding {
  Binding(GraphWatcher* owner, std::uint32_t globalId, void* bound)
      : watcher(owner), id(globalId), proxy(bound) {}

  GraphWatcher* watcher;
  std::uint32_t id;
  loopback::BoundProxy proxy;
  std::map<std::string, std::string>* metadata =
      nullptr;  // the copy of a metadata object; null for others
};

GraphWatcher::GraphWatcher(Owner& owner, const loopback::VouchedProgram& driver)
    : owner_(owner), driver_(driver) {}

bool GraphWatcher::connect(pw_context* context) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = onDone;
    events.error = onError;
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, onGlobal,
                                                      onGlobalRemove};
  core_.reset(connectContext(context, pw_properties_new(PW_KEY_APP_NAME, "Record Audio",
                                                        PW_KEY_APP_ID, kApplicationId, nullptr)));
  if (!core_) return false;
  core_.listen(&kCoreEvents, this);
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  registry_.listen(&kRegistryEvents, this);
  globalsSequence_ = pw_core_sync(core_.get(), PW_ID_CORE, 0);
  return true;
}

GraphWatcher::~GraphWatcher() = default;

void GraphWatcher::onDone(void* data, std::uint32_t id, int sequence) {
  auto* self = static_cast<GraphWatcher*>(data);
  if (id != PW_ID_CORE) return;
  if (self->metadataSyncs_.erase(sequence) > 0) self->owner_.metadataAnswered();
  if (const auto sync = self->nodeSyncs_.find(sequence); sync != self->nodeSyncs_.end()) {
    const std::uint32_t nodeId = sync->second;
    self->nodeSyncs_.erase(sync);
    self->markKnown(nodeId);
  }
  if (sequence == self->globalsSequence_) {
    self->detailsSequence_ = pw_core_sync(self->core_.get(), PW_ID_CORE, 0);
  } else if (sequence == self->detailsSequence_) {
    const std::uint32_t own =
        pw_proxy_get_bound_id(reinterpret_cast<pw_proxy*>(pw_core_get_client(self->core_.get())));
    self->owner_.update([own](AudioGraph& graph) { graph.loopbackState.ownClientIs(own); });
    self->owner_.pictureIsComplete();
  }
}

void GraphWatcher::onError(void* data, std::uint32_t id, int, int result, const char*) {
  // Errors of other objects only mean that an object vanished during a request.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  auto* self = static_cast<GraphWatcher*>(data);
  if (!std::exchange(self->hasBroken_, true)) self->owner_.connectionBroke();
}

void GraphWatcher::onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type,
                            std::uint32_t, const spa_dict* dictionary) {
  auto* self = static_cast<GraphWatcher*>(data);
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

void GraphWatcher::onGlobalRemove(void* data, std::uint32_t id) {
  auto* self = static_cast<GraphWatcher*>(data);
  const auto found = self->bindings_.find(id);
  if (found == self->bindings_.end()) return;
  Binding& binding = *found->second;
  std::string removedDevice;
  self->owner_.update([&](AudioGraph& graph) {
    const auto node = graph.nodes.find(id);
    if (node != graph.nodes.end()) {
      if (node->second.known && node->second.isCapturable()) removedDevice = node->second.name;
      graph.nodes.erase(node);
    }
    graph.devices.erase(id);
    graph.deviceRoutes.erase(id);
    graph.loopbackState.driverGone(id);
    if (binding.metadata != nullptr) binding.metadata->clear();
    if (binding.proxy.as<pw_metadata>() == self->defaults_) graph.hasDefaults = false;
  });
  if (binding.proxy.as<pw_metadata>() == self->defaults_) self->defaults_ = nullptr;
  self->bindings_.erase(found);

  if (!removedDevice.empty()) self->owner_.captureDeviceWent(removedDevice);
}

GraphWatcher::Binding* GraphWatcher::bind(std::uint32_t id, const char* type,
                                          std::uint32_t version) {
  void* proxy = pw_registry_bind(registry_.as<pw_registry>(), id, type, version, 0);
  if (proxy == nullptr) return nullptr;
  return (bindings_[id] = std::make_unique<Binding>(this, id, proxy)).get();
}

void GraphWatcher::bindNode(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_node_events kEvents{PW_VERSION_NODE_EVENTS, onNodeInfo, onNodeParam};
  if (!startsWith(valueOf(properties, PW_KEY_MEDIA_CLASS), "Audio/")) return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE);
  if (binding == nullptr) return;
  owner_.update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[id];
    node.id = id;
    node.name = valueOf(properties, PW_KEY_NODE_NAME);
    node.mediaClass = valueOf(properties, PW_KEY_MEDIA_CLASS);
    node.properties = properties;
  });
  binding->proxy.listen(&kEvents, binding);
  auto* node = binding->proxy.as<pw_node>();
  std::uint32_t params[] = {SPA_PARAM_Props, SPA_PARAM_EnumFormat, SPA_PARAM_Format};
  pw_node_subscribe_params(node, params, std::size(params));
  nodeSyncs_[pw_core_sync(core_.get(), PW_ID_CORE, 0)] = id;
}

void GraphWatcher::markKnown(std::uint32_t nodeId) {
  std::string addedDevice;
  owner_.update([&](AudioGraph& graph) {
    const auto node = graph.nodes.find(nodeId);
    if (node == graph.nodes.end()) return;
    node->second.known = true;
    if (node->second.isCapturable()) addedDevice = node->second.name;
  });
  if (!addedDevice.empty()) owner_.captureDeviceCame(addedDevice);
}

void GraphWatcher::onNodeInfo(void* data, const pw_node_info* info) {
  auto* binding = static_cast<Binding*>(data);
  binding->watcher->owner_.update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[binding->id];
    if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0) {
      node.properties = readDictionary(info->props);
    }
    if ((info->change_mask & PW_NODE_CHANGE_MASK_PARAMS) == 0) return;
    for (std::uint32_t i = 0; i < info->n_params; ++i) {
      const spa_param_info& param = info->params[i];
      // A suspended node no longer has a format, and no event says so.
      const bool isReadable = (param.flags & SPA_PARAM_INFO_READ) != 0;
      if (param.id == SPA_PARAM_Format && !isReadable) node.format.reset();
    }
  });
}

void GraphWatcher::onNodeParam(void* data, int, std::uint32_t paramId, std::uint32_t index,
                               std::uint32_t, const spa_pod* param) {
  auto* binding = static_cast<Binding*>(data);
  if (param == nullptr) return;
  binding->watcher->owner_.update([&](AudioGraph& graph) {
    AudioNode& node = graph.nodes[binding->id];
    switch (paramId) {
      case SPA_PARAM_Props:
        readLevels(param, &node.levels);
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

void GraphWatcher::bindDevice(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_device_events kEvents{PW_VERSION_DEVICE_EVENTS, onDeviceInfo, onDeviceParam};
  if (valueOf(properties, PW_KEY_MEDIA_CLASS) != "Audio/Device") return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE);
  if (binding == nullptr) return;
  binding->proxy.listen(&kEvents, binding);
  auto* device = binding->proxy.as<pw_device>();
  std::uint32_t params[] = {SPA_PARAM_Route};
  pw_device_subscribe_params(device, params, std::size(params));
}

void GraphWatcher::onDeviceInfo(void* data, const pw_device_info* info) {
  auto* binding = static_cast<Binding*>(data);
  if ((info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS) == 0) return;
  binding->watcher->owner_.update(
      [&](AudioGraph& graph) { graph.devices[binding->id] = readDictionary(info->props); });
}

void GraphWatcher::onDeviceParam(void* data, int, std::uint32_t paramId, std::uint32_t index,
                                 std::uint32_t, const spa_pod* param) {
  auto* binding = static_cast<Binding*>(data);
  if (paramId != SPA_PARAM_Route || param == nullptr) return;
  binding->watcher->owner_.update([&](AudioGraph& graph) {
    std::vector<Route>& routes = graph.deviceRoutes[binding->id];
    if (index == 0) routes.clear();
    if (auto route = readRoute(param)) routes.push_back(std::move(*route));
  });
}

void GraphWatcher::bindClient(std::uint32_t id) {
  static constexpr pw_client_events kEvents{PW_VERSION_CLIENT_EVENTS, onClientInfo, nullptr};
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT);
  if (binding == nullptr) return;
  binding->proxy.listen(&kEvents, binding);
}

void GraphWatcher::onClientInfo(void* data, const pw_client_info* info) {
  auto* binding = static_cast<Binding*>(data);
  if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
  const char* version = spa_dict_lookup(info->props, loopback::kLoopbackDriverKey);
  const char* granted = spa_dict_lookup(info->props, loopback::kLoopbackGrantedKey);
  // Any client can claim to be the driver.
  const bool isDriver = version != nullptr && binding->watcher->driver_.isRunBy(*info->props);
  binding->watcher->owner_.update([&](AudioGraph& graph) {
    if (isDriver) {
      graph.loopbackState.driverIs(
          binding->id, version,
          granted != nullptr ? std::optional<std::string>(granted) : std::nullopt);
    } else {
      graph.loopbackState.driverGone(binding->id);
    }
  });
}

void GraphWatcher::bindMetadata(std::uint32_t id, const NodeProperties& properties) {
  static constexpr pw_metadata_events kEvents{PW_VERSION_METADATA_EVENTS, onMetadata};
  const std::string& name = valueOf(properties, PW_KEY_METADATA_NAME);
  const bool isDefaults = name == loopback::kDefaultMetadataName;
  if (!isDefaults && name != "settings") return;
  if (!owner_.metadataAsked()) return;
  Binding* binding = bind(id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA);
  // Answered after the object, whether it could be bound or not.
  metadataSyncs_.insert(pw_core_sync(core_.get(), PW_ID_CORE, 0));
  if (binding == nullptr) return;
  auto* metadata = binding->proxy.as<pw_metadata>();
  if (isDefaults) defaults_ = metadata;
  owner_.update([&](AudioGraph& graph) {
    binding->metadata = isDefaults ? &graph.defaults : &graph.settings;
    binding->metadata->clear();
    if (isDefaults) graph.hasDefaults = true;
  });
  binding->proxy.listen(&kEvents, binding);
}

int GraphWatcher::onMetadata(void* data, std::uint32_t subject, const char* key, const char*,
                             const char* value) {
  auto* binding = static_cast<Binding*>(data);
  if (subject != PW_ID_CORE) return 0;
  binding->watcher->owner_.update([&](AudioGraph& graph) {
    if (key == nullptr) {
      binding->metadata->clear();
    } else if (value == nullptr) {
      binding->metadata->erase(key);
    } else {
      (*binding->metadata)[key] = value;
      const bool isSink = std::strcmp(key, loopback::kDefaultSinkKey) == 0;
      if (isSink && binding->metadata == &graph.defaults) graph.defaultSinkIs(value);
    }
  });
  return 0;
}

void GraphWatcher::setDefaultSink(const std::string& nodeName) {
  if (defaults_ == nullptr) return;
  pw_metadata_set_property(defaults_, PW_ID_CORE, loopback::kConfiguredDefaultSinkKey,
                           loopback::kDefaultValueType,
                           loopback::defaultWithName(nodeName).c_str());
}

void GraphWatcher::setOwnProperties(const NodeProperties& properties) {
  std::vector<spa_dict_item> items;
  items.reserve(properties.size());
  for (const auto& [key, value] : properties) items.push_back({key.c_str(), value.c_str()});
  const spa_dict dictionary{0, static_cast<std::uint32_t>(items.size()), items.data()};
  pw_client_update_properties(pw_core_get_client(core_.get()), &dictionary);
}

}  // namespace linux_host
