// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "hosts/linux/m4a/m4a_open_file.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "tests/base/opened_file.h"
#include "tests/base/temporary_folder.h"
#include "tests/m4a/box_walker.h"
#include "tests/m4a/decoded.h"
#include "tests/m4a/tone.h"
#include "tests/support/child_process.h"
#include "tests/support/why_not.h"

namespace linux_host::test {
namespace {

using base_test::TemporaryFolder;
using test_support::whyNot;
using ::testing::HasSubstr;

std::vector<std::byte> contents(const std::string& path) {
  std::vector<std::byte> bytes(std::filesystem::file_size(path));
  std::ifstream stream(path, std::ios::binary);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

std::uint64_t playableFrames(FileBytes bytes) {
  const auto decoded = decodeM4a(bytes);
  return decoded.planes.empty() ? 0 : decoded.planes[0].size();
}

std::unique_ptr<M4aWriter> newWriter(M4aWriterFactory* factory) {
  auto writer = factory->createWriter();
  if (!writer) throw std::runtime_error("nothing to record with: " + writer.error());
  return *std::move(writer);
}

// Records a tone into a new file with the module.
struct FileRecording {
  FileRecording(const std::string& path, const Format& format, M4aLog log = nullptr)
      : tone(format), factory(log, {RA_TEST_MODULE_FOLDER}), writer(newWriter(&factory)) {
    file = base_test::openedFile(files, path, OpenFiles::Mode::kCreateNew);
    EXPECT_EQ(whyNot(writer->open(m4aSinkFor(file), m4aFormat(format))), "");
  }
  Status write(std::uint32_t frames) { return writer->write(tone.next(frames), frames); }

  Tone tone;
  OpenFiles files;
  std::shared_ptr<OpenFile> file;
  M4aWriterFactory factory;
  std::unique_ptr<M4aWriter> writer;
};

TEST(M4aModuleTest, LeavesTheFileToItsOwnerWhoseCloseReportsLateErrors) {
  const TemporaryFolder folder;
  FileRecording recording(folder / "tone.m4a", {44100, 2, 256000});
  ASSERT_EQ(whyNot(recording.write(44100)), "");
  ASSERT_EQ(whyNot(recording.writer->finish()), "");
  const std::byte more{};
  EXPECT_EQ(whyNot(recording.file->append({&more, 1})), "");
}

TEST(M4aModuleTest, RecordsIntoAnOpenFile) {
  const TemporaryFolder folder;
  FileRecording recording(folder / "tone.m4a", {44100, 2, 256000});
  for (int i = 0; i < 100; ++i) ASSERT_EQ(whyNot(recording.write(1001)), "");
  ASSERT_EQ(whyNot(recording.writer->finish()), "");
  const auto decoded = decodeM4a(contents(folder / "tone.m4a"));
  EXPECT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.containerFrames, 100100U);
}

// Another thread moves the file to another disk while it is written.
TEST(M4aModuleTest, RecordingMovedToAnotherFileSystemWhileGrowingIsComplete) {
  const TemporaryFolder from("/dev/shm");
  const TemporaryFolder to("/var/tmp");
  FileRecording recording(from / "recording", {48000, 2, 256000});
  for (int i = 0; i < 300; ++i) ASSERT_EQ(whyNot(recording.write(480)), "");
  Status moved;
  std::thread mover(
      [&] { moved = recording.files.move(from / "recording", to / "recording.m4a"); });
  for (int i = 0; i < 300; ++i) EXPECT_EQ(whyNot(recording.write(480)), "");
  mover.join();
  ASSERT_EQ(whyNot(moved), "");
  ASSERT_EQ(whyNot(recording.writer->finish()), "");
  EXPECT_FALSE(std::filesystem::exists(from / "recording"));
  const auto bytes = contents(to / "recording.m4a");
  EXPECT_EQ(topLevel(bytes), "ftyp mdat moov");
  const auto decoded = decodeM4a(bytes);
  EXPECT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.containerFrames, 600U * 480);
}

// The bytes of a file on the disk, without reading its holes.
class MappedFile {
 public:
  explicit MappedFile(const std::string& path) : size_(std::filesystem::file_size(path)) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    data_ = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, descriptor, 0);
    close(descriptor);
  }
  ~MappedFile() { munmap(data_, size_); }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  [[nodiscard]] FileBytes bytes() const { return {static_cast<const std::byte*>(data_), size_}; }

 private:
  const std::size_t size_;
  void* data_;
};

