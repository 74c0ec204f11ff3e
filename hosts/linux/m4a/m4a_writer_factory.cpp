// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_writer_factory.h"

#include <dlfcn.h>

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

namespace linux_host {

M4aWriterFactory::M4aWriterFactory(M4aLog log, std::vector<std::string> folders)
    : log_(log), folders_(std::move(folders)) {}

M4aWriterFactory::~M4aWriterFactory() {
  // A load is only deferred if its result has not been requested.
  if (loaded_.valid() && loaded_.wait_for(std::chrono::seconds(0)) != std::future_status::deferred)
    loaded_.wait();
}

std::vector<std::string> M4aWriterFactory::defaultFolders() {
  std::vector<std::string> folders;
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    const auto folder = executable.parent_path();
    folders.push_back(folder.string());
    folders.push_back((folder.parent_path() / RA_MODULE_FOLDER_UNDER_PREFIX).lexically_normal());
  }
  folders.emplace_back(RA_MODULE_FOLDER);
  return folders;
}

void M4aWriterFactory::loadInBackground() {
  (void)loaded();
}

std::shared_future<M4aWriterFactory::Loaded> M4aWriterFactory::loaded() {
  const platform::MutexLock lock(mutex_);
  if (!loaded_.valid()) {
    // If no thread can be started, the module is loaded when it is needed, on that thread.
    try {
      loaded_ = std::async(std::launch::async, [this] { return load(); }).share();
    } catch (const std::system_error&) {
      loaded_ = std::async(std::launch::deferred, [this] { return load(); }).share();
    }
  }
  return loaded_;
}

Expected<std::unique_ptr<M4aWriter>> M4aWriterFactory::createWriter() {
  const Loaded factory = loaded().get();
  if (!factory) return Unexpected(factory.error());
  std::unique_ptr<M4aWriter> writer((*factory)(kM4aInterfaceVersion, log_));
  if (!writer) {
    return Unexpected(std::string("The module ") + kModuleName +
                      " belongs to another version of Record Audio. Reinstall Record Audio.");
  }
  return writer;
}

M4aWriterFactory::Loaded M4aWriterFactory::load() const {
  std::string error;
  for (const std::string& folder : folders_) {
    const std::string path = folder + "/" + kModuleName;
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) continue;
    // Never unloaded: the codec libraries keep state that does not survive it.
    void* module = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
    void* symbol = module ? dlsym(module, kM4aFactoryName) : nullptr;
    if (symbol) return reinterpret_cast<M4aFactoryFunction>(symbol);
    const char* reason = dlerror();
    error =
        "The module for m4a recordings cannot be loaded: " + std::string(reason ? reason : path) +
        ". Reinstall Record Audio and its libraries, or record MP3.";
  }
  if (error.empty()) {
    error = std::string("The module ") + kModuleName + " for m4a recordings is missing in " +
            (folders_.empty() ? "every folder" : folders_.front()) +
            ". Reinstall Record Audio, or record MP3.";
  }
  return Unexpected(error);
}

}  // namespace linux_host
