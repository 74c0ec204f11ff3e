// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdio>
#include <list>
#include <string>

#include "bench/registry_watch.h"
#include "bench/timed_program.h"

// capture-start SOURCE COMMAND [ARGUMENT...]
//
// Starts a program, prints the milliseconds until it captures from the source, and ends it. The
// time is from before its exec until the sound server reports an active link from the source's
// ports; from then on every cycle brings the program a buffer. It is measured in the same way for
// any program.

namespace {

constexpr int kFailed = 1;
constexpr unsigned kLimit_s = 20;

struct Watcher {
  std::string sourceName;
  RegistryWatch registry;
  const TimedProgram* program = nullptr;
  std::uint32_t source = SPA_ID_INVALID;
  std::list<spa_hook> linkListeners;
  double active_ms = 0;

  static void onLinkInfo(void* data, const pw_link_info* info) {
    auto* self = static_cast<Watcher*>(data);
    if (self->program == nullptr || info->output_node_id != self->source ||
        info->state != PW_LINK_STATE_ACTIVE) {
      return;
    }
    self->active_ms = self->program->elapsed_ms();
    self->registry.quit();
  }

  void add(std::uint32_t id, const std::string& type, const spa_dict* properties) {
    static constexpr pw_link_events kEvents{PW_VERSION_LINK_EVENTS, onLinkInfo};
    if (type == PW_TYPE_INTERFACE_Node) {
      const char* name = spa_dict_lookup(properties, PW_KEY_NODE_NAME);
      if (name != nullptr && sourceName == name) source = id;
    } else if (type == PW_TYPE_INTERFACE_Link) {
      auto* link = registry.bind<pw_link>(id, PW_TYPE_INTERFACE_Link, PW_VERSION_LINK);
      pw_link_add_listener(link, &linkListeners.emplace_back(), &kEvents, this);
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: capture-start SOURCE COMMAND [ARGUMENT...]\n");
    return 2;
  }
  pw_init(nullptr, nullptr);
  Watcher watcher;
  watcher.sourceName = argv[1];
  const bool isConnected = watcher.registry.connect(
      [&](std::uint32_t id, const std::string& type, const spa_dict* properties) {
        watcher.add(id, type, properties);
      });
  if (!isConnected || watcher.source == SPA_ID_INVALID) {
    std::fprintf(stderr, "capture-start: there is no PipeWire with a source %s\n", argv[1]);
    return kFailed;
  }
  const TimedProgram program(argv + 2, kLimit_s);
  if (!program.isStarted()) return kFailed;
  watcher.program = &program;
  watcher.registry.run();
  std::printf("%.2f\n", watcher.active_ms);
  return 0;
}
