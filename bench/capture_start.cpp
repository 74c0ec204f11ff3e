// SPDX-License-Identifier: MIT
#include <pipewire/pipewire.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

// capture-start SOURCE COMMAND [ARGUMENT...]
//
// Starts a program, prints the milliseconds until it captures from the source, and ends it. The
// time is from before its exec until the sound server reports an active link from the source's
// ports; from then on every cycle brings the program a buffer. It is measured in the same way for
// any program.

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFailed = 1;
constexpr unsigned kLimit_s = 20;

struct WatchedLink {
  pw_link* proxy = nullptr;
  spa_hook listener{};
};

struct Watcher {
  std::string sourceName;
  pw_main_loop* loop = nullptr;
  pw_core* core = nullptr;
  pw_registry* registry = nullptr;
  std::uint32_t source = SPA_ID_INVALID;
  int ready = -1;  // the daemon's answer to this sync ends the listing
  bool isListed = false;
  std::map<std::uint32_t, std::unique_ptr<WatchedLink>> links;
  Clock::time_point active{};

  static void onDone(void* data, std::uint32_t, int sequence) {
    auto* self = static_cast<Watcher*>(data);
    if (sequence != self->ready) return;
    self->isListed = true;
    pw_main_loop_quit(self->loop);
  }

  static void onLinkInfo(void* data, const pw_link_info* info) {
    auto* self = static_cast<Watcher*>(data);
    if (info->output_node_id != self->source || info->state != PW_LINK_STATE_ACTIVE) return;
    self->active = Clock::now();
    pw_main_loop_quit(self->loop);
  }

  static void onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                       const spa_dict* properties) {
    auto* self = static_cast<Watcher*>(data);
    if (std::string(type) == PW_TYPE_INTERFACE_Node) {
      const char* name = spa_dict_lookup(properties, PW_KEY_NODE_NAME);
      if (name != nullptr && self->sourceName == name) self->source = id;
    } else if (std::string(type) == PW_TYPE_INTERFACE_Link) {
      static constexpr pw_link_events kEvents{PW_VERSION_LINK_EVENTS, onLinkInfo};
      auto link = std::make_unique<WatchedLink>();
      link->proxy =
          static_cast<pw_link*>(pw_registry_bind(self->registry, id, type, PW_VERSION_LINK, 0));
      pw_link_add_listener(link->proxy, &link->listener, &kEvents, self);
      self->links[id] = std::move(link);
    }
  }

  bool connect() {
    static constexpr pw_core_events kCoreEvents = [] {
      pw_core_events events{};
      events.version = PW_VERSION_CORE_EVENTS;
      events.done = onDone;
      return events;
    }();
    static constexpr pw_registry_events kRegistryEvents{PW_VERSION_REGISTRY_EVENTS, onGlobal,
                                                        nullptr};
    static spa_hook coreListener;
    static spa_hook registryListener;
    loop = pw_main_loop_new(nullptr);
    if (loop == nullptr) return false;
    pw_context* context = pw_context_new(pw_main_loop_get_loop(loop), nullptr, 0);
    if (context == nullptr) return false;
    core = pw_context_connect(context, nullptr, 0);
    if (core == nullptr) return false;
    pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
    registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
    if (registry == nullptr) return false;
    pw_registry_add_listener(registry, &registryListener, &kRegistryEvents, this);
    ready = pw_core_sync(core, PW_ID_CORE, 0);
    pw_main_loop_run(loop);
    return isListed && source != SPA_ID_INVALID;
  }
};

pid_t startProgram(char** arguments) {
  pid_t pid = -1;
  if (posix_spawnp(&pid, arguments[0], nullptr, nullptr, arguments, environ) != 0) return -1;
  return pid;
}

// Two signals: save, and do not stay to show the notification.
void endProgram(pid_t pid) {
  while (waitpid(pid, nullptr, WNOHANG) == 0) {
    kill(pid, SIGTERM);
    usleep(20000);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: capture-start SOURCE COMMAND [ARGUMENT...]\n");
    return 2;
  }
  pw_init(nullptr, nullptr);
  Watcher watcher;
  watcher.sourceName = argv[1];
  if (!watcher.connect()) {
    std::fprintf(stderr, "capture-start: there is no PipeWire with a source %s\n", argv[1]);
    return kFailed;
  }
  const auto begin = Clock::now();
  const pid_t pid = startProgram(argv + 2);
  if (pid < 0) {
    std::perror(argv[2]);
    return kFailed;
  }
  std::signal(SIGALRM, [](int) { _exit(kFailed); });
  alarm(kLimit_s);
  pw_main_loop_run(watcher.loop);
  alarm(0);
  std::printf("%.2f\n", std::chrono::duration<double, std::milli>(watcher.active - begin).count());
  endProgram(pid);
  return 0;
}
