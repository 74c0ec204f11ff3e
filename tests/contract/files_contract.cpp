// SPDX-License-Identifier: MIT
#include <span>

#include "tests/contract/contract_test.h"

// What platform/foundation.h promises of FileManager and FileHandle.

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

}  // namespace
}  // namespace contract
