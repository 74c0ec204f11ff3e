// SPDX-License-Identifier: MIT
#include "tests/support/pipewire_control.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/node/command.h>
#include <spa/param/props.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <list>
#include <stdexcept>
#include <utility>

#include "tests/support/private_pipewire.h"

namespace test_support {
namespace {

// Longer than a session manager takes to answer a change.
constexpr std::chrono::milliseconds kQuiet{500};

struct Global {
  std::string type;
  PipeWireControl::Properties properties;
};

class LoopLock {
 public:
  explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
  ~LoopLock() { pw_thread_loop_unlock(loop_); }
  LoopLock(const LoopLock&) = delete;
  LoopLock& operator=(const LoopLock&) = delete;

 private:
  pw_thread_loop* loop_;
};

pw_properties* toProperties(const PipeWireControl::Properties& map) {
  pw_properties* properties = pw_properties_new(nullptr, nullptr);
  for (const auto& [key, value] : map) pw_properties_set(properties, key.c_str(), value.c_str());
  return properties;
}

}  // namespace

// Everything in here is used only with the loop locked.
struct PipeWireControl::Impl {
  pw_thread_loop* loop = nullptr;
  pw_context* context = nullptr;
  pw_core* core = nullptr;
  pw_registry* registry = nullptr;
  pw_metadata* defaults = nullptr;
  std::uint32_t defaultsGlobal = SPA_ID_INVALID;
  spa_hook coreListener{};
  spa_hook registryListener{};
  spa_hook defaultsListener{};
  std::map<std::uint32_t, Global> globals;
  std::map<std::string, std::string> metadata;
  std::optional<std::map<std::string, std::string>> freshMetadata;  // of a pending bind
  int bindSequence = -1;
  std::chrono::steady_clock::time_point lastNews;
  std::map<std::string, pw_proxy*> created;
  std::vector<pw_proxy*> links;
  int lastDone = -1;
  bool dead = false;
  bool readsAgain = true;

  // Also works if the daemon was not there, or never answered while the loop was running.
  ~Impl() {
    pw_thread_loop_stop(loop);
    if (core != nullptr) disconnect();
    pw_context_destroy(context);
    pw_thread_loop_destroy(loop);
    pw_deinit();
  }

  void disconnect() {
    forgetDefaults();
    for (auto& [name, proxy] : created) pw_proxy_destroy(proxy);
    for (pw_proxy* proxy : links) pw_proxy_destroy(proxy);
    spa_hook_remove(&registryListener);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    spa_hook_remove(&coreListener);
    pw_core_disconnect(core);
  }

