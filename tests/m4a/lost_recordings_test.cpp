// SPDX-License-Identifier: MIT
#include "hosts/linux/recovery/lost_recordings.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lame/lame.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "hosts/linux/recovery/mp3_stream.h"
#include "tests/base/opened_file.h"
#include "tests/base/soon.h"
#include "tests/base/temporary_folder.h"
#include "tests/m4a/box_walker.h"
#include "tests/m4a/decoded.h"
#include "tests/m4a/recording.h"
#include "tests/support/why_not.h"

// Which files in a temporary folder are lost recordings, and what happens to them on a real disk.

namespace linux_host::test {
namespace {

using base_test::contentsOf;
using base_test::namesIn;
using base_test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Contents = platform::RecordingFindings::Contents;
using test_support::whyNot;
using Outcome = LostRecordings::Claim::Outcome;
using Move = platform::InterruptedRecording::Move;

constexpr const char* kPrefix = "Audio_recording_";
constexpr const char* kName = "/Audio_recording_0f-1-2";
constexpr std::uint32_t kRate_hz = 48000;

std::string asText(const std::vector<std::byte>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::byte> asBytes(const std::string& text) {
  const auto* begin = reinterpret_cast<const std::byte*>(text.data());
  return {begin, begin + text.size()};
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

std::string interruptedM4a(std::uint64_t frames = 2 * kRate_hz) {
  return asText(interruptedRecording(frames, {kRate_hz, 2, 128000}));
}

// An MP3 stream as left by a process that ends: nothing is flushed.
std::string interruptedMp3(int rate_hz, int bitrate_kbps, int frames) {
  lame_t lame = lame_init();
  lame_set_num_channels(lame, 2);
  lame_set_in_samplerate(lame, rate_hz);
  lame_set_brate(lame, bitrate_kbps);
  lame_set_quality(lame, 7);
  lame_init_params(lame);
  std::vector<float> sound(static_cast<std::size_t>(frames));
  for (std::size_t i = 0; i < sound.size(); ++i) sound[i] = i % 100 < 50 ? 0.3F : -0.3F;
  std::vector<unsigned char> stream(sound.size() * 2 + 7200);
  const int written = lame_encode_buffer_ieee_float(lame, sound.data(), sound.data(), frames,
                                                    stream.data(), static_cast<int>(stream.size()));
  lame_close(lame);
  return {reinterpret_cast<const char*>(stream.data()), static_cast<std::size_t>(written)};
}

class LostRecordingsTest : public ::testing::Test {
 protected:
  std::unique_ptr<platform::InterruptedRecording> claimed() {
    auto claim = lost.claim(path);
    EXPECT_EQ(claim.outcome, Outcome::kClaimed) << claim.problem;
    return std::move(claim.recording);
  }
  std::string problemOfClaim() {
    const auto claim = lost.claim(path);
    EXPECT_EQ(claim.outcome, Outcome::kRefused);
    return claim.problem;
  }

  TemporaryFolder folder;
  TemporaryFolder output;
  LostRecordings lost{folder.path()};
  const std::string path = folder.path() + kName;
  std::string error;
};

TEST_F(LostRecordingsTest, FindsWhatIsNamedLikeAGrowingRecordingAndNothingElse) {
  for (const char* name : {"Audio_recording_b-1", "Audio_recording_A-2", "Audio_recording_",
                           "Audio_recording_interview.mp3", "Audio recording 2024.m4a", "other"}) {
    writeFile(folder / name, "x");
  }
  EXPECT_THAT(lost.find(kPrefix, &error),
              ElementsAre(folder / "Audio_recording_A-2", folder / "Audio_recording_b-1"));
  EXPECT_EQ(error, "");
}

TEST_F(LostRecordingsTest, AFolderThatCannotBeReadIsReported) {
  LostRecordings none(folder / "nothing here");
  EXPECT_THAT(none.find(kPrefix, &error), IsEmpty());
  EXPECT_THAT(error, HasSubstr(folder / "nothing here"));
}

TEST_F(LostRecordingsTest, AnM4aIsCompletedAndMovedToTheLastPacket) {
  writeFile(path, interruptedM4a());
  const auto recording = claimed();
  const auto findings = recording->examine();
  EXPECT_EQ(findings.contents, Contents::kM4a);
  EXPECT_NEAR(findings.duration_s, 2.0, 0.3);
  EXPECT_LE(findings.lastWritten - *findings.created, std::chrono::seconds(5));
  EXPECT_LE(std::chrono::abs(*findings.stated - findings.lastWritten), std::chrono::seconds(5));
  EXPECT_EQ(recording->finish(), "");
  EXPECT_EQ(recording->moveTo(output / "back.m4a", &error), Move::kMoved);
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
  const auto bytes = asBytes(contentsOf(output / "back.m4a"));
  EXPECT_EQ(topLevel(bytes), "ftyp mdat moov");
  const auto decoded = decodeM4a(bytes);
  EXPECT_EQ(decoded.error, "");
  EXPECT_NEAR(static_cast<double>(decoded.containerFrames) / kRate_hz, findings.duration_s, 0.001);
}

TEST_F(LostRecordingsTest, AnM4aThatWasCompletedBeforeItsProcessDiedIsMovedAsItIs) {
  const std::string complete = asText(finishedRecording(kRate_hz, {kRate_hz, 2, 128000}));
  writeFile(path, complete);
  const auto recording = claimed();
  EXPECT_EQ(recording->examine().contents, Contents::kM4a);
  EXPECT_EQ(recording->finish(), "");
  EXPECT_EQ(recording->moveTo(output / "back.m4a", &error), Move::kMoved);
  EXPECT_EQ(contentsOf(output / "back.m4a"), complete);
}

TEST_F(LostRecordingsTest, AnMp3IsMovedWithoutItsTornFrame) {
  const std::string stream = interruptedMp3(44100, 192, 3 * 44100);
  writeFile(path, stream);
  const auto recording = claimed();
  const auto findings = recording->examine();
  EXPECT_EQ(findings.contents, Contents::kMp3);
  EXPECT_NEAR(findings.duration_s, 3.0, 0.1);
  EXPECT_EQ(findings.stated, std::nullopt);
  EXPECT_EQ(recording->finish(), "");
  EXPECT_EQ(recording->moveTo(output / "back.mp3", &error), Move::kMoved);
  // At 44.1 kHz and 192 kbit/s a frame has 626 bytes, or one more.
  const std::string back = contentsOf(output / "back.mp3");
  EXPECT_TRUE(stream.starts_with(back));
  EXPECT_LT(back.size(), stream.size());
  EXPECT_LT(stream.size() - back.size(), 627U);
}

// Players know a stream by its second header.
TEST_F(LostRecordingsTest, AnMp3OfOneFrameKeepsWhatThereIsOfTheSecond) {
  const std::string stream = interruptedMp3(48000, 320, 48000).substr(0, 960 + 449);
  writeFile(path, stream);
  const auto recording = claimed();
  EXPECT_EQ(recording->examine().contents, Contents::kMp3);
  EXPECT_EQ(recording->finish(), "");
  EXPECT_EQ(contentsOf(path), stream);
}

TEST_F(LostRecordingsTest, AnMp3WithPartsThatAreNotFramesIsNotCut) {
  std::string stream = interruptedMp3(44100, 192, 3 * 44100);
  for (std::size_t i = 20000; i < 21500; ++i) stream[i] = 0;
  writeFile(path, stream);
  const auto recording = claimed();
  recording->examine();
  EXPECT_EQ(recording->finish(), "");
  EXPECT_EQ(contentsOf(path), stream);
}

TEST_F(LostRecordingsTest, EveryKindOfMp3StreamIsMeasured) {
  for (const auto& [rate_hz, bitrate_kbps] : std::vector<std::pair<int, int>>{
           {48000, 320}, {44100, 96}, {32000, 192}, {22050, 96}, {16000, 64}, {8000, 32}}) {
    writeFile(path, interruptedMp3(rate_hz, bitrate_kbps, 5 * rate_hz));
    const auto findings = claimed()->examine();
    EXPECT_EQ(findings.contents, Contents::kMp3) << rate_hz;
    EXPECT_NEAR(findings.duration_s, 5.0, 0.4) << rate_hz;
  }
}

TEST_F(LostRecordingsTest, HeadersWithoutSoundAreNotRecordings) {
  // At 48 kHz and 320 kbit/s a frame has 960 bytes.
  const std::string stream = interruptedMp3(48000, 320, 48000);
  for (const std::size_t size_bytes : {4U, 500U, 960U, 963U}) {
    writeFile(path, stream.substr(0, size_bytes));
    EXPECT_EQ(claimed()->examine().contents, Contents::kNoSound) << size_bytes;
  }
  writeFile(path, stream.substr(0, 964));
  EXPECT_EQ(claimed()->examine().contents, Contents::kMp3);
  writeFile(path, interruptedM4a(0));
  EXPECT_EQ(claimed()->examine().contents, Contents::kNoSound);
}

TEST_F(LostRecordingsTest, AFileThatIsNotARecordingIsReportedAndLeftAlone) {
  const std::string stream = interruptedMp3(48000, 320, 48000);
  std::string brokenStream = stream;
  brokenStream[960] = 0;
  for (const std::string& strange :
       {std::string("letters"), std::string(5000, '\0'), stream.substr(1), brokenStream,
        interruptedM4a().substr(0, 100), std::string("\xFF\xFB\xF0\x00", 4)}) {
    writeFile(path, strange);
    const auto findings = claimed()->examine();
    EXPECT_EQ(findings.contents, Contents::kUnknown);
    EXPECT_THAT(findings.problem, HasSubstr(path));
    EXPECT_EQ(contentsOf(path), strange);
  }
}

// The owner.

TEST_F(LostRecordingsTest, AFileThatIsBeingWrittenIsLeftAlone) {
  OpenFiles files;
  const auto writer = base_test::openedFile(files, path, OpenFiles::Mode::kCreate);
  ASSERT_EQ(whyNot(writer->append(asBytes(interruptedM4a()))), "");
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kNotOurs);
  EXPECT_EQ(whyNot(writer->append(asBytes("more"))), "");
  EXPECT_EQ(whyNot(writer->close()), "");
  // The last flush may still be running.
  EXPECT_TRUE(base_test::soon([&] { return lost.claim(path).outcome == Outcome::kClaimed; }));
}

TEST_F(LostRecordingsTest, AFileOfAProcessThatIsKilledIsLost) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const std::string sound = interruptedM4a();
  const pid_t child = fork();
  if (child == 0) {
    OpenFiles files;
    const auto file = files.open(path, OpenFiles::Mode::kCreateNew);
    const bool good = file && (*file)->append(asBytes(sound));
    [[maybe_unused]] const auto told = write(ready[1], good ? "y" : "n", 1);
    while (true) pause();
  }
  char answer = 0;
  ASSERT_EQ(read(ready[0], &answer, 1), 1);
  ASSERT_EQ(answer, 'y');
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kNotOurs);
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kClaimed);
}

