// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_recovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/m4a/box_walker.h"
#include "tests/m4a/decoded.h"
#include "tests/m4a/recording.h"
#include "tests/support/why_not.h"

namespace linux_host::test {

std::ostream& operator<<(std::ostream& out, const IndexedPacket& packet) {
  return out << packet.size << " bytes at " << packet.offset;
}
bool operator==(const IndexedPacket& a, const IndexedPacket& b) {
  return a.offset == b.offset && a.size == b.size;
}

namespace {

using Outcome = M4aRecovery::Outcome;
using ::testing::HasSubstr;

const Format kSmall{8000, 1, 24000};
constexpr std::uint64_t kSmall_frames = 20000;

struct Recovered {
  M4aRecovery report;
  std::vector<std::byte> bytes;
};

Recovered recover(std::vector<std::byte> bytes) {
  auto file = std::make_shared<MemoryFile>();
  file->bytes = std::move(bytes);
  MemorySink sink(file);
  const auto report = recoverInterruptedM4a(sink);
  EXPECT_EQ(test_support::whyNot(report), "");
  return {report ? *report : M4aRecovery(), file->bytes};
}

// The packets of a growing file: those of the finished recording of the same sound that are
// complete before `size_bytes`.
std::vector<IndexedPacket> packetsBefore(const std::vector<std::byte>& finished,
                                         std::uint64_t size_bytes) {
  std::string why;
  auto index = walkIndex(finished, &why);
  EXPECT_TRUE(index) << why;
  std::vector<IndexedPacket> packets;
  for (const IndexedPacket& packet : index->packets) {
    if (packet.offset + packet.size <= size_bytes) packets.push_back(packet);
  }
  return packets;
}

std::size_t headSize_bytes(FileBytes growing) {
  return walkBoxes(growing)->at(3).offset;
}

TEST(M4aRecoveryTest, CompletesAFileCutAtAnyByteWithEveryWholePacket) {
  const auto growing = interruptedRecording(kSmall_frames, kSmall);
  const auto finished = finishedRecording(kSmall_frames, kSmall);
  const std::size_t head_bytes = headSize_bytes(growing);
  for (std::size_t cut = 0; cut <= growing.size(); ++cut) {
    const std::vector<std::byte> torn(growing.begin(),
                                      growing.begin() + static_cast<std::ptrdiff_t>(cut));
    const auto [report, bytes] = recover(torn);
    if (cut < head_bytes) {
      ASSERT_EQ(report.outcome, Outcome::notARecording) << cut;
      ASSERT_EQ(bytes, torn);
      continue;
    }
    ASSERT_EQ(report.outcome, Outcome::completed) << cut;
    ASSERT_EQ(topLevel(bytes), "ftyp mdat moov") << cut;
    std::string why;
    const auto index = walkIndex(bytes, &why);
    ASSERT_TRUE(index) << cut << " " << why;
    auto expected = packetsBefore(finished, cut);
    if (expected.size() == 1) expected.clear();  // only the encoder's delay
    ASSERT_EQ(index->packets, expected) << cut;
    const std::uint64_t held = expected.size() * 1024;
    ASSERT_EQ(report.frames, held > 1024 ? held - 1024 : 0);
    ASSERT_EQ(index->movieDuration, report.frames);
    ASSERT_EQ(report.sampleRate_hz, 8000U);
    if (cut % 61 != 0) continue;
    const auto decoded = decodeM4a(bytes);
    ASSERT_EQ(decoded.error, "") << cut;
    ASSERT_EQ(decoded.containerFrames, report.frames);
  }
}

TEST(M4aRecoveryTest, RecoveredSoundIsTheRecordedSound) {
  const Format format{48000, 2, 256000};
  const auto [report, bytes] = recover(interruptedRecording(3 * 48000, format));
  ASSERT_EQ(report.outcome, Outcome::completed);
  const auto decoded = decodeM4a(bytes);
  ASSERT_EQ(decoded.error, "");
  EXPECT_GE(decoded.containerFrames + 48000 * 35 / 100, 3U * 48000);
  ASSERT_EQ(decoded.planes.size(), 2U);
  for (std::uint32_t channel = 0; channel < 2; ++channel) {
    const std::span second(decoded.planes[channel].data() + 48000, 48000);
    EXPECT_NEAR(amplitudeAt(second, Tone::frequency_hz(channel), 48000), 0.25, 0.01);
  }
}

TEST(M4aRecoveryTest, KeepsTheTimeOfTheRecording) {
  auto growing = interruptedRecording(kSmall_frames, kSmall);
  const auto header = boxAt(growing, "moov/mvhd");
  ASSERT_TRUE(header);
  growing[header->offset + 12] = std::byte{0xaa};
  const auto creationTime = bigEndian(growing, header->offset + 12, 4);
  std::string why;
  const auto index = walkIndex(recover(growing).bytes, &why);
  ASSERT_TRUE(index) << why;
  EXPECT_EQ(index->creationTime, creationTime);
}

TEST(M4aRecoveryTest, KeepsTitleAndDate) {
  Recording recording(kSmall, {}, {"Audio recording 2024-05-17 at 14.03.27", 1715954607});
  ASSERT_EQ(recording.openError, "");
  ASSERT_EQ(recording.feed(kSmall_frames), "");
  auto before = decodeM4a(recording.file->bytes).tags;
  ASSERT_EQ(before["title"], "Audio recording 2024-05-17 at 14.03.27");
  const auto [report, bytes] = recover(recording.file->bytes);
  ASSERT_EQ(report.outcome, Outcome::completed);
  auto after = decodeM4a(bytes).tags;
  EXPECT_EQ(after["title"], before["title"]);
  EXPECT_EQ(after["date"], before["date"]);
  EXPECT_EQ(after["creation_time"], before["creation_time"]);
}

TEST(M4aRecoveryTest, SecondInterruptionAtAnyStepChangesNothingInTheEnd) {
  const auto growing = interruptedRecording(kSmall_frames, kSmall);
  const auto boxes = walkBoxes(growing);
  ASSERT_TRUE(boxes);
  std::vector<std::byte> torn(growing.begin(), growing.end() - 100);
  std::string why;
  const auto expected = walkIndex(recover(torn).bytes, &why);
  ASSERT_TRUE(expected) << why;
  int interruptions = 0;
  for (int operation = 1;; ++operation) {
    auto file = std::make_shared<MemoryFile>();
    file->bytes = torn;
    file->failingOperation = operation;
    file->failsFromThenOn = true;
    MemorySink sink(file);
    const auto report = recoverInterruptedM4a(sink);
    if (report) break;
    ++interruptions;
    EXPECT_NE(report.error(), "");
    EXPECT_FALSE(decodeM4a(file->bytes).planes.empty());
    const auto index = walkIndex(recover(file->bytes).bytes, &why);
    ASSERT_TRUE(index) << why;
    EXPECT_EQ(index->packets, expected->packets) << "interrupted at operation " << operation;
  }
  EXPECT_EQ(interruptions, 4);  // torn media, torn end, index, head
}

TEST(M4aRecoveryTest, LeavesACompleteFileAlone) {
  const auto finished = finishedRecording(kSmall_frames, kSmall);
  const auto [report, bytes] = recover(finished);
  EXPECT_EQ(report.outcome, Outcome::alreadyComplete);
  EXPECT_EQ(bytes, finished);
  const auto [again, bytesAgain] =
      recover(recover(interruptedRecording(kSmall_frames, kSmall)).bytes);
  EXPECT_EQ(again.outcome, Outcome::alreadyComplete);
}

TEST(M4aRecoveryTest, RebuildsTheIndexThatACompleteFileLost) {
  const auto finished = finishedRecording(kSmall_frames, kSmall);
  const auto index = boxAt(finished, "moov");
  ASSERT_TRUE(index);
  for (std::size_t kept = 0; kept < index->size; ++kept) {
    std::vector<std::byte> torn(
        finished.begin(), finished.begin() + static_cast<std::ptrdiff_t>(index->offset + kept));
    const auto [report, bytes] = recover(std::move(torn));
    ASSERT_EQ(report.outcome, Outcome::completed) << kept;
    std::string why;
    const auto rebuilt = walkIndex(bytes, &why);
    ASSERT_TRUE(rebuilt) << why;
    ASSERT_EQ(rebuilt->packets, packetsBefore(finished, finished.size()));
  }
}

TEST(M4aRecoveryTest, SkipsDamageAndKeepsTheFragmentsBehindIt) {
  const auto growing = interruptedRecording(10 * kSmall_frames, kSmall);
  const auto boxes = walkBoxes(growing);
  ASSERT_TRUE(boxes);
  std::string why;
  const auto whole = walkIndex(recover(growing).bytes, &why);
  ASSERT_TRUE(whole) << why;
  int fragments = 0;
  for (std::size_t damaged = 3; damaged + 1 < boxes->size(); ++damaged) {
    if (boxes->at(damaged).type != "moof") continue;
    ++fragments;
    auto bytes = growing;
    for (std::uint64_t i = 0; i < boxes->at(damaged).size; ++i) {
      bytes[boxes->at(damaged).offset + i] = std::byte{0};
    }
    const WalkedBox lost = boxes->at(damaged + 1);
    auto expected = whole->packets;
    std::erase_if(expected, [&](const IndexedPacket& packet) {
      return packet.offset > lost.offset && packet.offset < lost.offset + lost.size;
    });
    const auto index = walkIndex(recover(bytes).bytes, &why);
    ASSERT_TRUE(index) << why;
    ASSERT_EQ(index->packets, expected) << "without fragment " << damaged;
  }
  EXPECT_GT(fragments, 20);
}

TEST(M4aRecoveryTest, KeepsFragmentsBehindALongStretchOfGarbage) {
  const auto growing = interruptedRecording(2 * kSmall_frames, kSmall);
  const auto boxes = walkBoxes(growing);
  ASSERT_TRUE(boxes);
  std::mt19937 random(7);
  for (const std::size_t stretch_bytes : {1U, 65531U, 65536U, 200001U}) {
    auto bytes = growing;
    std::vector<std::byte> stretch(stretch_bytes);
    for (auto& byte : stretch) byte = std::byte(random() & 0xff);
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(boxes->at(5).offset), stretch.begin(),
                 stretch.end());
    const auto [report, recovered] = recover(bytes);
    EXPECT_EQ(report.outcome, Outcome::completed);
    EXPECT_EQ(report.frames, recover(growing).report.frames) << stretch_bytes;
  }
}

TEST(M4aRecoveryTest, LeavesForeignFilesAlone) {
  std::vector<std::vector<std::byte>> foreign(4);
  foreign[1].resize(3);
  foreign[2].resize(100000);
  const auto recording = interruptedRecording(kSmall_frames, kSmall);
  foreign[3].assign(recording.begin() + 48, recording.end());
  for (const auto& file : foreign) {
    const auto [report, bytes] = recover(file);
    EXPECT_EQ(report.outcome, Outcome::notARecording);
    EXPECT_EQ(bytes, file);
  }
}

TEST(M4aRecoveryTest, SurvivesAnyBytes) {
  const auto growing = interruptedRecording(kSmall_frames, kSmall);
  const auto finished = finishedRecording(kSmall_frames, kSmall);
  std::mt19937 random(20261120);
  int completed = 0;
  for (int round = 0; round < 3000; ++round) {
    auto bytes = round % 2 == 0 ? growing : finished;
    const auto changes = 1 + random() % 20;
    for (unsigned i = 0; i < changes; ++i)
      bytes[random() % bytes.size()] = std::byte(random() & 0xff);
    // Parsers wrongly trust sizes and counts: most damage is done there.
    const auto boxes = walkBoxes(growing);
    const auto& victim = boxes->at(random() % boxes->size());
    bytes[victim.offset + random() % std::min<std::uint64_t>(victim.size, 120)] ^=
        std::byte(1U << random() % 8);
    if (random() % 4 == 0) bytes.resize(random() % bytes.size());
    const auto [report, recovered] = recover(bytes);
    if (report.outcome == Outcome::notARecording) {
      EXPECT_EQ(recovered, bytes);
    }
    if (report.outcome != Outcome::completed) continue;
    ++completed;
    ASSERT_EQ(topLevel(recovered), "ftyp mdat moov");
    EXPECT_EQ(recover(recovered).report.outcome, Outcome::alreadyComplete);
  }
  EXPECT_GT(completed, 500);
}

TEST(M4aRecoveryTest, RecordingWithoutASinglePacketBecomesAValidEmptyFile) {
  Recording recording(kSmall);
  const auto [report, bytes] = recover(recording.file->bytes);
  EXPECT_EQ(report.outcome, Outcome::completed);
  EXPECT_EQ(report.frames, 0U);
  EXPECT_EQ(topLevel(bytes), "ftyp mdat moov");
  EXPECT_TRUE(decodeM4a(bytes).opened);
}

}  // namespace
}  // namespace linux_host::test
