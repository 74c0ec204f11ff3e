// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "hosts/linux/base/small_files.h"
#include "hosts/linux/files/file_manager.h"
#include "hosts/linux/files/file_transfer.h"
#include "tests/base/open_descriptors.h"
#include "tests/base/opened_file.h"
#include "tests/base/soon.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/why_not.h"

namespace linux_host {
namespace {

using base_test::contentsOf;
using base_test::Environment;
using base_test::namesIn;
using base_test::openedFile;
using base_test::TemporaryFolder;
using test_support::whyNot;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::span<const std::byte> bytes(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

// A separate file system of at most `size_bytes`. Needs the right to mount; without it the test
// fails, since it would prove nothing.
class SmallDisk {
 public:
  explicit SmallDisk(std::size_t size_bytes) {
    const std::string options = "size=" + std::to_string(size_bytes) + ",mode=0755";
    if (mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, options.c_str()) != 0) {
      throw std::runtime_error(std::string("cannot mount a tmpfs: ") + std::strerror(errno));
    }
  }
  ~SmallDisk() { umount2(folder_.path().c_str(), MNT_DETACH); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  std::string operator/(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] const std::string& path() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
};

constexpr std::size_t kRoomy_bytes = std::size_t{64} << 20;

// Writes numbered records, so that a lost, repeated or misplaced byte shows.
class RecordWriter {
 public:
  explicit RecordWriter(std::shared_ptr<OpenFile> file)
      : file_(std::move(file)), thread_([this] { run(); }) {}
  ~RecordWriter() { stop(); }
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  void waitFor(std::uint64_t count) const {
    while (written_ < count) std::this_thread::yield();
  }
  std::uint64_t stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
    return written_;
  }
  [[nodiscard]] std::uint64_t written() const { return written_; }

  static void expectComplete(const std::string& path, std::uint64_t count) {
    const std::string content = contentsOf(path);
    ASSERT_EQ(content.size(), count * sizeof(std::uint64_t) + kHead.size());
    EXPECT_EQ(content.substr(0, kHead.size()), kHead) << "the head was written last";
    for (std::uint64_t i = 0; i < count; ++i) {
      std::uint64_t record = 0;
      std::memcpy(&record, content.data() + kHead.size() + i * sizeof record, sizeof record);
      ASSERT_EQ(record, i);
    }
  }

 private:
  static constexpr std::string_view kHead = "complete";

  void run() {
    EXPECT_EQ(whyNot(file_->append(bytes("provisio"))), "");
    while (!stopped_) {
      const std::uint64_t record = written_;
      EXPECT_EQ(whyNot(file_->append(std::as_bytes(std::span(&record, 1)))), "");
      ++written_;
    }
    EXPECT_EQ(whyNot(file_->pwriteAt(0, bytes(kHead))), "");
    EXPECT_EQ(whyNot(file_->close()), "");
  }

  const std::shared_ptr<OpenFile> file_;
  std::atomic<bool> stopped_{false};
  std::atomic<std::uint64_t> written_{0};
  std::thread thread_;
};

void moveWhileWriting(const std::string& from, const std::string& to) {
  LinuxFileManager manager;
  RecordWriter writer(openedFile(manager.openFiles(), from, OpenFiles::Mode::kCreateNew));
  writer.waitFor(2000);
  ASSERT_EQ(manager.moveItem(from, to), "");
  EXPECT_FALSE(manager.fileExists(from));
  EXPECT_TRUE(manager.fileExists(to));
  writer.waitFor(writer.written() + 2000);
  RecordWriter::expectComplete(to, writer.stop());
}

TEST(MoveTest, OnOneFileSystemTheWriterGoesOnInTheRenamedFile) {
  const TemporaryFolder folder;
  moveWhileWriting(folder / "a", folder / "b");
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("b"));
}

TEST(MoveTest, ToAnotherFileSystemNothingWrittenBeforeDuringOrAfterIsLost) {
  const TemporaryFolder disk;
  for (int i = 0; i < 20; ++i) {
    const SmallDisk ram(kRoomy_bytes);
    const std::string target = disk / ("saved" + std::to_string(i));
    moveWhileWriting(ram / "recording", target);
    EXPECT_THAT(namesIn(ram.path()), IsEmpty());
  }
  EXPECT_EQ(namesIn(disk.path()).size(), 20U) << "and nothing hidden is left";
}

TEST(MoveTest, OverwritesAndTruncationsDuringTheCopyReachTheCopy) {
  constexpr std::size_t kStart_bytes = 256 << 10;
  const TemporaryFolder disk;
  for (int i = 0; i < 20; ++i) {
    const SmallDisk ram(kRoomy_bytes);
    LinuxFileManager manager;
    const auto file = openedFile(manager.openFiles(), ram / "a", OpenFiles::Mode::kCreateNew);
    std::string expected(kStart_bytes, '-');
    ASSERT_EQ(whyNot(file->append(bytes(expected))), "");
    std::atomic<bool> isOver{false};
    std::atomic<int> rounds{0};
    std::thread writer([&] {
      for (; !isOver; ++rounds) {
        const std::string mark = "<" + std::to_string(rounds) + ">";
        const std::size_t at = static_cast<std::size_t>(rounds) * 997 % (expected.size() / 2);
        EXPECT_EQ(whyNot(file->pwriteAt(at, bytes(mark))), "");
        expected.replace(at, mark.size(), mark);
        const std::size_t cut_bytes = expected.size() - 500;
        EXPECT_EQ(whyNot(file->truncate(cut_bytes)), "");
        expected.resize(cut_bytes);
        EXPECT_EQ(whyNot(file->append(bytes(std::string(400, '+')))), "");
        expected.append(400, '+');
        if (expected.size() < kStart_bytes / 2) break;
      }
    });
    while (rounds < 20) std::this_thread::yield();
    EXPECT_EQ(manager.moveItem(ram / "a", disk / std::to_string(i)), "");
    isOver = true;
    writer.join();
    EXPECT_EQ(whyNot(file->close()), "");
    EXPECT_TRUE(contentsOf(disk / std::to_string(i)) == expected) << "after " << rounds;
  }
}

TEST(MoveTest, FromADiskToATmpfsWorksToo) {
  const TemporaryFolder disk;
  const SmallDisk ram(kRoomy_bytes);
  moveWhileWriting(disk / "recording", ram / "saved");
}

TEST(MoveTest, CopiesMoreThanOneStepOfBytes) {
  const TemporaryFolder disk;
  const SmallDisk ram(kRoomy_bytes);
  std::string content;
  for (int i = 0; content.size() < (std::size_t{5} << 20); ++i) content += std::to_string(i);
  base_test::write(ram / "a", content);
  LinuxFileManager manager;
  ASSERT_EQ(manager.moveItem(ram / "a", disk / "b"), "");
  EXPECT_EQ(contentsOf(disk / "b"), content);
}

TEST(MoveTest, AFileHandleContinuesAtItsPlaceAfterTheMove) {
  const TemporaryFolder disk;
  const SmallDisk ram(kRoomy_bytes);
  LinuxFileManager manager;
  ASSERT_TRUE(manager.createFile(ram / "a"));
  const auto handle = manager.fileHandleForUpdating(ram / "a");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->seekToEndOfFile(), 0U);
  EXPECT_EQ(handle->writeData(bytes("one ")), "");
  ASSERT_EQ(manager.moveItem(ram / "a", disk / "b"), "");
  EXPECT_EQ(handle->writeData(bytes("two")), "");
  handle->closeFile();
  EXPECT_EQ(contentsOf(disk / "b"), "one two");
}