TEST_F(LostRecordingsTest, AWriterThatStopsAcrossDisksNeverLosesItsFileToAnother) {
  const TemporaryFolder here;
  for (int round = 0; round < 100; ++round) {
    OpenFiles files;
    LostRecordings others{here.path()};
    const std::string from = here.path() + kName;
    const auto writer = base_test::openedFile(files, from, OpenFiles::Mode::kCreateNew);
    ASSERT_EQ(whyNot(writer->append(asBytes(std::string(1 << 16, 'x')))), "");
    std::atomic<bool> over = false;
    std::atomic<int> taken = 0;
    std::atomic<int> attempts = 0;
    std::thread other([&] {
      for (; !over; ++attempts) taken += others.claim(from).outcome == Outcome::kClaimed;
    });
    while (attempts == 0) std::this_thread::yield();
    EXPECT_EQ(whyNot(files.move(from, "/dev/shm/lost-recordings-test-" + std::to_string(getpid()))),
              "");
    over = true;
    other.join();
    EXPECT_EQ(taken, 0);
    unlink(("/dev/shm/lost-recordings-test-" + std::to_string(getpid())).c_str());
  }
}

TEST_F(LostRecordingsTest, OfManyThatTryAtOnceOneGetsIt) {
  for (int round = 0; round < 50; ++round) {
    writeFile(path, interruptedMp3(8000, 32, 8000));
    std::atomic<int> moved = 0;
    std::vector<std::thread> programs;
    for (int i = 0; i < 4; ++i) {
      programs.emplace_back([&, i] {
        LostRecordings own{folder.path()};
        const auto claim = own.claim(path);
        if (claim.outcome != Outcome::kClaimed) return;
        std::string ignored;
        const std::string to = output / (std::to_string(round) + "-" + std::to_string(i));
        moved += claim.recording->moveTo(to, &ignored) == Move::kMoved;
      });
    }
    for (auto& program : programs) program.join();
    ASSERT_EQ(moved, 1);
  }
  EXPECT_EQ(namesIn(output.path()).size(), 50U);
}

