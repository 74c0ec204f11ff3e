// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

// Loads the module that holds the AAC encoder, so that programs which never write an m4a do not
// carry the codec libraries. Any thread. A module that has been loaded stays for the process.
class M4aWriterFactory {
 public:
  static constexpr const char* kModuleName = "record-audio-m4a.so";

  // `folders` are searched in their order; `log` is M4aLog's.
  explicit M4aWriterFactory(M4aLog log = nullptr,
                            std::vector<std::string> folders = defaultFolders());
  // Waits for a load under way.
  ~M4aWriterFactory();
  M4aWriterFactory(const M4aWriterFactory&) = delete;
  M4aWriterFactory& operator=(const M4aWriterFactory&) = delete;

  // The executable's own folder, then where an installed program keeps its modules.
  [[nodiscard]] static std::vector<std::string> defaultFolders();

  // Begins to load the module on a thread of its own and returns at once. Idempotent.
  void loadInBackground();
  // A new writer; waits for the module to be loaded, loads it if nobody asked for it before. Null
  // with *error set when the module is missing or unusable.
  [[nodiscard]] std::unique_ptr<M4aWriter> createWriter(std::string* error);

 private:
  struct Loaded {
    M4aFactoryFunction function = nullptr;
    std::string error;
  };
  [[nodiscard]] Loaded load() const;
  std::shared_future<Loaded> loaded();

  const M4aLog log_;
  const std::vector<std::string> folders_;
  std::mutex mutex_;
  std::shared_future<Loaded> loaded_;  // guarded by mutex_; invalid until somebody asks
};

}  // namespace linux_host
