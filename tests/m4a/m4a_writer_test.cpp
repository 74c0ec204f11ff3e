// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <numbers>
#include <optional>

#include "tests/m4a/box_walker.h"
#include "tests/m4a/decoded.h"
#include "tests/m4a/recording.h"
#include "tests/support/why_not.h"

namespace linux_host::test {
namespace {

using test_support::whyNot;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::uint64_t kUnixEpochIn1904_s = 2082844800;
constexpr double kHalfADecibel = 0.25 * 0.056;

void expectTone(const Decoded& decoded, std::uint32_t channels) {
  ASSERT_EQ(decoded.planes.size(), channels);
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    // Whole seconds contain whole periods of every tone.
    const auto& plane = decoded.planes[channel];
    const auto rate = static_cast<std::size_t>(decoded.sampleRate_hz);
    ASSERT_GE(plane.size(), rate);
    const std::span second(plane.data(), rate);
    EXPECT_NEAR(amplitudeAt(second, Tone::frequency_hz(channel), decoded.sampleRate_hz), 0.25,
                kHalfADecibel)
        << "channel " << channel;
    const auto other = Tone::frequency_hz(channel) + 75;
    EXPECT_LT(amplitudeAt(second, other, decoded.sampleRate_hz), 0.01) << "channel " << channel;
  }
}

class FormatTest : public ::testing::TestWithParam<Format> {};

TEST_P(FormatTest, ToneComesBackInEveryChannelAtItsLevelAndPlace) {
  const Format& format = GetParam();
  const std::uint64_t frames = format.sampleRate_hz + 777;
  auto decoded = decodeM4a(finishedRecording(frames, format));
  ASSERT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.sampleRate_hz, static_cast<int>(format.sampleRate_hz));
  EXPECT_EQ(decoded.channels, static_cast<int>(format.channels));
  decoded.cutToContainer();
  expectTone(decoded, format.channels);
  for (const auto& plane : decoded.planes) EXPECT_EQ(plane.size(), frames);
}

TEST_P(FormatTest, FirstFrameIsTheFirstRecorded) {
  const Format& format = GetParam();
  auto decoded = decodeM4a(finishedRecording(format.sampleRate_hz, format));
  ASSERT_EQ(decoded.error, "");
  // Including the sine's phase: a shift by one frame would show as 2 pi f / rate times the
  // amplitude.
  Tone tone(format);
  const float* const* expected = tone.next(format.sampleRate_hz);
  double difference = 0;
  double shifted = 0;
  for (std::size_t i = 2048; i < format.sampleRate_hz - 2048; ++i) {
    difference += std::abs(decoded.planes[0][i] - expected[0][i]);
    shifted += std::abs(decoded.planes[0][i + 1] - expected[0][i]);
  }
  EXPECT_LT(difference, shifted);
}

std::string formatName(const ::testing::TestParamInfo<Format>& info) {
  return std::to_string(info.param.sampleRate_hz) + "Hz" + std::to_string(info.param.channels) +
         "Channels";
}

INSTANTIATE_TEST_SUITE_P(All, FormatTest,
                         ::testing::Values(Format{48000, 1, 128000}, Format{48000, 2, 256000},
                                           Format{48000, 3, 256000}, Format{48000, 4, 256000},
                                           Format{48000, 5, 320000}, Format{48000, 6, 384000},
                                           Format{48000, 8, 512000}, Format{44100, 1, 80000},
                                           Format{44100, 2, 160000}, Format{44100, 6, 384000},
                                           Format{96000, 1, 128000}, Format{96000, 2, 256000},
                                           Format{96000, 6, 384000}, Format{8000, 1, 40000},
                                           Format{16000, 1, 40000}, Format{32000, 2, 80000}),
                         formatName);