TEST_F(LostRecordingsTest, AnEmptyFileMayJustHaveBeenMadeAndIsNotEvenLocked) {
  writeFile(path, "");
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kEmpty);
  OpenFiles files;
  const auto claimed = files.claim(path);
  EXPECT_TRUE(claimed && *claimed == nullptr) << whyNot(claimed);
}

TEST_F(LostRecordingsTest, AFileOfAnotherUserIsNotOurs) {
  writeFile(path, interruptedMp3(8000, 32, 8000));
  ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0) << "needs root";
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kNotOurs);
  OpenFiles files;
  const auto claimed = files.claim(path);
  EXPECT_TRUE(claimed && *claimed == nullptr) << whyNot(claimed);
}

TEST_F(LostRecordingsTest, AMissingFileIsNotOurs) {
  EXPECT_EQ(lost.claim(path).outcome, Outcome::kNotOurs);
  OpenFiles files;
  const auto claimed = files.claim(path);
  EXPECT_TRUE(claimed && *claimed == nullptr) << whyNot(claimed);
}

TEST_F(LostRecordingsTest, LinksAndSpecialFilesAreRefused) {
  const std::string sound = interruptedMp3(8000, 32, 8000);
  writeFile(output / "diary", sound);
  ASSERT_EQ(symlink((output / "diary").c_str(), path.c_str()), 0);
  EXPECT_THAT(problemOfClaim(), HasSubstr(path));
  unlink(path.c_str());
  ASSERT_EQ(link((output / "diary").c_str(), path.c_str()), 0);
  EXPECT_THAT(problemOfClaim(), HasSubstr("another name"));
  unlink(path.c_str());
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  EXPECT_THAT(problemOfClaim(), HasSubstr(path));
  rmdir(path.c_str());
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(problemOfClaim(), HasSubstr("ordinary"));
  EXPECT_EQ(contentsOf(output / "diary"), sound);
}

