// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <span>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/foundation.h promises of FileManager and FileHandle, and what
// platform/interrupted_recordings.h promises.

namespace contract {
namespace {

using testing::Not;
using testing::StrEq;

std::span<const std::byte> bytesOf(const std::string& text) {
  return std::as_bytes(std::span(text));
}

class FilesContract : public ContractTest {
 protected:
  platform::FileManager& files() { return host().fileManager; }
  [[nodiscard]] std::string path(const std::string& name) { return rig->folder() + "/" + name; }
  // A file that is open for writing.
  std::unique_ptr<platform::FileHandle> open(const std::string& name) {
    EXPECT_TRUE(files().createFile(path(name)));
    auto handle = files().fileHandleForUpdating(path(name));
    EXPECT_NE(handle, nullptr);
    return handle;
  }
};

TEST_F(FilesContract, AFileIsMadeEmptyAndOneThatIsThereIsEmptied) {
  EXPECT_FALSE(files().fileExists(path("a")));
  ASSERT_TRUE(files().createFile(path("a")));
  EXPECT_TRUE(files().fileExists(path("a")));
  EXPECT_EQ(rig->contents(path("a")), "");

  const auto handle = files().fileHandleForUpdating(path("a"));
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("sound")), "");
  handle->closeFile();
  EXPECT_EQ(rig->contents(path("a")), "sound");
  ASSERT_TRUE(files().createFile(path("a")));
  EXPECT_EQ(rig->contents(path("a")), "");
}

TEST_F(FilesContract, NoFileIsMadeInAFolderThatIsNotThere) {
  EXPECT_FALSE(files().createFile(path("no folder/a")));
  EXPECT_FALSE(files().fileExists(path("no folder/a")));
}

TEST_F(FilesContract, AFolderExistsAsAFileDoes) {
  EXPECT_TRUE(files().fileExists(rig->folder()));
  EXPECT_TRUE(files().fileExists(files().temporaryDirectory()));
  EXPECT_FALSE(files().fileExists(""));
}

TEST_F(FilesContract, TheTemporaryDirectoryHasNoTrailingSlashAndTakesFiles) {
  const std::string folder = files().temporaryDirectory();
  ASSERT_FALSE(folder.empty());
  EXPECT_NE(folder.back(), '/');
  const std::string made = folder + "/contract " + host().processInfo.globallyUniqueString();
  EXPECT_TRUE(files().createFile(made));
  EXPECT_EQ(files().removeItem(made), "");
}

TEST_F(FilesContract, AMissingFileHasNoHandle) {
  EXPECT_EQ(files().fileHandleForUpdating(path("missing")), nullptr);
  EXPECT_FALSE(files().fileExists(path("missing")));
}

TEST_F(FilesContract, AHandleWritesFromTheFirstByteUntilItSeeksToTheEnd) {
  const auto first = open("a");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->seekToEndOfFile(), 0U);
  EXPECT_EQ(first->writeData(bytesOf("0123")), "");
  EXPECT_EQ(first->writeData(bytesOf("45")), "");
  first->closeFile();
  EXPECT_EQ(rig->contents(path("a")), "012345");

  const auto second = files().fileHandleForUpdating(path("a"));
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->writeData(bytesOf("ab")), "");
  EXPECT_EQ(rig->contents(path("a")), "ab2345");
  EXPECT_EQ(second->seekToEndOfFile(), 6U);
  EXPECT_EQ(second->writeData(bytesOf("6")), "");
  EXPECT_EQ(second->seekToEndOfFile(), 7U);
  EXPECT_EQ(rig->contents(path("a")), "ab23456");
}

TEST_F(FilesContract, AClosedHandleWritesNothingAndMayBeClosedAgain) {
  const auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("kept")), "");
  handle->closeFile();
  EXPECT_THAT(handle->writeData(bytesOf("lost")), Not(StrEq("")));
  handle->closeFile();
  EXPECT_EQ(rig->contents(path("a")), "kept");
}

TEST_F(FilesContract, OneHandleIsClosedAndAnotherOfTheSameFileGoesOn) {
  auto first = open("a");
  const auto second = files().fileHandleForUpdating(path("a"));
  ASSERT_NE(second, nullptr);
  first->closeFile();
  first.reset();
  EXPECT_EQ(second->writeData(bytesOf("kept")), "");
  EXPECT_EQ(rig->contents(path("a")), "kept");
}

TEST_F(FilesContract, WhatIsWrittenBeforeAndAfterAMoveEndsUpUnderTheNewName) {
  const auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("before ")), "");
  EXPECT_EQ(files().moveItem(path("a"), path("b")), "");
  EXPECT_FALSE(files().fileExists(path("a")));
  EXPECT_EQ(handle->writeData(bytesOf("after")), "");
  handle->closeFile();
  EXPECT_EQ(rig->contents(path("b")), "before after");
  EXPECT_FALSE(files().fileExists(path("a")));
}