TEST(M4aWriterTest, EachInputOfALargeInterfaceIsHeardOnBothSides) {
  constexpr std::uint32_t kChannels = 12;
  constexpr std::uint32_t kSecond_frames = 48000;
  const std::vector<float> silence(kSecond_frames, 0.0F);
  Tone tone({48000, 1, 0});
  const float* sound = tone.next(kSecond_frames)[0];
  for (const std::size_t channel : {0, 5, 11}) {
    Recording recording({48000, kChannels, 256000});
    ASSERT_EQ(recording.openError, "");
    std::vector<const float*> planes(kChannels, silence.data());
    planes[channel] = sound;
    ASSERT_EQ(whyNot(recording.writer.write(planes.data(), kSecond_frames)), "");
    ASSERT_EQ(whyNot(recording.writer.finish()), "");
    const auto decoded = decodeM4a(recording.file->bytes);
    ASSERT_EQ(decoded.planes.size(), 2U);
    for (const auto& plane : decoded.planes) {
      const double level = amplitudeAt(std::span(plane.data(), kSecond_frames), 400, 48000);
      EXPECT_NEAR(level, 0.25 * std::numbers::sqrt2 / 2, kHalfADecibel) << "channel " << channel;
    }
  }
}

struct RateConversion {
  std::uint32_t from_hz;
  std::uint32_t to_hz;
};

class RateFallbackTest : public ::testing::TestWithParam<RateConversion> {};

TEST_P(RateFallbackTest, ConvertsToTheNearestRateOfAac) {
  const auto [from_hz, to_hz] = GetParam();
  auto decoded = decodeM4a(finishedRecording(2 * from_hz, {from_hz, 2, 256000}));
  ASSERT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.sampleRate_hz, static_cast<int>(to_hz));
  EXPECT_NEAR(static_cast<double>(decoded.containerFrames), 2.0 * to_hz, 2.0);
  expectTone(decoded, 2);
}

INSTANTIATE_TEST_SUITE_P(All, RateFallbackTest,
                         ::testing::Values(RateConversion{192000, 96000},
                                           RateConversion{176400, 96000},
                                           RateConversion{50000, 48000},
                                           RateConversion{47000, 48000}));

class LengthTest : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(LengthTest, EveryStatementOfTheLengthIsExact) {
  const std::uint64_t frames = GetParam();
  for (const std::uint32_t channels : {1U, 2U}) {
    const auto bytes = finishedRecording(frames, {44100, channels, 80000});
    std::string why;
    const auto index = walkIndex(bytes, &why);
    ASSERT_TRUE(index) << why;
    EXPECT_EQ(index->movieTimescale, 44100U);
    EXPECT_EQ(index->mediaTimescale, 44100U);
    EXPECT_EQ(index->movieDuration, frames);
    EXPECT_EQ(index->trackDuration, frames);
    EXPECT_EQ(index->edits, 1U);
    EXPECT_EQ(index->editDuration, frames);
    EXPECT_EQ(index->editStart, 1024U);
    EXPECT_EQ(index->mediaDuration, 1024 + frames);
    EXPECT_EQ(index->mediaHeaderDuration, index->mediaDuration);

    const auto decoded = decodeM4a(bytes);
    ASSERT_EQ(decoded.error, "");
    EXPECT_EQ(decoded.containerFrames, frames);
    EXPECT_EQ(decoded.packetFrames, frames);
    // libav decodes the last packet completely; a player stops at the end of the edit.
    EXPECT_EQ(decoded.planes.at(0).size(), (frames + 1023) / 1024 * 1024);
  }
}

INSTANTIATE_TEST_SUITE_P(All, LengthTest,
                         ::testing::Values(1, 2, 479, 480, 481, 1000, 1023, 1024, 1025, 2047, 2048,
                                           2049, 10 * 1024, 10 * 1024 - 1, 10 * 1024 + 1, 12345,
                                           44099, 44100, 44101, 65537, 100003));

