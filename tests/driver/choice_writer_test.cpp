// SPDX-License-Identifier: MIT
#include "driver/choice_writer.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <vector>

namespace {

using loopback::choiceOf;
using loopback::ChoiceWriter;
using loopback::DefaultChoice;

// A disk that writes when the test allows it, and its content; outlives an abandoned writer.
struct Disk {
  std::mutex mutex;
  std::condition_variable changed;
  bool hangs = false;
  int begun = 0;
  std::vector<DefaultChoice> written;

  void let() {
    const std::lock_guard lock(mutex);
    hangs = false;
    changed.notify_all();
  }
  void awaitBegun(int count) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return begun >= count; });
  }
  void awaitWritten(std::size_t count) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return written.size() >= count; });
  }
};

class DiskMemory : public loopback::ChoiceMemory {
 public:
  explicit DiskMemory(std::shared_ptr<Disk> disk) : disk_(std::move(disk)) {}
  DefaultChoice load() override { return choiceOf("loaded"); }
  void store(const DefaultChoice& choice) override {
    std::unique_lock lock(disk_->mutex);
    ++disk_->begun;
    disk_->changed.notify_all();
    disk_->changed.wait(lock, [this] { return !disk_->hangs; });
    disk_->written.push_back(choice);
    disk_->changed.notify_all();
  }

 private:
  std::shared_ptr<Disk> disk_;
};

class ChoiceWriterTest : public testing::Test {
 protected:
  std::shared_ptr<Disk> disk = std::make_shared<Disk>();
  // A farewell that is waited for in vain would take an hour.
  std::unique_ptr<ChoiceWriter> writer =
      std::make_unique<ChoiceWriter>(std::make_unique<DiskMemory>(disk), std::chrono::hours(1));
};

TEST_F(ChoiceWriterTest, LoadsAndWrites) {
  EXPECT_EQ(writer->load(), choiceOf("loaded"));
  writer->store(choiceOf("a"));
  writer.reset();
  EXPECT_EQ(disk->written, std::vector<DefaultChoice>{choiceOf("a")});
}

TEST_F(ChoiceWriterTest, AHangingDiskDelaysNobodyAndTheLatestChoiceIsWritten) {
  disk->hangs = true;
  writer->store(choiceOf("a"));
  disk->awaitBegun(1);
  writer->store(choiceOf("b"));
  writer->store({});
  writer->store(choiceOf("c"));
  disk->let();
  disk->awaitWritten(2);
  writer.reset();
  EXPECT_EQ(disk->written, (std::vector<DefaultChoice>{choiceOf("a"), choiceOf("c")}));
}

TEST_F(ChoiceWriterTest, EachChoiceOfAnIdleWriterIsWritten) {
  std::vector<DefaultChoice> stored;
  for (std::size_t i = 0; i < 50; ++i) {
    stored.push_back(choiceOf(std::to_string(i)));
    writer->store(stored.back());
    disk->awaitWritten(stored.size());
  }
  EXPECT_EQ(disk->written, stored);
}

TEST_F(ChoiceWriterTest, AWriteThatHangsForeverIsLeftBehind) {
  disk->hangs = true;
  writer = std::make_unique<ChoiceWriter>(std::make_unique<DiskMemory>(disk),
                                          std::chrono::milliseconds(1));
  writer->store(choiceOf("a"));
  disk->awaitBegun(1);
  writer.reset();
  disk->let();
  disk->awaitWritten(1);
}

TEST_F(ChoiceWriterTest, WithoutAChoiceThereIsNothingToWaitFor) {
  writer.reset();
  EXPECT_TRUE(disk->written.empty());
}

}  // namespace
