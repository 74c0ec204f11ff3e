// SPDX-License-Identifier: MIT
// Asks for the loopback device from its start on. SIGUSR1 makes it withdraw the request, SIGUSR2
// makes it ask again. It runs until it is killed or the daemon is gone. Its requests are numbered
// from 1, unless it is started with --without-numbers.

#include <pipewire/pipewire.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "driver/loopback_protocol.h"

namespace {

pw_core* theCore = nullptr;
bool hasNumbers = true;
int requests = 0;

void request(const char* value) {
  const std::string number = std::to_string(++requests);
  const spa_dict_item items[] = {{loopback::kLoopbackRequestKey, value},
                                 {loopback::kLoopbackRequestNumberKey, number.c_str()}};
  const spa_dict properties = SPA_DICT_INIT(items, hasNumbers ? 2U : 1U);
  pw_client_update_properties(pw_core_get_client(theCore), &properties);
}

void hide(void*, int) {
  request(loopback::kLoopbackRequestHideText);
}
void show(void*, int) {
  request(loopback::kLoopbackRequestShowText);
}

void coreError(void* loop, std::uint32_t id, int, int result, const char*) {
  if (id == PW_ID_CORE && result == -EPIPE) pw_main_loop_quit(static_cast<pw_main_loop*>(loop));
}

}  // namespace

int main(int argc, char** argv) {
  // They must not kill the process before the loop exists.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  sigaddset(&signals, SIGUSR2);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  pw_init(&argc, &argv);
  hasNumbers = argc < 2 || std::strcmp(argv[1], "--without-numbers") != 0;
  pw_main_loop* loop = pw_main_loop_new(nullptr);
  pw_context* context = pw_context_new(pw_main_loop_get_loop(loop), nullptr, 0);
  theCore = pw_context_connect(context, nullptr, 0);
  if (theCore == nullptr) {
    std::perror("loopback-asker: cannot connect");
    return 1;
  }
  pw_loop_add_signal(pw_main_loop_get_loop(loop), SIGUSR1, hide, nullptr);
  pw_loop_add_signal(pw_main_loop_get_loop(loop), SIGUSR2, show, nullptr);
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.error = coreError;
  spa_hook listener{};
  pw_core_add_listener(theCore, &listener, &events, loop);
  request(loopback::kLoopbackRequestShowText);
  pw_main_loop_run(loop);
  pw_context_destroy(context);
  pw_main_loop_destroy(loop);
  pw_deinit();
  return 0;
}