TEST_F(FilesContract, AMoveGoesToAnotherFileSystemToo) {
  const std::string elsewhere = rig->folderElsewhere() + "/b";
  auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("before ")), "");
  EXPECT_EQ(files().moveItem(path("a"), elsewhere), "");
  EXPECT_EQ(handle->writeData(bytesOf("after")), "");
  handle.reset();
  EXPECT_TRUE(rig->runUntil([&] { return rig->contents(elsewhere) == "before after"; }))
      << rig->contents(elsewhere).value_or("nothing");
  EXPECT_FALSE(files().fileExists(path("a")));
}

TEST_F(FilesContract, AHandleThatIsLetGoIsClosed) {
  auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("kept")), "");
  EXPECT_EQ(files().moveItem(path("a"), path("b")), "");
  handle.reset();
  EXPECT_EQ(rig->contents(path("b")), "kept");
}

TEST_F(FilesContract, WhetherAFileIsThereMayBeAskedOnAnyThread) {
  ASSERT_TRUE(files().createFile(path("a")));
  const auto queue = host().dispatch.createSerialQueue("contract.files");
  ASSERT_NE(queue, nullptr);
  std::atomic<int> answers{0};
  queue->async([&] { answers = files().fileExists(path("a")) && !files().fileExists(path("b")); });
  EXPECT_TRUE(rig->runUntil([&] { return answers == 1; }));
}

TEST_F(FilesContract, AMoveNeverReplacesAFile) {
  const auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("mine")), "");
  const auto other = open("b");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->writeData(bytesOf("theirs")), "");
  EXPECT_THAT(files().moveItem(path("a"), path("b")), Not(StrEq("")));
  EXPECT_EQ(rig->contents(path("a")), "mine");
  EXPECT_EQ(rig->contents(path("b")), "theirs");
  EXPECT_EQ(handle->writeData(bytesOf(" still")), "");
  EXPECT_EQ(rig->contents(path("a")), "mine still");
}

TEST_F(FilesContract, AMoveThatFailsLeavesTheFileWholeAndItsWriterAtWork) {
  const auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("be")), "");
  EXPECT_THAT(files().moveItem(path("a"), path("no folder/b")), Not(StrEq("")));
  EXPECT_EQ(handle->writeData(bytesOf("gun")), "");
  EXPECT_EQ(rig->contents(path("a")), "begun");
}

TEST_F(FilesContract, NothingIsMovedFromNowhere) {
  EXPECT_THAT(files().moveItem(path("missing"), path("b")), Not(StrEq("")));
  EXPECT_FALSE(files().fileExists(path("b")));
}

TEST_F(FilesContract, AFileIsRemovedOnceAndThenMissing) {
  ASSERT_TRUE(files().createFile(path("a")));
  EXPECT_EQ(files().removeItem(path("a")), "");
  EXPECT_FALSE(files().fileExists(path("a")));
  EXPECT_THAT(files().removeItem(path("a")), Not(StrEq("")));
}

