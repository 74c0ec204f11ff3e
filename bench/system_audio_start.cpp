// SPDX-License-Identifier: MIT
#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <map>
#include <string>

#include "bench/registry_watch.h"
#include "bench/timed_program.h"
#include "driver/loopback_protocol.h"

// system-audio-start SPEAKERS COMMAND [ARGUMENT...]
//
// Starts a recording of the computer's sound, prints as JSON when its steps were done, in
// milliseconds from before the exec, and ends it. Every step is seen in the sound server, from
// outside. Ends when the loopback device is hidden again, so that the next start finds the same.

namespace {

constexpr int kFailed = 1;
constexpr unsigned kLimit_s = 30;
constexpr char kRecorderNode[] = "record-audio";

enum Step : std::uint8_t {
  kAsked,     // the program has asked for the loopback device
  kShown,     // the driver has said that the device is there and stays
  kMoved,     // the device is the configured default output
  kStreams,   // the streams of the play-through and the recorder are in the graph
  kHeard,     // the play-through's stream is linked to the speakers
  kRecorded,  // the recorder's stream is linked to the device: the first sample
  kStepCount
};
constexpr const char* kStepNames[kStepCount] = {"asked",   "shown", "moved",
                                                "streams", "heard", "recorded"};
// Two of the play-through and the recorder's.
constexpr int kStreamCount = 3;

class Watcher {
 public:
  explicit Watcher(std::string speakers) : speakers_(std::move(speakers)) {}

  [[nodiscard]] bool connect() {
    return registry_.connect([this](std::uint32_t id, const std::string& type,
                                    const spa_dict* properties) { add(id, type, properties); },
                             [this](std::uint32_t id) { remove(id); });
  }

  void watch(const TimedProgram& program) {
    program_ = &program;
    registry_.run();
  }

  void waitUntilHidden() {
    program_ = nullptr;
    while (std::any_of(nodes_.begin(), nodes_.end(), isLoopback)) registry_.run();
  }

  void print() const {
    for (int step = 0; step < kStepCount; ++step) {
      std::printf("%s\"%s\": %.2f", step == 0 ? "{" : ", ", kStepNames[step], done_ms_[step]);
    }
    std::printf("}\n");
  }

 private:
  static bool isLoopback(const std::pair<const std::uint32_t, std::string>& node) {
    return node.second == loopback::kLoopbackDeviceUID;
  }

  void reach(Step step) {
    if (program_ == nullptr || done_ms_[step] > 0) return;
    done_ms_[step] = program_->elapsed_ms();
    if (std::all_of(std::begin(done_ms_), std::end(done_ms_), [](double ms) { return ms > 0; })) {
      registry_.quit();
    }
  }

  void add(std::uint32_t id, const std::string& type, const spa_dict* properties) {
    static constexpr pw_client_events kClientEvents{PW_VERSION_CLIENT_EVENTS, onClientInfo,
                                                    nullptr};
    static constexpr pw_link_events kLinkEvents{PW_VERSION_LINK_EVENTS, onLinkInfo};
    static constexpr pw_metadata_events kMetadataEvents{PW_VERSION_METADATA_EVENTS, onMetadata};
    if (type == PW_TYPE_INTERFACE_Node) {
      addNode(id, properties);
    } else if (type == PW_TYPE_INTERFACE_Client) {
      auto* client = registry_.bind<pw_client>(id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT);
      pw_client_add_listener(client, &listeners_.emplace_back(), &kClientEvents, this);
    } else if (type == PW_TYPE_INTERFACE_Link) {
      auto* link = registry_.bind<pw_link>(id, PW_TYPE_INTERFACE_Link, PW_VERSION_LINK);
      pw_link_add_listener(link, &listeners_.emplace_back(), &kLinkEvents, this);
    } else if (type == PW_TYPE_INTERFACE_Metadata) {
      const char* name = spa_dict_lookup(properties, PW_KEY_METADATA_NAME);
      if (name == nullptr || std::string(name) != loopback::kDefaultMetadataName) return;
      auto* metadata =
          registry_.bind<pw_metadata>(id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA);
      pw_metadata_add_listener(metadata, &listeners_.emplace_back(), &kMetadataEvents, this);
    }
  }

  void addNode(std::uint32_t id, const spa_dict* properties) {
    const char* name = spa_dict_lookup(properties, PW_KEY_NODE_NAME);
    nodes_[id] = name == nullptr ? "" : name;
    const char* mediaClass = spa_dict_lookup(properties, PW_KEY_MEDIA_CLASS);
    const bool isStream = mediaClass != nullptr && std::strncmp(mediaClass, "Stream/", 7) == 0;
    if (program_ != nullptr && isStream && ++streams_ == kStreamCount) reach(kStreams);
  }

  void remove(std::uint32_t id) {
    const bool wasLoopback = nodes_[id] == loopback::kLoopbackDeviceUID;
    nodes_.erase(id);
    if (wasLoopback && program_ == nullptr) registry_.quit();
  }

  static void onClientInfo(void* data, const pw_client_info* info) {
    auto* self = static_cast<Watcher*>(data);
    const char* request = spa_dict_lookup(info->props, loopback::kLoopbackRequestKey);
    if (request != nullptr && std::string(request) == loopback::kLoopbackRequestShowText) {
      self->reach(kAsked);
    }
    const char* granted = spa_dict_lookup(info->props, loopback::kLoopbackGrantedKey);
    if (granted != nullptr && std::string(granted) != loopback::kLoopbackNoneGranted) {
      self->reach(kShown);
    }
  }

  static int onMetadata(void* data, std::uint32_t, const char* key, const char*,
                        const char* value) {
    if (key == nullptr || value == nullptr) return 0;
    if (std::string(key) == loopback::kConfiguredDefaultSinkKey &&
        std::strstr(value, loopback::kLoopbackDeviceUID) != nullptr) {
      static_cast<Watcher*>(data)->reach(kMoved);
    }
    return 0;
  }

  static void onLinkInfo(void* data, const pw_link_info* info) {
    auto* self = static_cast<Watcher*>(data);
    if (info->state != PW_LINK_STATE_ACTIVE) return;
    if (self->nodes_[info->input_node_id] == self->speakers_) self->reach(kHeard);
    if (self->nodes_[info->output_node_id] == loopback::kLoopbackDeviceUID &&
        self->nodes_[info->input_node_id] == kRecorderNode) {
      self->reach(kRecorded);
    }
  }

  const std::string speakers_;
  RegistryWatch registry_;
  const TimedProgram* program_ = nullptr;
  std::map<std::uint32_t, std::string> nodes_;  // names by id
  std::list<spa_hook> listeners_;
  int streams_ = 0;
  double done_ms_[kStepCount] = {};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: system-audio-start SPEAKERS COMMAND [ARGUMENT...]\n");
    return 2;
  }
  pw_init(nullptr, nullptr);
  Watcher watcher(argv[1]);
  if (!watcher.connect()) {
    std::fprintf(stderr, "system-audio-start: there is no PipeWire\n");
    return kFailed;
  }
  TimedProgram program(argv + 2, kLimit_s);
  if (!program.isStarted()) return kFailed;
  watcher.watch(program);
  watcher.print();
  program.end();
  watcher.waitUntilHidden();
  return 0;
}