// Failures.

TEST_F(LostRecordingsTest, ATakenNameIsNeverReplaced) {
  const std::string sound = interruptedMp3(8000, 32, 8000);
  writeFile(path, sound);
  writeFile(output / "taken.mp3", "mine");
  const auto recording = claimed();
  EXPECT_EQ(recording->moveTo(output / "taken.mp3", &error), Move::kNameTaken);
  EXPECT_THAT(error, HasSubstr("taken.mp3"));
  EXPECT_EQ(contentsOf(output / "taken.mp3"), "mine");
  EXPECT_EQ(recording->moveTo(output / "free.mp3", &error), Move::kMoved);
  EXPECT_EQ(contentsOf(output / "free.mp3"), sound);
}

TEST_F(LostRecordingsTest, AMissingFolderLeavesTheFileWhereItIs) {
  const std::string sound = interruptedMp3(8000, 32, 8000);
  writeFile(path, sound);
  EXPECT_EQ(claimed()->moveTo(output / "gone/back.mp3", &error), Move::kFailed);
  EXPECT_THAT(error, HasSubstr("gone/back.mp3"));
  EXPECT_EQ(contentsOf(path), sound);
}

TEST_F(LostRecordingsTest, AFullDiskLeavesTheFileWhereItIsAndNothingBehind) {
  ASSERT_EQ(mount("tmpfs", output.path().c_str(), "tmpfs", 0, "size=65536"), 0)
      << std::strerror(errno);
  writeFile(path, interruptedM4a(20 * kRate_hz));
  const auto recording = claimed();
  recording->examine();
  EXPECT_EQ(recording->finish(), "");
  const std::string complete = contentsOf(path);
  EXPECT_EQ(recording->moveTo(output / "back.m4a", &error), Move::kFailed);
  EXPECT_THAT(namesIn(output.path()), IsEmpty());
  umount2(output.path().c_str(), MNT_DETACH);
  EXPECT_THAT(error, HasSubstr("back.m4a"));
  EXPECT_EQ(contentsOf(path), complete);
}