TEST(MoveTest, AFullTargetLeavesTheFileWholeAndBeingWritten) {
  const TemporaryFolder disk;
  const SmallDisk tiny(std::size_t{64} << 10);
  LinuxFileManager manager;
  const auto file = openedFile(manager.openFiles(), disk / "a", OpenFiles::Mode::kCreateNew);
  const std::string block(std::size_t{1} << 20, 'x');
  ASSERT_EQ(whyNot(file->append(bytes(block))), "");
  const std::string refused = manager.moveItem(disk / "a", tiny / "b");
  EXPECT_THAT(refused, HasSubstr("No space left"));
  EXPECT_THAT(refused, HasSubstr(tiny / "b"));
  EXPECT_THAT(refused, HasSubstr("Free some space"));
  EXPECT_THAT(namesIn(tiny.path()), IsEmpty());
  EXPECT_EQ(whyNot(file->append(bytes("more"))), "");
  EXPECT_EQ(whyNot(file->close()), "");
  EXPECT_EQ(contentsOf(disk / "a"), block + "more");
}

TEST(MoveTest, NeverReplacesAFile) {
  const TemporaryFolder disk;
  const SmallDisk ram(kRoomy_bytes);
  LinuxFileManager manager;
  for (const std::string& from : {disk / "from", ram / "from"}) {
    base_test::write(from, "new");
    base_test::write(disk / "there", "old");
    EXPECT_THAT(manager.moveItem(from, disk / "there"), HasSubstr("File exists"));
    EXPECT_EQ(contentsOf(from), "new");
    EXPECT_EQ(contentsOf(disk / "there"), "old");
  }
  EXPECT_EQ(namesIn(disk.path()).size(), 2U);
}

