// SPDX-License-Identifier: MIT
#include "tests/capture/threaded_parts.h"

#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <system_error>

namespace capture_test {

void ThreadedQueue::async(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  items_.push_back(std::move(work));
  changed_.notify_one();
}

bool ThreadedQueue::run(const std::function<bool()>& isDone) {
  while (true) {
    if (isDone && isDone()) return true;
    std::function<void()> work;
    {
      std::unique_lock lock(mutex_);
      const bool inTime = changed_.wait_for(lock, std::chrono::seconds(30),
                                            [this] { return !items_.empty() || closed_; });
      if (items_.empty()) {
        if (closed_) return true;
        if (!inTime && isDone) return false;
        continue;
      }
      work = std::move(items_.front());
      items_.pop_front();
    }
    work();
  }
}

void ThreadedQueue::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_one();
}

ThreadedDispatch::~ThreadedDispatch() {
  for (std::size_t i = 0; i < queues_.size(); ++i) {
    queues_[i]->close();
    threads_[i].join();
  }
}

std::shared_ptr<platform::DispatchQueue> ThreadedDispatch::createSerialQueue(
    const std::string& label) {
  queues_.push_back(std::make_shared<ThreadedQueue>(label));
  threads_.emplace_back([queue = queues_.back()] { queue->run(); });
  return queues_.back();
}

void ThreadedDispatch::waitForSerialQueues() {
  // Each queue may feed the ones after it once, so there are as many rounds as queues.
  for (std::size_t round = 0; round < queues_.size(); ++round) {
    std::atomic<std::size_t> reached{0};
    for (const auto& queue : queues_) {
      queue->async([&] {
        ++reached;
        main->async([] {});
      });
    }
    main->run([&] { return reached == queues_.size(); });
  }
}

namespace {

class DiskFileHandle : public platform::FileHandle {
 public:
  DiskFileHandle(DiskFileManager& manager, const std::string& path)
      : manager_(manager), file_(path, std::ios::in | std::ios::out | std::ios::binary) {}
  [[nodiscard]] bool isOpen() const { return file_.is_open(); }
  std::uint64_t seekToEndOfFile() override {
    file_.seekp(0, std::ios::end);
    return static_cast<std::uint64_t>(file_.tellp());
  }
  std::string writeData(std::span<const std::byte> data) override {
    manager_.waitWhileHeld();
    file_.write(reinterpret_cast<const char*>(data.data()),
                static_cast<std::streamsize>(data.size()));
    return file_ ? "" : "cannot write";
  }
  void closeFile() override { file_.close(); }

 private:
  DiskFileManager& manager_;
  std::fstream file_;
};

std::filesystem::path newFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "recorder-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  return name;
}

}  // namespace

DiskFileManager::DiskFileManager() : folder(newFolder()) {}

DiskFileManager::~DiskFileManager() {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

bool DiskFileManager::fileExists(const std::string& path) const {
  return std::filesystem::exists(path);
}

bool DiskFileManager::createFile(const std::string& path) {
  return std::ofstream(path, std::ios::binary | std::ios::trunc).is_open();
}

std::unique_ptr<platform::FileHandle> DiskFileManager::fileHandleForUpdating(
    const std::string& path) {
  auto handle = std::make_unique<DiskFileHandle>(*this, path);
  return handle->isOpen() ? std::move(handle) : nullptr;
}

std::string DiskFileManager::moveItem(const std::string& from, const std::string& to) {
  std::error_code error;
  std::filesystem::rename(from, to, error);
  return error ? error.message() : "";
}

std::string DiskFileManager::removeItem(const std::string& path) {
  std::error_code error;
  std::filesystem::remove(path, error);
  return error ? error.message() : "";
}

std::string DiskFileManager::contents(const std::string& path) const {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void DiskFileManager::holdWrites() {
  const std::lock_guard lock(mutex_);
  held_ = true;
}

void DiskFileManager::releaseWrites() {
  const std::lock_guard lock(mutex_);
  held_ = false;
  released_.notify_all();
}

void DiskFileManager::waitWhileHeld() {
  std::unique_lock lock(mutex_);
  released_.wait(lock, [this] { return !held_; });
}

platform::Host hostWith(memory_host::MemoryHost& memory, platform::Dispatch& dispatch,
                        platform::FileManager& fileManager) {
  return {memory.application,
          memory.alerts,
          memory.workspace,
          memory.interfaceLoader,
          memory.cursor,
          memory.systemColors,
          memory.userNotificationCenter,
          memory.clock,
          memory.userDefaults,
          fileManager,
          memory.mainBundle,
          memory.bundleLoader,
          memory.processInfo,
          memory.runLoop,
          memory.notificationCenter,
          memory.dateFormatter,
          memory.userAccount,
          memory.clock,
          dispatch,
          memory.capture,
          memory.audioHardware,
          memory.audioUnits,
          memory.authorization,
          memory.launchServices,
          memory.appleEvents,
          memory.interruptedRecordings};
}

}  // namespace capture_test