  static void onDone(void* data, std::uint32_t, int sequence) {
    auto* self = static_cast<Impl*>(data);
    if (sequence != self->bindSequence) {
      self->lastDone = sequence;
    } else if (self->freshMetadata) {
      self->metadata = *std::exchange(self->freshMetadata, std::nullopt);
    }
  }
  static void onError(void* data, std::uint32_t id, int, int result, const char*) {
    if (id == PW_ID_CORE && result == -EPIPE) static_cast<Impl*>(data)->dead = true;
  }
  static int onMetadata(void* data, std::uint32_t subject, const char* key, const char*,
                        const char* value) {
    auto* self = static_cast<Impl*>(data);
    if (subject != 0) return 0;
    self->lastNews = std::chrono::steady_clock::now();
    auto& keys = self->freshMetadata ? *self->freshMetadata : self->metadata;
    if (key == nullptr) {
      keys.clear();
    } else if (value == nullptr) {
      keys.erase(key);
    } else {
      keys[key] = value;
    }
    return 0;
  }
  static void onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                       const spa_dict* dict) {
    auto* self = static_cast<Impl*>(data);
    Global global{type, {}};
    if (dict != nullptr) {
      for (std::uint32_t i = 0; i < dict->n_items; ++i) {
        global.properties[dict->items[i].key] = dict->items[i].value;
      }
    }
    if (global.type == PW_TYPE_INTERFACE_Metadata &&
        global.properties[PW_KEY_METADATA_NAME] == "default") {
      self->forgetDefaults();
      self->defaultsGlobal = id;
      self->bindDefaults();
    }
    global.properties["object.id"] = std::to_string(id);
    self->globals[id] = std::move(global);
  }
  static void onGlobalRemove(void* data, std::uint32_t id) {
    auto* self = static_cast<Impl*>(data);
    self->globals.erase(id);
    if (id == self->defaultsGlobal) self->forgetDefaults();
  }
  // Everything received until the daemon answers replaces the old copy. Before that the object must
  // not be destroyed: the daemon uses its memory once more.
  void bindDefaults() {
    if (freshMetadata) return;
    static constexpr pw_metadata_events kEvents{PW_VERSION_METADATA_EVENTS, onMetadata};
    unbindDefaults();
    defaults = static_cast<pw_metadata*>(pw_registry_bind(
        registry, defaultsGlobal, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    pw_metadata_add_listener(defaults, &defaultsListener, &kEvents, this);
    freshMetadata.emplace();
    bindSequence = pw_core_sync(core, PW_ID_CORE, 0);
    lastNews = std::chrono::steady_clock::now();
  }
  void set(const std::string& key, const std::string& jsonValue) {
    pw_metadata_set_property(defaults, 0, key.c_str(), "Spa:String:JSON",
                             jsonValue.empty() ? nullptr : jsonValue.c_str());
    lastNews = std::chrono::steady_clock::now();
  }
  void unbindDefaults() {
    if (defaults == nullptr) return;
    spa_hook_remove(&defaultsListener);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(std::exchange(defaults, nullptr)));
  }
  // They go with the session manager that owned them.
  void forgetDefaults() {
    unbindDefaults();
    defaultsGlobal = SPA_ID_INVALID;
    freshMetadata.reset();
    metadata.clear();
  }

  std::vector<std::uint32_t> portsOf(std::uint32_t node, const std::string& direction) {
    std::vector<std::pair<int, std::uint32_t>> ports;  // by their index on the node
    for (auto& [id, global] : globals) {
      if (global.type != PW_TYPE_INTERFACE_Port ||
          global.properties[PW_KEY_NODE_ID] != std::to_string(node) ||
          global.properties[PW_KEY_PORT_DIRECTION] != direction ||
          global.properties[PW_KEY_PORT_MONITOR] == "true") {
        continue;
      }
      ports.emplace_back(std::stoi(global.properties[PW_KEY_PORT_ID]), id);
    }
    std::sort(ports.begin(), ports.end());
    std::vector<std::uint32_t> ids;
    for (const auto& port : ports) ids.push_back(port.second);
    return ids;
  }
  std::optional<std::uint32_t> findNode(const std::string& name) {
    for (auto& [id, global] : globals) {
      if (global.type == PW_TYPE_INTERFACE_Node && global.properties[PW_KEY_NODE_NAME] == name) {
        return id;
      }
    }
    return std::nullopt;
  }
  // The condition is checked with the loop locked.
  void waitFor(const std::string& what, const std::function<bool()>& condition) {
    const bool held = waitUntil(
        [&] {
          const LoopLock lock(loop);
          return condition();
        },
        std::chrono::seconds(10));
    if (!held) throw std::runtime_error("PipeWire control: waited in vain for " + what);
  }
  // `addProperties` adds to the Props object, which is then set on the node.
  void setProps(std::uint32_t node, const std::function<void(spa_pod_builder*)>& addProperties) {
    std::array<std::uint8_t, 1024> buffer{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, buffer.data(), buffer.size());
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
    addProperties(&builder);
    auto* props = static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
    withNode(node, [&](pw_node* proxy) { pw_node_set_param(proxy, SPA_PARAM_Props, 0, props); });
  }

  void withNode(std::uint32_t node, const std::function<void(pw_node*)>& use) const {
    const LoopLock lock(loop);
    auto* proxy = static_cast<pw_node*>(
        pw_registry_bind(registry, node, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
    if (proxy == nullptr) throw std::runtime_error("PipeWire control: cannot bind a node");
    use(proxy);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(proxy));
  }
};

PipeWireControl::PipeWireControl() : impl_(std::make_unique<Impl>()) {
  static constexpr pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = Impl::onDone;
    events.error = Impl::onError;
    return events;
  }();
  static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, Impl::onGlobal,
                                                      Impl::onGlobalRemove};
  pw_init(nullptr, nullptr);
  impl_->loop = pw_thread_loop_new("test-control", nullptr);
  impl_->context = pw_context_new(pw_thread_loop_get_loop(impl_->loop), nullptr, 0);
  impl_->core = pw_context_connect(impl_->context, nullptr, 0);
  if (impl_->core == nullptr) throw std::runtime_error("PipeWire control: cannot connect");
  pw_core_add_listener(impl_->core, &impl_->coreListener, &kCoreEvents, impl_.get());
  impl_->registry = pw_core_get_registry(impl_->core, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(impl_->registry, &impl_->registryListener, &kRegistryEvents,
                           impl_.get());
  pw_thread_loop_start(impl_->loop);
  synchronize();
}

PipeWireControl::~PipeWireControl() = default;

void PipeWireControl::synchronize() {
  int sequence = 0;
  {
    const LoopLock lock(impl_->loop);
    sequence = pw_core_sync(impl_->core, PW_ID_CORE, 0);
  }
  impl_->waitFor("the daemon's answer", [&] { return impl_->lastDone == sequence || impl_->dead; });
}

void PipeWireControl::createNode(const std::string& nodeName, const Properties& properties) {
  Properties all{{PW_KEY_FACTORY_NAME, "support.null-audio-sink"},
                 {PW_KEY_NODE_NAME, nodeName},
                 {PW_KEY_NODE_DESCRIPTION, nodeName},
                 {"audio.position", "FL,FR"}};
  for (const auto& [key, value] : properties) all[key] = value;
  {
    const LoopLock lock(impl_->loop);
    pw_properties* props = toProperties(all);
    impl_->created[nodeName] = static_cast<pw_proxy*>(pw_core_create_object(
        impl_->core, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &props->dict, 0));
    pw_properties_free(props);
  }
  impl_->waitFor("the ports of " + nodeName, [&] {
    const auto id = impl_->findNode(nodeName);
    return id && !impl_->portsOf(*id, "in").empty();
  });
}

void PipeWireControl::createMicrophone(const std::string& nodeName, const Properties& extra) {
  Properties properties{{PW_KEY_MEDIA_CLASS, "Audio/Source/Virtual"}};
  for (const auto& [key, value] : extra) properties[key] = value;
  createNode(nodeName, properties);
}

void PipeWireControl::createSink(const std::string& nodeName, const Properties& extra) {
  Properties properties{{PW_KEY_MEDIA_CLASS, "Audio/Sink"}};
  for (const auto& [key, value] : extra) properties[key] = value;
  createNode(nodeName, properties);
}

void PipeWireControl::destroyNode(const std::string& nodeName) {
  {
    const LoopLock lock(impl_->loop);
    const auto found = impl_->created.find(nodeName);
    if (found == impl_->created.end()) throw std::runtime_error("not made here: " + nodeName);
    pw_proxy_destroy(found->second);
    impl_->created.erase(found);
  }
  impl_->waitFor("the end of " + nodeName, [&] { return !impl_->findNode(nodeName); });
}

void PipeWireControl::setVolume(const std::string& nodeName, float volume) {
  const std::array<float, 2> volumes{volume, volume};
  impl_->setProps(nodeId(nodeName), [&](spa_pod_builder* builder) {
    spa_pod_builder_prop(builder, SPA_PROP_channelVolumes, 0);
    spa_pod_builder_array(builder, sizeof(float), SPA_TYPE_Float, volumes.size(), volumes.data());
  });
  synchronize();
}

void PipeWireControl::setMute(const std::string& nodeName, bool mute) {
  impl_->setProps(nodeId(nodeName), [&](spa_pod_builder* builder) {
    spa_pod_builder_prop(builder, SPA_PROP_mute, 0);
    spa_pod_builder_bool(builder, mute);
  });
  synchronize();
}

void PipeWireControl::suspend(const std::string& nodeName) {
  const spa_command command = SPA_NODE_COMMAND_INIT(SPA_NODE_COMMAND_Suspend);
  impl_->withNode(nodeId(nodeName), [&](pw_node* proxy) { pw_node_send_command(proxy, &command); });
  synchronize();
}

std::optional<std::string> PipeWireControl::metadata(const std::string& key) {
  const LoopLock lock(impl_->loop);
  // The daemon does not report changes made while another client binds the object.
  const bool isQuiet =
      impl_->readsAgain && std::chrono::steady_clock::now() - impl_->lastNews > kQuiet;
  if (isQuiet && impl_->defaults != nullptr) impl_->bindDefaults();
  const auto found = impl_->metadata.find(key);
  if (found == impl_->metadata.end()) return std::nullopt;
  return found->second;
}

void PipeWireControl::relyOnChanges() {
  const LoopLock lock(impl_->loop);
  impl_->readsAgain = false;
}

void PipeWireControl::setMetadata(const std::string& key, const std::string& jsonValue) {
  impl_->waitFor("the default metadata", [&] { return impl_->defaults != nullptr; });
  {
    const LoopLock lock(impl_->loop);
    impl_->set(key, jsonValue);
  }
  synchronize();
}

void PipeWireControl::setMetadataUnheard(const std::string& key, const std::string& jsonValue) {
  impl_->waitFor("the default metadata", [&] { return impl_->defaults != nullptr; });
  {
    const LoopLock lock(impl_->loop);
    impl_->set(key, jsonValue);
    impl_->bindDefaults();
  }
  synchronize();
}

void PipeWireControl::setDaemonSetting(const std::string& key, const std::string& value) {
  pw_metadata* settings = nullptr;
  {
    const LoopLock lock(impl_->loop);
    for (auto& [id, global] : impl_->globals) {
      if (global.type == PW_TYPE_INTERFACE_Metadata &&
          global.properties[PW_KEY_METADATA_NAME] == "settings") {
        settings = static_cast<pw_metadata*>(pw_registry_bind(
            impl_->registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
      }
    }
    if (settings == nullptr) throw std::runtime_error("the daemon has no settings");
    pw_metadata_set_property(settings, 0, key.c_str(), "", value.c_str());
  }
  synchronize();
  const LoopLock lock(impl_->loop);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(settings));
}

void PipeWireControl::setDefault(const std::string& kind, const std::string& nodeName) {
  const std::string value = R"({"name":")" + nodeName + R"("})";
  setMetadata("default.configured.audio." + kind, value);
  const bool isUsed = waitUntil(
      [&] {
        const auto used = metadata("default.audio." + kind);
        return used && used->find('"' + nodeName + '"') != std::string::npos;
      },
      std::chrono::seconds(10));
  if (!isUsed) throw std::runtime_error("PipeWire control: waited in vain for the default " + kind);
}

void PipeWireControl::setDefaultSource(const std::string& nodeName) {
  setDefault("source", nodeName);
}

void PipeWireControl::setDefaultSink(const std::string& nodeName) {
  setDefault("sink", nodeName);
}

void PipeWireControl::link(const std::string& outputNode, const std::string& inputNode) {
  std::vector<std::uint32_t> outputs;
  std::vector<std::uint32_t> inputs;
  impl_->waitFor("the ports of " + outputNode + " and " + inputNode, [&] {
    const auto from = impl_->findNode(outputNode);
    const auto to = impl_->findNode(inputNode);
    if (!from || !to) return false;
    outputs = impl_->portsOf(*from, "out");
    inputs = impl_->portsOf(*to, "in");
    return !outputs.empty() && !inputs.empty();
  });
  {
    const LoopLock lock(impl_->loop);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      pw_properties* props =
          toProperties({{PW_KEY_LINK_OUTPUT_PORT, std::to_string(outputs[i % outputs.size()])},
                        {PW_KEY_LINK_INPUT_PORT, std::to_string(inputs[i])}});
      impl_->links.push_back(static_cast<pw_proxy*>(pw_core_create_object(
          impl_->core, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &props->dict, 0)));
      pw_properties_free(props);
    }
  }
  synchronize();
}

bool PipeWireControl::hasNode(const std::string& nodeName) {
  const LoopLock lock(impl_->loop);
  return impl_->findNode(nodeName).has_value();
}

std::uint32_t PipeWireControl::nodeId(const std::string& nodeName) {
  const LoopLock lock(impl_->loop);
  const auto id = impl_->findNode(nodeName);
  if (!id) throw std::runtime_error("no such node: " + nodeName);
  return *id;
}

std::vector<PipeWireControl::Properties> PipeWireControl::objects(const std::string& type) {
  const LoopLock lock(impl_->loop);
  std::vector<Properties> found;
  for (const auto& [id, global] : impl_->globals) {
    if (global.type == "PipeWire:Interface:" + type) found.push_back(global.properties);
  }
  return found;
}

void PipeWireControl::setClientProperty(const std::string& key, const std::string& value) {
  {
    const LoopLock lock(impl_->loop);
    const spa_dict_item item{key.c_str(), value.c_str()};
    const spa_dict properties = SPA_DICT_INIT(&item, 1);
    pw_client_update_properties(pw_core_get_client(impl_->core), &properties);
  }
  synchronize();
}

std::vector<PipeWireControl::Properties> PipeWireControl::clientProperties() {
  struct Watched {
    pw_client* client = nullptr;
    spa_hook listener{};
    Properties properties;
    static void onInfo(void* data, const pw_client_info* info) {
      for (std::uint32_t i = 0; i < info->props->n_items; ++i) {
        static_cast<Watched*>(data)->properties[info->props->items[i].key] =
            info->props->items[i].value;
      }
    }
  };
  static constexpr pw_client_events kEvents{PW_VERSION_CLIENT_EVENTS, Watched::onInfo, nullptr};
  std::list<Watched> watched;
  {
    const LoopLock lock(impl_->loop);
    for (const auto& [id, global] : impl_->globals) {
      if (global.type != PW_TYPE_INTERFACE_Client) continue;
      Watched& entry = watched.emplace_back();
      entry.client = static_cast<pw_client*>(
          pw_registry_bind(impl_->registry, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0));
      pw_client_add_listener(entry.client, &entry.listener, &kEvents, &entry);
    }
  }
  synchronize();
  const LoopLock lock(impl_->loop);
  std::vector<Properties> found;
  for (Watched& entry : watched) {
    spa_hook_remove(&entry.listener);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(entry.client));
    found.push_back(std::move(entry.properties));
  }
  return found;
}

}  // namespace test_support