TEST(MoveTest, SaysWhatIsWrongWithAMissingFolderOrSource) {
  const TemporaryFolder folder;
  LinuxFileManager manager;
  base_test::write(folder / "a", "x");
  const std::string error = manager.moveItem(folder / "a", folder / "no/b");
  EXPECT_THAT(error, HasSubstr("No such file or directory"));
  EXPECT_THAT(error, HasSubstr(folder / "no/b"));
  EXPECT_EQ(contentsOf(folder / "a"), "x");
  EXPECT_NE(manager.moveItem(folder / "missing", folder / "b"), "");
}

TEST(MoveTest, AFileMayMoveTwice) {
  const TemporaryFolder disk;
  const SmallDisk ram(kRoomy_bytes);
  LinuxFileManager manager;
  const auto file = openedFile(manager.openFiles(), ram / "a", OpenFiles::Mode::kCreate);
  EXPECT_EQ(whyNot(file->append(bytes("1"))), "");
  ASSERT_EQ(manager.moveItem(ram / "a", disk / "b"), "");
  EXPECT_EQ(whyNot(file->append(bytes("2"))), "");
  ASSERT_EQ(manager.moveItem(disk / "b", ram / "c"), "");
  EXPECT_EQ(whyNot(file->append(bytes("3"))), "");
  EXPECT_EQ(file->path(), ram / "c");
  EXPECT_EQ(contentsOf(ram / "c"), "123");
}

// Somebody has removed the name of a file that is being written.
void moveWithoutName(const std::string& from, const std::string& to, bool isClosedFirst,
                     const std::function<void()>& takeAway) {
  LinuxFileManager manager;
  const auto file = openedFile(manager.openFiles(), from, OpenFiles::Mode::kCreateNew);
  ASSERT_EQ(whyNot(file->append(bytes("begin"))), "");
  takeAway();
  ASSERT_FALSE(manager.fileExists(from));
  ASSERT_EQ(whyNot(file->append(bytes(" end"))), "");
  if (isClosedFirst) {
    ASSERT_EQ(whyNot(file->close()), "");
  }
  ASSERT_EQ(manager.moveItem(from, to), "");
  EXPECT_EQ(contentsOf(to), "begin end");
  if (!isClosedFirst) {
    EXPECT_EQ(whyNot(file->append(bytes("!"))), "");
    EXPECT_EQ(whyNot(file->close()), "");
    EXPECT_EQ(contentsOf(to), "begin end!");
  }
}

std::size_t namelessDescriptors() {
  return base_test::openDescriptors(" (deleted)");
}

TEST(MoveTest, ARemovedFileIsSavedFromItsOpenDescriptor) {
  const TemporaryFolder folder;
  const SmallDisk other(kRoomy_bytes);
  const std::size_t before = namelessDescriptors();
  const auto remove = [&] { unlink((folder / "a").c_str()); };
  moveWithoutName(folder / "a", folder / "written on", false, remove);
  moveWithoutName(folder / "a", other / "written on", false, remove);
  moveWithoutName(folder / "a", folder / "closed", true, remove);
  moveWithoutName(folder / "a", other / "closed", true, remove);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("closed", "written on"));
  EXPECT_TRUE(base_test::soon([&] { return namelessDescriptors() <= before; }));
}

TEST(MoveTest, AFileOnADetachedDiskIsSavedTheSameWay) {
  const TemporaryFolder folder;
  for (const bool isClosedFirst : {false, true}) {
    const SmallDisk disk(kRoomy_bytes);
    moveWithoutName(disk / "a", folder / (isClosedFirst ? "closed" : "written on"), isClosedFirst,
                    [&] { umount2(disk.path().c_str(), MNT_DETACH); });
  }
}

