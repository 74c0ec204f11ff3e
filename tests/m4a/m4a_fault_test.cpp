// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <random>

#include "tests/m4a/box_walker.h"
#include "tests/m4a/decoded.h"
#include "tests/m4a/recording.h"
#include "tests/support/why_not.h"

namespace linux_host::test {
namespace {

using test_support::whyNot;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr std::uint64_t kRate_hz = 48000;

std::uint64_t playableFrames(FileBytes bytes) {
  const auto decoded = decodeM4a(bytes);
  return decoded.planes.empty() ? 0 : decoded.planes[0].size();
}

// The libraries' messages about what `work` does with a file.
template <typename Work>
std::string complaintsOf(const Work& work) {
  static std::string complaints;
  complaints.clear();
  av_log_set_callback([](void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    char line[256];
    std::vsnprintf(line, sizeof line, format, arguments);
    complaints += line;
  });
  work();
  av_log_set_callback(&av_log_default_callback);
  return complaints;
}

// A file's content at some moment, and how much had been recorded by then.
struct Snapshot {
  std::uint64_t fed_frames;
  std::size_t size_bytes;
};

std::vector<Snapshot> recordWithSnapshots(Recording* recording, std::uint64_t frames) {
  std::vector<Snapshot> snapshots;
  constexpr std::uint64_t kStep_frames = 480;
  for (std::uint64_t fed = kStep_frames; fed <= frames; fed += kStep_frames) {
    EXPECT_EQ(recording->feed(kStep_frames), "");
    snapshots.push_back({fed, recording->file->bytes.size()});
  }
  return snapshots;
}

TEST(M4aInterruptionTest, FileCutAtEveryFragmentPlaysToWithinASecondOfTheEnd) {
  Recording recording;
  const auto snapshots = recordWithSnapshots(&recording, 6 * kRate_hz);
  std::size_t lastSize_bytes = 0;
  for (const Snapshot& snapshot : snapshots) {
    // The worst moment of each fragment is just before the next fragment.
    if (snapshot.size_bytes == lastSize_bytes && snapshot.fed_frames % 4800 != 0) continue;
    lastSize_bytes = snapshot.size_bytes;
    const auto played = playableFrames(FileBytes(recording.file->bytes).first(snapshot.size_bytes));
    ASSERT_GE(played + kRate_hz, snapshot.fed_frames);
    ASSERT_LE(played, snapshot.fed_frames + 1024);
  }
}

TEST(M4aInterruptionTest, LossOnAKillIsAboutAQuarterOfASecond) {
  Recording recording;
  const auto snapshots = recordWithSnapshots(&recording, 3 * kRate_hz);
  for (const Snapshot& snapshot : snapshots) {
    const auto played = playableFrames(FileBytes(recording.file->bytes).first(snapshot.size_bytes));
    ASSERT_GE(played + kRate_hz * 35 / 100, snapshot.fed_frames);
  }
}

// The moment at which the file had grown to at least `size_bytes`.
std::uint64_t fedBefore_frames(const std::vector<Snapshot>& snapshots, std::size_t size_bytes) {
  const auto moment = std::find_if(
      snapshots.begin(), snapshots.end(),
      [size_bytes](const Snapshot& snapshot) { return snapshot.size_bytes >= size_bytes; });
  return moment == snapshots.end() ? 0 : moment->fed_frames;
}

// Where the file of a process that is killed during a write ends.
TEST(M4aInterruptionTest, FileCutAtEveryPagePlaysToWithinASecond) {
  Recording recording({48000, 2, 256000});
  const auto snapshots = recordWithSnapshots(&recording, 8 * kRate_hz);
  const auto& bytes = recording.file->bytes;
  for (std::size_t cut_bytes = 4096; cut_bytes < bytes.size(); cut_bytes += 4096) {
    ASSERT_GE(playableFrames(FileBytes(bytes).first(cut_bytes)) + kRate_hz,
              fedBefore_frames(snapshots, cut_bytes))
        << "cut at byte " << cut_bytes;
  }
}

TEST(M4aInterruptionTest, NoHeadOfAFragmentCrossesAPage) {
  for (const Format& format :
       {Format{8000, 1, 24000}, Format{48000, 2, 160000}, Format{96000, 1, 128000}}) {
    const auto bytes = interruptedRecording(60 * format.sampleRate_hz, format);
    const auto boxes = walkBoxes(bytes);
    ASSERT_TRUE(boxes);
    std::size_t heads = 0;
    for (const auto& box : *boxes) {
      if (box.type != "moof") continue;
      ++heads;
      const std::uint64_t last = box.offset + box.size + 8 - 1;
      ASSERT_EQ(box.offset / 4096, last / 4096) << "moof at " << box.offset;
    }
    EXPECT_GT(heads, 200U);
  }
}

TEST(M4aInterruptionTest, FileCutAtAnyByteOfItsSoundPlaysToWithinASecond) {
  Recording recording;
  const auto snapshots = recordWithSnapshots(&recording, 6 * kRate_hz);
  const auto& bytes = recording.file->bytes;
  const auto boxes = walkBoxes(bytes);
  ASSERT_TRUE(boxes);
  std::mt19937 random(20261120);
  int fragments = 0;
  for (const auto& box : *boxes) {
    if (box.type != "mdat") continue;
    ++fragments;
    for (int i = 0; i < 8; ++i) {
      const std::size_t cut_bytes = box.offset + box.header + random() % (box.size - box.header);
      ASSERT_GE(playableFrames(FileBytes(bytes).first(cut_bytes)) + kRate_hz,
                fedBefore_frames(snapshots, cut_bytes))
          << "cut at byte " << cut_bytes;
    }
  }
  EXPECT_GT(fragments, 20);
}

TEST(M4aInterruptionTest, CrashBetweenIndexAndHeadLeavesAFileThatPlays) {
  Recording recording;
  ASSERT_EQ(recording.feed(3 * kRate_hz), "");
  // Finishing appends the last fragment and the index, then patches the head.
  recording.file->failingOperation = recording.file->operations + 3;
  EXPECT_NE(whyNot(recording.writer.finish()), "");
  EXPECT_THAT(topLevel(recording.file->bytes), StartsWith("ftyp free moov moof mdat"));
  EXPECT_THAT(topLevel(recording.file->bytes), ::testing::EndsWith("moof mdat moov"));
  EXPECT_GE(playableFrames(recording.file->bytes), 3 * kRate_hz);
}

TEST(M4aInterruptionTest, CrashInTheMiddleOfTheIndexLeavesAFileThatPlays) {
  Recording recording;
  ASSERT_EQ(recording.feed(3 * kRate_hz), "");
  const std::size_t growing_bytes = recording.file->bytes.size();
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  const auto finished = recording.file->bytes;
  const auto index = boxAt(finished, "moov");
  ASSERT_TRUE(index);
  ASSERT_GT(index->offset, growing_bytes);
  const auto head = m4aHead(std::nullopt);
  for (const std::uint64_t part :
       {std::uint64_t{4}, std::uint64_t{100}, index->size / 2, index->size - 1}) {
    auto bytes = finished;
    bytes.resize(index->offset + part);
    std::copy(head.begin(), head.end(), bytes.begin());
    EXPECT_GE(playableFrames(bytes), 3 * kRate_hz) << part << " bytes of the index";
  }
}

constexpr int kOperationsOfTwoSeconds = 11;  // the head, the fragments, the index, the head again

class FailingOperationTest : public ::testing::TestWithParam<int> {};

TEST_P(FailingOperationTest, OneFailureStopsTheRecordingAndFinishStillCompletesIt) {
  auto file = std::make_shared<MemoryFile>();
  file->failingOperation = GetParam();
  Recording recording({}, file);
  if (GetParam() == 1) {
    EXPECT_THAT(recording.openError, HasSubstr("Cannot write tone.m4a"));
    return;
  }
  ASSERT_EQ(recording.openError, "");
  std::uint64_t fed = 0;
  std::string error;
  for (; fed < 2 * kRate_hz && error.empty(); fed += 480) error = recording.feed(480);
  const std::string finishError = whyNot(recording.writer.finish());
  EXPECT_TRUE(file->closed);
  if (error.empty()) {
    // The failure happened in finish() itself.
    EXPECT_THAT(finishError, HasSubstr("Cannot write tone.m4a"));
    EXPECT_GE(playableFrames(file->bytes) + kRate_hz, fed);
    return;
  }
  EXPECT_THAT(error, ::testing::AllOf(HasSubstr("Cannot write tone.m4a"), HasSubstr("kept")));
  EXPECT_EQ(finishError, "");
  EXPECT_EQ(topLevel(file->bytes), "ftyp mdat moov");
  std::string why;
  const auto index = walkIndex(file->bytes, &why);
  ASSERT_TRUE(index) << why;
  const auto decoded = decodeM4a(file->bytes);
  EXPECT_EQ(decoded.error, "");
  EXPECT_GE(decoded.containerFrames + 480, fed);
  EXPECT_LE(decoded.containerFrames, fed);
}

TEST_P(FailingOperationTest, FailureThatStaysLeavesAFileThatPlays) {
  auto file = std::make_shared<MemoryFile>();
  file->failingOperation = GetParam();
  file->failsFromThenOn = true;
  Recording recording({}, file);
  if (GetParam() == 1) return;
  ASSERT_EQ(recording.openError, "");
  std::uint64_t fed = 0;
  std::string error;
  for (; fed < 2 * kRate_hz && error.empty(); fed += 480) error = recording.feed(480);
  if (!error.empty()) {
    EXPECT_EQ(recording.feed(480), error);
  }
  EXPECT_THAT(whyNot(recording.writer.finish()), HasSubstr("Cannot write tone.m4a"));
  EXPECT_TRUE(file->closed);
  EXPECT_GE(playableFrames(file->bytes) + kRate_hz, fed);
}

INSTANTIATE_TEST_SUITE_P(All, FailingOperationTest,
                         ::testing::Range(1, kOperationsOfTwoSeconds + 1));

TEST(M4aFaultTest, TwoSecondsNeedAsManyOperationsAsTheTestsAboveLetFail) {
  Recording recording;
  ASSERT_EQ(recording.feed(2 * kRate_hz), "");
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_EQ(recording.file->operations, kOperationsOfTwoSeconds);
}

TEST(M4aFaultTest, FullDiskLeavesAFileThatPlaysToTheLastPacketWithRoom) {
  for (const std::size_t room_bytes : {2000U, 10000U, 20001U, 30303U, 40404U}) {
    auto file = std::make_shared<MemoryFile>();
    file->capacity_bytes = room_bytes;
    Recording recording({}, file);
    ASSERT_EQ(recording.openError, "");
    std::uint64_t fed = 0;
    std::string error;
    for (; error.empty(); fed += 480) error = recording.feed(480);
    EXPECT_THAT(error, HasSubstr("no room. Make room."));
    EXPECT_THAT(whyNot(recording.writer.finish()), HasSubstr("no room"));
    EXPECT_LE(file->bytes.size(), room_bytes);
    EXPECT_GE(playableFrames(file->bytes) + kRate_hz * 35 / 100, fed);
    EXPECT_EQ(complaintsOf([&] { (void)decodeM4a(file->bytes); }), "") << room_bytes;
    const auto boxes = walkBoxes(file->bytes);
    ASSERT_TRUE(boxes) << room_bytes;
    EXPECT_EQ(boxes->back().offset + boxes->back().size, file->bytes.size()) << room_bytes;
    // Not one more packet would have fitted.
    EXPECT_GT(file->bytes.size() + 2000, room_bytes);
  }
}

// The worst places for the disk to be full are inside the header of a fragment.
TEST(M4aFaultTest, FullDiskNeverLeavesAFileThatEndsInTheHeadOfAFragment) {
  const auto bytes = interruptedRecording(2 * kRate_hz);
  const auto boxes = walkBoxes(bytes);
  ASSERT_TRUE(boxes);
  const WalkedBox head = boxes->at(7);
  ASSERT_EQ(head.type, "moof");
  for (std::uint64_t room_bytes = head.offset; room_bytes < head.offset + head.size + 8;
       room_bytes += 7) {
    auto file = std::make_shared<MemoryFile>();
    file->capacity_bytes = room_bytes;
    Recording recording({}, file);
    std::uint64_t fed = 0;
    while (recording.feed(480).empty()) fed += 480;
    EXPECT_NE(whyNot(recording.writer.finish()), "");
    EXPECT_EQ(file->bytes.size(), head.offset);
    ASSERT_GE(playableFrames(file->bytes) + kRate_hz * 35 / 100, fed) << room_bytes;
  }
}

TEST(M4aFaultTest, RoomMadeBeforeTheEndCompletesTheFileWithEveryFrameTaken) {
  auto file = std::make_shared<MemoryFile>();
  file->capacity_bytes = 25000;
  Recording recording({}, file);
  std::uint64_t fed = 0;
  std::string error;
  for (; error.empty(); fed += 480) error = recording.feed(480);
  file->capacity_bytes = 1000000;
  EXPECT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_EQ(topLevel(file->bytes), "ftyp mdat moov");
  const auto decoded = decodeM4a(file->bytes);
  EXPECT_EQ(decoded.error, "");
  EXPECT_GE(decoded.containerFrames + 480, fed);
}

TEST(M4aFaultTest, IndexThatDoesNotFitIsRemovedAgain) {
  auto file = std::make_shared<MemoryFile>();
  Recording recording({}, file);
  ASSERT_EQ(recording.feed(12 * 1024 * 5 - 1024), "");
  file->capacity_bytes = file->bytes.size() + 6000;
  EXPECT_THAT(whyNot(recording.writer.finish()), HasSubstr("no room"));
  EXPECT_THAT(topLevel(file->bytes), ::testing::EndsWith("moof mdat"));
  EXPECT_GE(playableFrames(file->bytes), 12U * 1024 * 5 - 1024);
}

}  // namespace
}  // namespace linux_host::test
