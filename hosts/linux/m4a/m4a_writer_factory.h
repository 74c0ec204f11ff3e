// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/m4a/m4a_writer.h"
#include "platform/mutex.h"

namespace linux_host {

// Loads the module with the AAC encoder, so that a program that never writes an m4a does not load
// the codec libraries. Any thread. A loaded module is never unloaded.
class M4aWriterFactory {
 public:
  static constexpr const char* kModuleName = "record-audio-m4a.so";

  // Searches `folders` in order; `log` gets the codec libraries' messages.
  explicit M4aWriterFactory(M4aLog log = nullptr,
                            std::vector<std::string> folders = defaultFolders());
  // Waits for a pending load.
  ~M4aWriterFactory();
  M4aWriterFactory(const M4aWriterFactory&) = delete;
  M4aWriterFactory& operator=(const M4aWriterFactory&) = delete;

  // The executable's own folder, then where an installed program keeps its modules.
  [[nodiscard]] static std::vector<std::string> defaultFolders();

  // Starts loading the module on a separate thread and returns at once. Idempotent.
  void loadInBackground();
  // Returns a new writer, never null. Waits for the module, and loads it if that was not requested
  // before. Fails when the module is missing or unusable.
  Expected<std::unique_ptr<M4aWriter>> createWriter();

 private:
  using Loaded = Expected<M4aFactoryFunction>;
  [[nodiscard]] Loaded load() const;
  std::shared_future<Loaded> loaded();

  const M4aLog log_;
  const std::vector<std::string> folders_;
  platform::Mutex mutex_;
  std::shared_future<Loaded> loaded_ RA_GUARDED_BY(mutex_);  // invalid until requested
};

}  // namespace linux_host