TEST(MoveTest, AFileThatIsRemovedAfterItsMoveIsNotKept) {
  const TemporaryFolder folder;
  const std::size_t before = namelessDescriptors();
  LinuxFileManager manager;
  const auto file = openedFile(manager.openFiles(), folder / "a", OpenFiles::Mode::kCreateNew);
  ASSERT_EQ(manager.moveItem(folder / "a", folder / "b"), "");
  ASSERT_EQ(manager.removeItem(folder / "b"), "");
  ASSERT_EQ(whyNot(file->close()), "");
  // The last flush has its own descriptor.
  EXPECT_TRUE(base_test::soon([&] { return namelessDescriptors() <= before; }));
}

TEST(OpenFileTest, WritesAtTheEndAndInPlaceAndTruncates) {
  const TemporaryFolder folder;
  OpenFiles files;
  const auto file = openedFile(files, folder / "a", OpenFiles::Mode::kCreateNew);
  EXPECT_EQ(whyNot(file->append(bytes("abcdef"))), "");
  EXPECT_EQ(whyNot(file->pwriteAt(1, bytes("XY"))), "");
  EXPECT_EQ(file->size_bytes(), 6U);
  EXPECT_EQ(whyNot(file->truncate(5)), "");
  EXPECT_EQ(whyNot(file->append(bytes("!"))), "");
  EXPECT_EQ(contentsOf(folder / "a"), "aXYde!");
  EXPECT_EQ(whyNot(file->close()), "");
  EXPECT_EQ(whyNot(file->close()), "");
  EXPECT_THAT(whyNot(file->append(bytes("x"))), HasSubstr(folder / "a"));
  EXPECT_FALSE(files.open(folder / "a", OpenFiles::Mode::kCreateNew));
  EXPECT_THAT(whyNot(files.open(folder / "b", OpenFiles::Mode::kExisting)),
              HasSubstr(folder / "b"));
}

TEST(OpenFileTest, AFullDiskIsAnErrorThatSaysHowMuchFitted) {
  const SmallDisk tiny(std::size_t{64} << 10);
  OpenFiles files;
  const auto file = openedFile(files, tiny / "a", OpenFiles::Mode::kCreateNew);
  const std::string block(std::size_t{48} << 10, 'x');
  EXPECT_EQ(whyNot(file->append(bytes(block))), "");
  const std::string full = whyNot(file->append(bytes(block)));
  EXPECT_THAT(full, HasSubstr("No space left"));
  EXPECT_THAT(full, HasSubstr(tiny / "a"));
  struct stat status {};
  ASSERT_EQ(stat((tiny / "a").c_str(), &status), 0);
  EXPECT_EQ(file->size_bytes(), static_cast<std::uint64_t>(status.st_size));
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Sets the umask for its lifetime.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t before_;
};

TEST(OpenFileTest, ATemporaryFileIsReadableByItsOwnerAloneAndAMovedOneByTheUmask) {
  const TemporaryFolder folder;
  const SmallDisk otherDisk(std::size_t{1} << 20);
  const Umask open(0);
  LinuxFileManager manager;
  ASSERT_TRUE(manager.createFile(folder / "mp3"));
  const auto m4a = openedFile(manager.openFiles(), folder / "m4a", OpenFiles::Mode::kCreate);
  EXPECT_EQ(modeOf(folder / "mp3"), 0600U);
  EXPECT_EQ(modeOf(folder / "m4a"), 0600U);

  const Umask group(027);
  EXPECT_EQ(manager.moveItem(folder / "mp3", folder / "mp3.saved"), "");
  EXPECT_EQ(manager.moveItem(folder / "m4a", otherDisk / "m4a.saved"), "");
  EXPECT_EQ(modeOf(folder / "mp3.saved"), 0640U);
  EXPECT_EQ(modeOf(otherDisk / "m4a.saved"), 0640U);
}

TEST(OpenFileTest, DoesNotWriteThroughALinkPutInItsPlace) {
  const TemporaryFolder folder;
  base_test::write(folder / "precious", "precious");
  symlink((folder / "precious").c_str(), (folder / "recording").c_str());
  LinuxFileManager manager;
  EXPECT_FALSE(manager.createFile(folder / "recording"));
  EXPECT_EQ(manager.fileHandleForUpdating(folder / "recording"), nullptr);
  EXPECT_THAT(whyNot(manager.openFiles().open(folder / "recording", OpenFiles::Mode::kCreate)),
              HasSubstr(folder / "recording"));
  EXPECT_EQ(contentsOf(folder / "precious"), "precious");
}