TEST(M4aWriterTest, RecordingHasExactlyTheFramesItWasGivenWhateverTheBlockSizes) {
  for (const std::uint32_t piece : {1U, 7U, 1023U, 1024U, 1025U, 5000U}) {
    Recording recording;
    std::uint64_t fed = 0;
    for (; fed < 10000; fed += piece)
      ASSERT_EQ(whyNot(recording.writer.write(recording.tone.next(piece), piece)), "");
    ASSERT_EQ(whyNot(recording.writer.write(nullptr, 0)), "");
    ASSERT_EQ(whyNot(recording.writer.finish()), "");
    EXPECT_EQ(decodeM4a(recording.file->bytes).containerFrames, fed) << "pieces of " << piece;
  }
}

TEST(M4aWriterTest, FinishedFileIsAPlainMp4) {
  const auto bytes = finishedRecording(5 * 48000);
  EXPECT_EQ(topLevel(bytes), "ftyp mdat moov");
  EXPECT_FALSE(boxAt(bytes, "moov/mvex"));
  std::string why;
  const auto index = walkIndex(bytes, &why);
  ASSERT_TRUE(index) << why;
  EXPECT_EQ(index->packets.size(), (5U * 48000 + 1023) / 1024 + 1);
}

TEST(M4aWriterTest, IndexPointsAtTheSamePacketsAsTheFragmentsDid) {
  Recording recording;
  ASSERT_EQ(recording.feed(3 * 48000), "");
  const auto growing = recording.file->bytes;
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  std::string why;
  const auto index = walkIndex(recording.file->bytes, &why);
  ASSERT_TRUE(index) << why;
  const auto boxes = walkBoxes(growing);
  ASSERT_TRUE(boxes);
  std::size_t packet = 0;
  for (const auto& box : *boxes) {
    if (box.type != "mdat") continue;
    std::uint64_t position = box.offset + box.header;
    while (position < box.offset + box.size) {
      ASSERT_LT(packet, index->packets.size());
      ASSERT_EQ(index->packets[packet].offset, position);
      position += index->packets[packet++].size;
    }
    EXPECT_EQ(position, box.offset + box.size);
  }
  EXPECT_GT(packet, 100U);
}

TEST(M4aWriterTest, BrandsSayWhatTheFileIsBeforeAndAfter) {
  Recording recording;
  ASSERT_EQ(recording.feed(48000), "");
  const auto brands = [&] {
    std::string text;
    const auto box = boxAt(recording.file->bytes, "ftyp");
    if (!box) return text;
    for (std::uint64_t at = 8; at < box->size; at += 4) {
      if (at == 12) continue;  // the minor version
      for (std::uint64_t i = 0; i < 4; ++i) {
        text += static_cast<char>(recording.file->bytes[box->offset + at + i]);
      }
      text += ';';
    }
    return text;
  };
  EXPECT_EQ(brands(), "M4A ;M4A ;mp42;isom;iso6;");
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_EQ(brands(), "M4A ;M4A ;mp42;isom;iso2;");
}

TEST(M4aWriterTest, CreationTimeIsTheMomentOfTheOpening) {
  const auto before = static_cast<std::uint64_t>(std::time(nullptr)) + kUnixEpochIn1904_s;
  Recording recording;
  ASSERT_EQ(recording.feed(48000), "");
  const auto after = static_cast<std::uint64_t>(std::time(nullptr)) + kUnixEpochIn1904_s;
  const auto movie = boxAt(recording.file->bytes, "moov/mvhd");
  ASSERT_TRUE(movie);
  const auto growing = bigEndian(recording.file->bytes, movie->offset + 12, 4);
  EXPECT_THAT(growing, ::testing::AllOf(::testing::Ge(before), ::testing::Le(after)));
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  std::string why;
  const auto index = walkIndex(recording.file->bytes, &why);
  ASSERT_TRUE(index) << why;
  EXPECT_EQ(index->creationTime, growing);
}

