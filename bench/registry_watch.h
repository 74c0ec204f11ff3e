// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>

// What is in a PipeWire daemon, as it comes and goes. For benchmarks: one watch a process, all on
// the main thread, released with the process.
class RegistryWatch {
 public:
  // `properties` are valid during the call only.
  using Added =
      std::function<void(std::uint32_t id, const std::string& type, const spa_dict* properties)>;
  using Removed = std::function<void(std::uint32_t id)>;

  // Returns once everything that is there has been reported; false if there is no daemon.
  [[nodiscard]] bool connect(Added added, Removed removed = {});

  // Reports until quit() is called from a callback.
  void run();
  void quit();

  // Binds a global of that type; the proxy stays for the rest of the process.
  template <typename Proxy>
  [[nodiscard]] Proxy* bind(std::uint32_t id, const char* type, std::uint32_t version) {
    return static_cast<Proxy*>(
        static_cast<void*>(pw_registry_bind(registry_, id, type, version, 0)));
  }

 private:
  static void onDone(void* data, std::uint32_t id, int sequence);
  static void onGlobal(void* data, std::uint32_t id, std::uint32_t permissions, const char* type,
                       std::uint32_t version, const spa_dict* properties);
  static void onGlobalRemove(void* data, std::uint32_t id);

  Added added_;
  Removed removed_;
  pw_main_loop* loop_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  int ready_ = -1;  // the daemon's answer to this sync ends the listing
  bool isListed_ = false;
};
