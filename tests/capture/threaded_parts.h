// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/host.h"
#include "tests/memory_host/memory_host.h"

// Queues with real threads and files on a real disk, for tests of the recorder's threads.

namespace capture_test {

class ThreadedQueue : public platform::DispatchQueue {
 public:
  explicit ThreadedQueue(std::string label) : label_(std::move(label)) {}
  void async(std::function<void()> work) override;
  [[nodiscard]] const std::string& label() const override { return label_; }

  // Waits for items and runs them until `isDone`, asked after each item, is true. Without `isDone`
  // it ends when close() was called and everything has run. False when no item came for 30 seconds.
  bool run(const std::function<bool()>& isDone = {});
  void close();

 private:
  std::string label_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> items_;
  bool closed_ = false;
};

// The destructor runs what is queued and joins the threads.
class ThreadedDispatch : public platform::Dispatch {
 public:
  ~ThreadedDispatch() override;
  std::shared_ptr<platform::DispatchQueue> mainQueue() override { return main; }
  std::shared_ptr<platform::DispatchQueue> createSerialQueue(const std::string& label) override;

  // Returns when everything queued on the serial queues so far has run.
  void waitForSerialQueues();

  std::shared_ptr<ThreadedQueue> main = std::make_shared<ThreadedQueue>("main");

 private:
  std::vector<std::shared_ptr<ThreadedQueue>> queues_;
  std::vector<std::thread> threads_;
};

// Files in their own folder, which is deleted with the object. Writes can be made to wait.
class DiskFileManager : public platform::FileManager {
 public:
  DiskFileManager();
  ~DiskFileManager() override;
  [[nodiscard]] bool fileExists(const std::string& path) const override;
  bool createFile(const std::string& path) override;
  [[nodiscard]] std::unique_ptr<platform::FileHandle> fileHandleForUpdating(
      const std::string& path) override;
  [[nodiscard]] std::string moveItem(const std::string& from, const std::string& to) override;
  std::string removeItem(const std::string& path) override;
  [[nodiscard]] std::string temporaryDirectory() const override { return folder.string(); }

  [[nodiscard]] std::string contents(const std::string& path) const;
  // Between the two calls every write waits.
  void holdWrites();
  void releaseWrites();
  void waitWhileHeld();

  std::filesystem::path folder;

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  bool held_ = false;
};

// `memory`, with these instead of its own.
platform::Host hostWith(memory_host::MemoryHost& memory, platform::Dispatch& dispatch,
                        platform::FileManager& fileManager);

}  // namespace capture_test