TEST_F(FilesContract, AWriteWithoutRoomIsAnErrorAndWhatWasWrittenBeforeStays) {
  const auto handle = open("a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->writeData(bytesOf("0123456789")), "");
  rig->limitFiles(10);
  EXPECT_THAT(handle->writeData(bytesOf("lost")), Not(StrEq("")));
  rig->limitFiles(std::nullopt);
  handle->closeFile();
  const auto held = rig->contents(path("a"));
  ASSERT_TRUE(held.has_value());
  EXPECT_EQ(held->substr(0, 10), "0123456789");
}

// As far as it does not depend on the sound in them.
class LeftoverContract : public FilesContract {
 protected:
  platform::InterruptedRecordings& leftovers() { return host().interruptedRecordings; }
  using Outcome = platform::InterruptedRecordings::Claim::Outcome;
  using Move = platform::InterruptedRecording::Move;
  // A file of the temporary directory that holds that text. It is removed with the test.
  std::string leave(const std::string& text) {
    made_.push_back(files().temporaryDirectory() + "/" + prefix + uniqueText());
    EXPECT_TRUE(files().createFile(made_.back()));
    const auto handle = files().fileHandleForUpdating(made_.back());
    EXPECT_EQ(handle->writeData(bytesOf(text)), "");
    return made_.back();
  }
  // A writer may need a moment to be gone when it has closed the file.
  platform::InterruptedRecordings::Claim claim(const std::string& path) {
    platform::InterruptedRecordings::Claim made;
    EXPECT_TRUE(rig->runUntil([&] {
      if (made.outcome == Outcome::kNotOurs) made = leftovers().claim(path);
      return made.outcome != Outcome::kNotOurs;
    }));
    return made;
  }
  std::string uniqueText() { return host().processInfo.globallyUniqueString(); }
  std::vector<std::string> found() {
    std::string error;
    auto paths = leftovers().find(prefix, &error);
    EXPECT_EQ(error, "");
    return paths;
  }
  void TearDown() override {
    for (const std::string& one : made_) files().removeItem(one);
  }

  const std::string prefix = "contract_leftover_";

 private:
  std::vector<std::string> made_;
};

TEST_F(LeftoverContract, TheyAreFoundByTheirPrefixInTheOrderOfTheirNames) {
  std::vector<std::string> left = {leave("one"), leave(""), leave("three")};
  std::ranges::sort(left);
  EXPECT_EQ(found(), left);
  const std::string users = files().temporaryDirectory() + "/" + prefix + "my interview.mp3";
  ASSERT_TRUE(files().createFile(users));
  EXPECT_EQ(found(), left) << "a name with more than a unique text is not ours";
  EXPECT_EQ(files().removeItem(users), "");
}

TEST_F(LeftoverContract, WhatIsEmptyOrGoneOrStillBeingWrittenIsNotClaimed) {
  const auto empty = leftovers().claim(leave(""));
  EXPECT_EQ(empty.outcome, Outcome::kEmpty);
  EXPECT_EQ(empty.recording, nullptr);
  EXPECT_EQ(leftovers().claim(path("missing")).outcome, Outcome::kNotOurs);
  const std::string busy = leave("sound");
  auto writer = files().fileHandleForUpdating(busy);
  ASSERT_NE(writer, nullptr);
  const auto refused = leftovers().claim(busy);
  EXPECT_EQ(refused.outcome, Outcome::kNotOurs);
  EXPECT_EQ(refused.recording, nullptr);
  writer.reset();
  EXPECT_EQ(claim(busy).outcome, Outcome::kClaimed);
}

TEST_F(LeftoverContract, OneThatIsClaimedIsNobodyElsesUntilItIsLetGo) {
  const std::string left = leave("sound");
  auto first = claim(left);
  ASSERT_EQ(first.outcome, Outcome::kClaimed);
  ASSERT_NE(first.recording, nullptr);
  EXPECT_EQ(leftovers().claim(left).outcome, Outcome::kNotOurs);
  first.recording.reset();
  EXPECT_EQ(leftovers().claim(left).outcome, Outcome::kClaimed) << "let go at once";
}

TEST_F(LeftoverContract, WhatThisProgramNeverWroteIsUnknownAndStays) {
  const std::string left = leave("neither of our formats");
  const auto claimed = claim(left);
  ASSERT_NE(claimed.recording, nullptr);
  const auto findings = claimed.recording->examine();
  EXPECT_EQ(findings.contents, platform::RecordingFindings::Contents::kUnknown);
  EXPECT_THAT(findings.problem, Not(StrEq("")));
  EXPECT_EQ(rig->contents(left), "neither of our formats");
}

TEST_F(LeftoverContract, OneMovesToAFreeNameAndBackAndNeverReplacesAFile) {
  const std::string left = leave("sound");
  const auto claimed = claim(left);
  ASSERT_NE(claimed.recording, nullptr);
  auto& recording = *claimed.recording;
  recording.examine();
  const auto other = open("taken");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->writeData(bytesOf("theirs")), "");
  std::string error;
  EXPECT_EQ(recording.moveTo(path("taken"), &error), Move::kNameTaken);
  EXPECT_THAT(error, Not(StrEq("")));
  EXPECT_EQ(rig->contents(path("taken")), "theirs");
  EXPECT_EQ(recording.moveTo(path("no folder/a"), &error), Move::kFailed);
  EXPECT_THAT(error, Not(StrEq("")));
  EXPECT_EQ(rig->contents(left), "sound");

  EXPECT_EQ(recording.moveTo(path("free"), &error), Move::kMoved) << error;
  EXPECT_FALSE(files().fileExists(left));
  EXPECT_EQ(rig->contents(path("free")), "sound");
  EXPECT_EQ(recording.moveBack(), "");
  EXPECT_EQ(rig->contents(left), "sound");
  EXPECT_FALSE(files().fileExists(path("free")));
}

TEST_F(LeftoverContract, AQueueMayYieldToOthersAndDoTheSame) {
  const std::string left = leave("sound");
  claim(left).recording.reset();
  const auto queue = host().dispatch.createSerialQueue("contract.leftovers");
  ASSERT_NE(queue, nullptr);
  std::atomic<int> outcome{-1};
  queue->async([&] {
    leftovers().yieldToOthers();
    outcome = static_cast<int>(leftovers().claim(left).outcome);
  });
  EXPECT_TRUE(rig->runUntil([&] { return outcome == static_cast<int>(Outcome::kClaimed); }));
}

}  // namespace
}  // namespace contract