TEST_F(LostRecordingsTest, ADiskWithoutRoomForTheIndexLeavesAFileThatPlays) {
  const std::string sound = interruptedM4a(20 * kRate_hz);
  const std::string size = "size=" + std::to_string((sound.size() / 4096 + 1) * 4096);
  ASSERT_EQ(mount("tmpfs", folder.path().c_str(), "tmpfs", 0, size.c_str()), 0)
      << std::strerror(errno);
  writeFile(path, sound);
  {
    const auto recording = claimed();
    recording->examine();
    EXPECT_NE(recording->finish(), "");
  }
  const auto decoded = decodeM4a(asBytes(contentsOf(path)));
  umount2(folder.path().c_str(), MNT_DETACH);
  EXPECT_EQ(decoded.error, "");
  EXPECT_GT(decoded.containerFrames, 19U * kRate_hz);
}

TEST_F(LostRecordingsTest, AFullTemporaryDiskDoesNotMatterWhereTheOutputHasRoom) {
  const std::string sound = interruptedM4a(20 * kRate_hz);
  const std::string size = "size=" + std::to_string((sound.size() / 4096 + 1) * 4096);
  ASSERT_EQ(mount("tmpfs", folder.path().c_str(), "tmpfs", 0, size.c_str()), 0)
      << std::strerror(errno);
  writeFile(path, sound);
  {
    const auto recording = claimed();
    recording->examine();
    EXPECT_NE(recording->finish(), "");
    EXPECT_EQ(recording->moveTo(output / "back.m4a", &error), Move::kMoved) << error;
    EXPECT_EQ(recording->finish(), "");
  }
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
  umount2(folder.path().c_str(), MNT_DETACH);
  const std::string back = contentsOf(output / "back.m4a");
  EXPECT_EQ(topLevel(asBytes(back)), "ftyp mdat moov");
  EXPECT_EQ(decodeM4a(asBytes(back)).error, "");
}

TEST_F(LostRecordingsTest, AFileThatIsMovedBackIsStillReadableByItsOwnerOnly) {
  writeFile(path, interruptedMp3(8000, 32, 8000));
  const auto recording = claimed();
  ASSERT_EQ(recording->moveTo(output / "there.mp3", &error), Move::kMoved);
  EXPECT_EQ(recording->moveBack(), "");
  EXPECT_THAT(namesIn(output.path()), IsEmpty());
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(LostRecordingsTest, AReadOnlyDiskIsReported) {
  ASSERT_EQ(mount("tmpfs", folder.path().c_str(), "tmpfs", 0, ""), 0) << std::strerror(errno);
  writeFile(path, interruptedMp3(8000, 32, 8000));
  ASSERT_EQ(mount("tmpfs", folder.path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, ""), 0);
  const std::string problem = problemOfClaim();
  umount2(folder.path().c_str(), MNT_DETACH);
  EXPECT_THAT(problem, HasSubstr(path));
}

}  // namespace
}  // namespace linux_host::test