// Sets the process's time zone for its lifetime.
class InTimeZone {
 public:
  explicit InTimeZone(const char* name) {
    if (const char* before = getenv("TZ")) before_ = before;
    setenv("TZ", name, 1);
    tzset();
  }
  ~InTimeZone() {
    if (before_) {
      setenv("TZ", before_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  InTimeZone(const InTimeZone&) = delete;
  InTimeZone& operator=(const InTimeZone&) = delete;

 private:
  std::optional<std::string> before_;
};

TEST(M4aWriterTest, GrowingAndFinishedFileHaveTheTitleAndTheLocalDate) {
  const InTimeZone zone("XYZ-5:30");  // five and a half hours ahead
  const M4aLabels labels{"Tonaufnahme 2024-05-18 um 00.33.27 \xe2\x80\x93 \xc3\xa4",
                         1715972607};  // 2024-05-17 19:03:27 UTC
  Recording recording(Format{}, {}, labels);
  ASSERT_EQ(recording.openError, "");
  ASSERT_EQ(recording.feed(48000), "");
  const Decoded growing = decodeM4a(recording.file->bytes);
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  const Decoded finished = decodeM4a(recording.file->bytes);
  for (auto tags : {growing.tags, finished.tags}) {
    EXPECT_EQ(tags["title"], labels.title);
    EXPECT_EQ(tags["date"], "2024-05-18T00:33:27+05:30");
    EXPECT_EQ(tags["creation_time"], "2024-05-17T19:03:27.000000Z");
  }
}

TEST(M4aWriterTest, WithoutLabelsThereIsNoTitle) {
  const auto tags = decodeM4a(finishedRecording(4800)).tags;
  EXPECT_EQ(tags.count("title"), 0U);
  EXPECT_EQ(tags.count("date"), 0U);
}

TEST(M4aWriterTest, TitlesOfAnyLengthAndBytesDoNoHarm) {
  for (const std::string& title : {std::string(100000, 'x'), std::string("a\x01\xff\n")}) {
    Recording recording(Format{}, {}, {title, 1});
    ASSERT_EQ(recording.openError, "");
    ASSERT_EQ(recording.feed(4800), "");
    ASSERT_EQ(whyNot(recording.writer.finish()), "");
    const Decoded decoded = decodeM4a(recording.file->bytes);
    EXPECT_EQ(decoded.error, "");
    EXPECT_EQ(decoded.containerFrames, 4800U);
  }
}

TEST(M4aWriterTest, GrowingFileHasAFragmentForEveryQuarterOfASecond) {
  for (const Format& format : {Format{48000, 2, 256000}, Format{44100, 1, 40000},
                               Format{96000, 2, 256000}, Format{8000, 1, 40000}}) {
    const auto bytes = interruptedRecording(10 * format.sampleRate_hz, format);
    const std::string boxes = topLevel(bytes);
    EXPECT_THAT(boxes, ::testing::StartsWith("ftyp free moov moof mdat moof mdat"));
    std::size_t fragments = 0;
    for (std::size_t at = boxes.find("moof"); at != std::string::npos;
         at = boxes.find("moof", at + 1)) {
      ++fragments;
    }
    EXPECT_GE(fragments, 36U);
    EXPECT_LE(fragments, 44U);
  }
}

TEST(M4aWriterTest, FragmentsCostLittle) {
  const auto bytes = interruptedRecording(10 * 48000, {48000, 2, 160000});
  std::uint64_t heads = 0;
  const auto boxes = walkBoxes(bytes);
  ASSERT_TRUE(boxes);
  for (const auto& box : *boxes) heads += box.type == "mdat" ? box.header : box.size;
  EXPECT_LT(static_cast<double>(heads), 0.05 * static_cast<double>(bytes.size()));
}

TEST(M4aWriterTest, NoSamplesGiveAValidFileOfLengthZero) {
  const auto bytes = finishedRecording(0);
  EXPECT_EQ(topLevel(bytes), "ftyp mdat moov");
  std::string why;
  const auto index = walkIndex(bytes, &why);
  ASSERT_TRUE(index) << why;
  EXPECT_TRUE(index->packets.empty());
  EXPECT_EQ(index->movieDuration, 0U);
  const auto decoded = decodeM4a(bytes);
  EXPECT_TRUE(decoded.opened);
  EXPECT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.containerFrames, 0U);
}

TEST(M4aWriterTest, ValuesThatAreNotNumbersCountAsSilenceAndDoNoHarm) {
  const Format format{48000, 1, 128000};
  Recording recording(format);
  ASSERT_EQ(recording.openError, "");
  std::vector<float> bad(48000, 0.0F);
  bad[0] = std::numeric_limits<float>::quiet_NaN();
  bad[5000] = std::numeric_limits<float>::infinity();
  bad[5001] = -std::numeric_limits<float>::infinity();
  bad[9000] = std::numeric_limits<float>::signaling_NaN();
  const float* planes[] = {bad.data()};
  ASSERT_EQ(whyNot(recording.writer.write(planes, 48000)), "");
  ASSERT_EQ(recording.feed(48000), "");
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  const auto decoded = decodeM4a(recording.file->bytes);
  ASSERT_EQ(decoded.error, "");
  EXPECT_EQ(decoded.containerFrames, 96000U);
  for (std::size_t i = 0; i < 46000; ++i) ASSERT_LT(std::abs(decoded.planes[0][i]), 1e-3F) << i;
  EXPECT_NEAR(amplitudeAt(std::span(decoded.planes[0]).subspan(50000, 24000), 400, 48000), 0.25,
              0.01);
}

TEST(M4aWriterTest, HugeValuesAreTaken) {
  Recording recording({48000, 1, 128000});
  const std::vector<float> huge(10000, std::numeric_limits<float>::max());
  const float* planes[] = {huge.data()};
  EXPECT_EQ(whyNot(recording.writer.write(planes, 10000)), "");
  EXPECT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_EQ(decodeM4a(recording.file->bytes).containerFrames, 10000U);
}

TEST(M4aWriterTest, FinishCostsOnlyTheIndexHoweverLongTheRecording) {
  Recording recording({8000, 1, 24000});
  constexpr std::uint32_t kSecond_frames = 8000;
  constexpr std::uint64_t kLength_s = 2400;
  const std::vector<float> silence(kSecond_frames, 0.0F);
  const float* planes[] = {silence.data()};
  for (std::uint64_t second = 0; second < kLength_s; ++second) {
    ASSERT_EQ(whyNot(recording.writer.write(planes, kSecond_frames)), "");
  }
  const int operations = recording.file->operations;
  const std::size_t growing_bytes = recording.file->bytes.size();
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
  EXPECT_LE(recording.file->operations - operations, 4);  // last fragments, index, head
  const std::uint64_t packets = kLength_s * kSecond_frames / 1024 + 1;
  EXPECT_LT(recording.file->bytes.size() - growing_bytes, packets * 9);
  std::string why;
  const auto index = walkIndex(recording.file->bytes, &why);
  ASSERT_TRUE(index) << why;
  EXPECT_EQ(index->movieDuration, kLength_s * kSecond_frames);
}

TEST(M4aWriterTest, FinishClosesTheFileAndMayBeCalledAgain) {
  Recording recording;
  ASSERT_EQ(recording.feed(4800), "");
  EXPECT_FALSE(recording.file->closed);
  EXPECT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_TRUE(recording.file->closed);
  const auto bytes = recording.file->bytes;
  EXPECT_EQ(whyNot(recording.writer.finish()), "");
  EXPECT_EQ(recording.file->bytes, bytes);
  EXPECT_NE(recording.feed(10), "");
}

TEST(M4aWriterTest, RefusesWhatCannotBeRecorded) {
  for (const Format& format :
       {Format{48000, 0, 128000}, Format{0, 2, 128000}, Format{48000, 2, 0}}) {
    Recording recording(format);
    EXPECT_THAT(recording.openError, HasSubstr("m4a"));
    EXPECT_TRUE(recording.file->bytes.empty());
    EXPECT_NE(whyNot(recording.writer.write(nullptr, 0)), "");
    EXPECT_EQ(whyNot(recording.writer.finish()), "");
  }
}

}  // namespace
}  // namespace linux_host::test