TEST(FileManagerTest, CreatesEmptiesFindsAndRemoves) {
  const TemporaryFolder folder;
  LinuxFileManager manager;
  base_test::write(folder / "a", "old");
  EXPECT_TRUE(manager.createFile(folder / "a"));
  EXPECT_EQ(contentsOf(folder / "a"), "");
  EXPECT_FALSE(manager.createFile(folder / "no/a"));
  EXPECT_TRUE(manager.fileExists(folder.path()));
  EXPECT_EQ(manager.fileHandleForUpdating(folder / "b"), nullptr);
  EXPECT_EQ(manager.removeItem(folder / "a"), "");
  EXPECT_THAT(manager.removeItem(folder / "a"), HasSubstr(folder / "a"));
  EXPECT_FALSE(manager.fileExists(folder / "a"));
  symlink("nowhere", (folder / "link").c_str());
  EXPECT_FALSE(manager.fileExists(folder / "link")) << "links are followed";
}

TEST(FileManagerTest, TheTemporaryFolderIsNotARamDiskUnlessChosen) {
  const LinuxFileManager manager;
  {
    const Environment environment{{"TMPDIR", std::nullopt}};
    EXPECT_EQ(manager.temporaryDirectory(), "/var/tmp");
  }
  {
    const TemporaryFolder folder;
    const Environment environment{{"TMPDIR", folder.path() + "//"}};
    EXPECT_EQ(manager.temporaryDirectory(), folder.path());
  }
  const Environment environment{{"TMPDIR", "relative"}};
  EXPECT_EQ(manager.temporaryDirectory(), "/var/tmp");
}

TEST(FileManagerTest, AnUnusableTemporaryFolderIsReplacedAndTheLogSaysSo) {
  const TemporaryFolder folder;
  base_test::write(folder / "file", "");
  const LinuxFileManager manager;
  for (const std::string& bad : {folder / "missing", folder / "file"}) {
    const Environment environment{{"TMPDIR", bad}};
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(manager.temporaryDirectory(), "/var/tmp");
    EXPECT_EQ(manager.temporaryDirectory(), "/var/tmp");
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, AllOf(HasSubstr("TMPDIR"), HasSubstr(bad), HasSubstr("/var/tmp instead")));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
  }
}

TEST(FileManagerTest, AnotherUsersTemporaryFolderIsUsedOnlyWhenItIsSharedByAll) {
  const TemporaryFolder folder;
  const std::string foreign = folder / "foreign";
  ASSERT_EQ(mkdir(foreign.c_str(), 0700), 0);
  constexpr uid_t kNobody = 65534;
  if (chown(foreign.c_str(), kNobody, kNobody) != 0) {
    GTEST_SKIP() << "this user may not give a folder away";
  }
  {
    const Environment environment{{"TMPDIR", foreign}};
    EXPECT_EQ(LinuxFileManager().temporaryDirectory(), "/var/tmp");
  }
  ASSERT_EQ(chmod(foreign.c_str(), 01777), 0);
  const Environment environment{{"TMPDIR", foreign}};
  EXPECT_EQ(LinuxFileManager().temporaryDirectory(), foreign);
}

TEST(SmallFileTest, ReplacesInOneStepAndLeavesTheOldOneWhenItCannot) {
  const SmallDisk tiny(std::size_t{64} << 10);
  ASSERT_EQ(whyNot(writeSmallFile(tiny / "f", "old", 0600)), "");
  EXPECT_THAT(whyNot(writeSmallFile(tiny / "f", std::string(100000, 'x'), 0600)),
              HasSubstr("No space left"));
  EXPECT_EQ(contentsOf(tiny / "f"), "old");
  EXPECT_THAT(namesIn(tiny.path()), ElementsAre("f"));
}

TEST(SmallFileTest, FollowsLinksToTheLastOne) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder / "real");
  symlink("real/file", (folder / "one").c_str());
  symlink((folder / "one").c_str(), (folder / "two").c_str());
  EXPECT_EQ(behindLinks(folder / "two"), folder / "real/file");
  symlink("loop", (folder / "loop").c_str());
  EXPECT_FALSE(behindLinks(folder / "loop").empty()) << "ends";
}

}  // namespace
}  // namespace linux_host