TEST(M4aModuleTest, FileOfMoreThanFourGibibytesPlays) {
  const TemporaryFolder folder("/var/tmp");
  FileRecording recording(folder / "long.m4a", {48000, 1, 128000});
  ASSERT_EQ(whyNot(recording.write(48000)), "");
  // A hole replaces the days of sound that would take this room.
  constexpr std::uint64_t kHoleEnd_bytes = std::uint64_t{5} << 30;
  ASSERT_EQ(whyNot(recording.file->truncate(kHoleEnd_bytes)), "");
  ASSERT_EQ(whyNot(recording.write(48000)), "");
  ASSERT_EQ(whyNot(recording.writer->finish()), "");

  const MappedFile mapped(folder / "long.m4a");
  EXPECT_EQ(topLevel(mapped.bytes()), "ftyp mdat moov");
  std::string why;
  const auto index = walkIndex(mapped.bytes(), &why);
  ASSERT_TRUE(index) << why;
  EXPECT_GT(index->packets.back().offset, kHoleEnd_bytes);
  const auto decoded = decodeM4a(mapped.bytes());
  EXPECT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.containerFrames, 96000U);
  ASSERT_EQ(decoded.planes.size(), 1U);
  const std::span second(decoded.planes[0].data() + 48000, 48000);
  EXPECT_NEAR(amplitudeAt(second, Tone::frequency_hz(0), 48000), 0.25, 0.01);
}

// A child process that records, and reports how much until it is killed.
class KilledRecording {
 public:
  explicit KilledRecording(const TemporaryFolder& folder)
      : progressPath_(folder / "progress"), progress_(openProgress(progressPath_)) {}
  ~KilledRecording() {
    close(progress_);
    std::filesystem::remove(progressPath_);
  }
  KilledRecording(const KilledRecording&) = delete;
  KilledRecording& operator=(const KilledRecording&) = delete;

  // The frames recorded when the process ended; 0 when it never began.
  std::uint64_t recordUntil(const std::string& path, std::uint64_t frames) {
    test_support::ChildProcess child(
        {{RA_TEST_KILL_CHILD, path, progressPath_, RA_TEST_MODULE_FOLDER}, {}, ""});
    constexpr int kPatience_ms = 60'000;
    pollfd wait{progress_, POLLIN, 0};
    std::uint64_t recorded = 0;
    while (recorded < frames && poll(&wait, 1, kPatience_ms) == 1)
      recorded = readProgress(recorded);
    child.kill();
    while (poll(&wait, 1, 0) == 1) recorded = readProgress(recorded);
    return recorded;
  }

 private:
  static int openProgress(const std::string& path) {
    mkfifo(path.c_str(), 0600);
    return open(path.c_str(), O_RDWR | O_CLOEXEC);
  }
  [[nodiscard]] std::uint64_t readProgress(std::uint64_t last) const {
    std::uint64_t value = 0;
    return read(progress_, &value, sizeof(value)) == sizeof(value) ? value : last;
  }

  const std::string progressPath_;
  const int progress_;
};

TEST(M4aKillTest, FileOfAKilledProcessPlaysToWithinASecondAndIsRecovered) {
  const TemporaryFolder folder("/var/tmp");
  std::mt19937 random(std::random_device{}());
  for (int round = 0; round < 36; ++round) {
    KilledRecording recording(folder);
    const std::string path = folder / ("killed" + std::to_string(round) + ".m4a");
    const std::uint64_t wanted = 480 + random() % (12 * 48000);
    const std::uint64_t recorded = recording.recordUntil(path, wanted);
    ASSERT_GE(recorded, wanted);
    const auto bytes = contents(path);
    // The last piece may have been recorded but not reported yet.
    ASSERT_GE(playableFrames(bytes) + 48000, recorded);
    ASSERT_LE(playableFrames(bytes), recorded + 480 + 1024);

    OpenFiles files;
    const auto claimed = files.claim(path);
    ASSERT_EQ(whyNot(claimed), "");
    const std::shared_ptr<OpenFile>& file = *claimed;
    ASSERT_TRUE(file);
    const auto report = recoverInterruptedM4a(file);
    ASSERT_EQ(whyNot(report), "");
    ASSERT_EQ(report->outcome, M4aRecovery::Outcome::completed);
    ASSERT_GE(report->frames + 48000, recorded);
    const auto recovered = contents(path);
    EXPECT_EQ(topLevel(recovered), "ftyp mdat moov");
    const auto decoded = decodeM4a(recovered);
    EXPECT_EQ(decoded.error, "");
    EXPECT_EQ(decoded.containerFrames, report->frames);
    const auto again = recoverInterruptedM4a(file);
    EXPECT_TRUE(again && again->outcome == M4aRecovery::Outcome::alreadyComplete);
    std::filesystem::remove(path);
  }
}

TEST(M4aWriterFactoryTest, BackgroundLoadServesEveryThread) {
  M4aWriterFactory factory(nullptr, {"/nonexistent", RA_TEST_MODULE_FOLDER});
  factory.loadInBackground();
  factory.loadInBackground();
  std::array<std::thread, 4> threads;
  std::mutex mutex;
  std::set<std::string> errors;
  for (auto& thread : threads) {
    thread = std::thread([&] {
      const auto writer = factory.createWriter();
      const std::lock_guard lock(mutex);
      errors.insert(writer ? "made" : writer.error());
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(errors, ::testing::ElementsAre("made"));
}

TEST(M4aWriterFactoryTest, FactoryMayBeDestroyedWhileItLoads) {
  M4aWriterFactory factory(nullptr, {RA_TEST_MODULE_FOLDER});
  factory.loadInBackground();
}

TEST(M4aWriterFactoryTest, MissingModuleIsAClearError) {
  M4aWriterFactory factory(nullptr, {"/nonexistent/folder"});
  const std::string error = whyNot(factory.createWriter());
  EXPECT_THAT(error, HasSubstr("record-audio-m4a.so"));
  EXPECT_THAT(error, HasSubstr("missing in /nonexistent/folder"));
  EXPECT_THAT(error, HasSubstr("record MP3"));
}

TEST(M4aWriterFactoryTest, UnusableModuleIsAClearError) {
  const TemporaryFolder folder;
  std::ofstream(folder / "record-audio-m4a.so") << "not a module";
  M4aWriterFactory factory(nullptr, {folder.path()});
  const std::string error = whyNot(factory.createWriter());
  EXPECT_THAT(error, HasSubstr("cannot be loaded"));
  EXPECT_THAT(error, HasSubstr(folder.path()));
}

TEST(M4aWriterFactoryTest, LooksBesideTheExecutableFirstAndNowhereThatTheEnvironmentNames) {
  const TemporaryFolder folder;
  const base_test::Environment environment{{"LD_LIBRARY_PATH", folder.path()},
                                           {"PATH", folder.path()}};
  const auto folders = M4aWriterFactory::defaultFolders();
  EXPECT_THAT(folders, ::testing::Each(::testing::StartsWith("/")));
  EXPECT_THAT(folders, ::testing::Not(::testing::Contains(folder.path())));
  ASSERT_GE(folders.size(), 2U);
  EXPECT_EQ(folders[0], std::filesystem::read_symlink("/proc/self/exe").parent_path().string());
  EXPECT_THAT(folders[1], ::testing::EndsWith("/record-audio"));
}

class LoadedModule : public ::testing::Test {
 protected:
  LoadedModule()
      : path_(std::string(RA_TEST_MODULE_FOLDER) + "/" + M4aWriterFactory::kModuleName),
        handle_(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

  const std::string path_;
  void* const handle_;
};

TEST_F(LoadedModule, ExportsOnlyItsFactory) {
  FILE* const listing = popen(("nm -D --defined-only '" + path_ + "'").c_str(), "r");
  ASSERT_TRUE(listing);
  std::vector<std::string> names;
  char line[1024];
  while (std::fgets(line, sizeof(line), listing)) {
    std::string text(line);
    text.erase(text.find_last_not_of('\n') + 1);
    names.push_back(text.substr(text.rfind(' ') + 1));
  }
  ASSERT_EQ(pclose(listing), 0);
  EXPECT_THAT(names, ::testing::ElementsAre(kM4aFactoryName));
}

TEST_F(LoadedModule, RefusesAnotherVersionOfItsInterface) {
  ASSERT_TRUE(handle_) << dlerror();
  const auto function = reinterpret_cast<M4aFactoryFunction>(dlsym(handle_, kM4aFactoryName));
  ASSERT_TRUE(function);
  EXPECT_EQ(function(kM4aInterfaceVersion + 1, nullptr), nullptr);
}

std::mutex logMutex;
std::vector<std::string> logLines;

TEST(M4aLogTest, MessagesOfTheCodecLibraryAreWholeLinesOfTheLog) {
  const TemporaryFolder folder;
  // More bits than AAC can use at this rate: the encoder logs that it takes fewer.
  FileRecording recording(folder / "tone.m4a", {8000, 1, 1'000'000}, [](const char* line) {
    const std::lock_guard lock(logMutex);
    logLines.emplace_back(line);
  });
  EXPECT_EQ(whyNot(recording.writer->finish()), "");
  const std::lock_guard lock(logMutex);
  ASSERT_FALSE(logLines.empty());
  EXPECT_THAT(logLines, ::testing::Contains(HasSubstr("Too many bits")));
  for (const auto& line : logLines) EXPECT_EQ(line.find('\n'), std::string::npos) << line;
}

}  // namespace
}  // namespace linux_host::test
