// SPDX-License-Identifier: MIT
// Which calls reach LAME, in which order and with which values. The linker redirects each of the
// recorder's calls to the functions named __wrap_ here.

#include <lame/lame.h>

#include <cstring>
#include <optional>

#include "tests/capture/recorder_fixture.h"

namespace {

std::vector<std::string> g_calls;
bool g_failInit = false;
std::optional<int> g_encodeResult;  // what the next encoding call returns
std::optional<int> g_flushResult;   // what each flush returns
bool g_sameChannels = false;
std::vector<std::uint32_t> g_words;  // of the last encoding call

void note(const std::string& name, long value) {
  g_calls.push_back(name + " " + std::to_string(value));
}

std::optional<int> noteEncode(const char* name, const void* left, const void* right, int count,
                              int room_bytes) {
  g_sameChannels = left == right;
  g_words.resize(static_cast<std::size_t>(count));
  std::memcpy(g_words.data(), left, g_words.size() * sizeof(std::uint32_t));
  g_calls.push_back(std::string(name) + " " + std::to_string(count) + " " +
                    std::to_string(room_bytes));
  return std::exchange(g_encodeResult, std::nullopt);
}

}  // namespace

// NOLINTBEGIN: names made by the linker's option.
extern "C" {
lame_t __real_lame_init();
int __real_lame_set_num_channels(lame_t, int);
int __real_lame_set_in_samplerate(lame_t, int);
int __real_lame_set_brate(lame_t, int);
int __real_lame_set_quality(lame_t, int);
int __real_lame_set_mode(lame_t, MPEG_mode);
int __real_lame_init_params(lame_t);
int __real_lame_encode_buffer_int(lame_t, const int*, const int*, int, unsigned char*, int);
int __real_lame_encode_buffer_ieee_float(lame_t, const float*, const float*, int, unsigned char*,
                                         int);
int __real_lame_encode_flush(lame_t, unsigned char*, int);
int __real_lame_close(lame_t);

lame_t __wrap_lame_init() {
  g_calls.push_back("init");
  return g_failInit ? nullptr : __real_lame_init();
}
int __wrap_lame_set_num_channels(lame_t lame, int value) {
  note("num_channels", value);
  return __real_lame_set_num_channels(lame, value);
}
int __wrap_lame_set_in_samplerate(lame_t lame, int value) {
  note("in_samplerate", value);
  return __real_lame_set_in_samplerate(lame, value);
}
int __wrap_lame_set_brate(lame_t lame, int value) {
  note("brate", value);
  return __real_lame_set_brate(lame, value);
}
int __wrap_lame_set_quality(lame_t lame, int value) {
  note("quality", value);
  return __real_lame_set_quality(lame, value);
}
int __wrap_lame_set_mode(lame_t lame, MPEG_mode value) {
  note("mode", value);
  return __real_lame_set_mode(lame, value);
}
int __wrap_lame_init_params(lame_t lame) {
  g_calls.push_back("init_params");
  return __real_lame_init_params(lame);
}
int __wrap_lame_encode_buffer_int(lame_t lame, const int* left, const int* right, int count,
                                  unsigned char* output, int room_bytes) {
  const auto forced = noteEncode("encode_int", left, right, count, room_bytes);
  const int real = __real_lame_encode_buffer_int(lame, left, right, count, output, room_bytes);
  return forced.value_or(real);
}
int __wrap_lame_encode_buffer_ieee_float(lame_t lame, const float* left, const float* right,
                                         int count, unsigned char* output, int room_bytes) {
  const auto forced = noteEncode("encode_float", left, right, count, room_bytes);
  const int real =
      __real_lame_encode_buffer_ieee_float(lame, left, right, count, output, room_bytes);
  return forced.value_or(real);
}
int __wrap_lame_encode_flush(lame_t lame, unsigned char* output, int room_bytes) {
  note("flush", room_bytes);
  const int real = __real_lame_encode_flush(lame, output, room_bytes);
  return g_flushResult.value_or(real);
}
int __wrap_lame_close(lame_t lame) {
  g_calls.push_back("close");
  return __real_lame_close(lame);
}
}
// NOLINTEND

namespace {

using namespace capture_test;
using memory_host::MemorySampleBuffer;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class LameCallsTest : public RecorderFixture {
 protected:
  LameCallsTest() {
    g_calls.clear();
    g_failInit = false;
    g_encodeResult.reset();
    g_flushResult.reset();
  }
  void deliverBuffer(std::shared_ptr<platform::SampleBuffer> buffer) {
    dataOutput().deliver(std::move(buffer));
    memory.runLoop.settle();
  }
  // What the journal says of the writes.
  [[nodiscard]] std::vector<std::string> writes() const {
    std::vector<std::string> found;
    for (const std::string& entry : memory.fileManager.journal) {
      if (entry.starts_with("write ")) found.push_back(entry);
    }
    return found;
  }
  // `bytes` as one channel of `bits`-bit samples.
  static std::shared_ptr<MemorySampleBuffer> samples(std::uint32_t bits,
                                                     std::uint32_t bytesPerFrame,
                                                     std::uint32_t flags,
                                                     const std::vector<int>& bytes) {
    platform::AudioStreamBasicDescription format;
    format.mFormatFlags = flags;
    format.mBytesPerFrame = bytesPerFrame;
    format.mChannelsPerFrame = 1;
    format.mBitsPerChannel = bits;
    std::vector<std::byte> data;
    for (const int byte : bytes) data.push_back(static_cast<std::byte>(byte));
    const auto count = static_cast<std::int64_t>(data.size() / bytesPerFrame);
    return std::make_shared<MemorySampleBuffer>(format, count, std::move(data));
  }
};

TEST_F(LameCallsTest, SetsTheEncoderUpWithTheseValuesInThisOrder) {
  record(kMp3);
  EXPECT_THAT(g_calls, ElementsAre("init", "num_channels 2", "in_samplerate 48000", "brate 320",
                                   "quality 2", "mode 1", "init_params"));
}

TEST_F(LameCallsTest, TakesRateAndQualityFromTheTableAndHighValuesForUnknownCodes) {
  const std::vector<std::vector<std::string>> expected{{"brate 320", "quality 2"},
                                                       {"brate 192", "quality 4"},
                                                       {"brate 96", "quality 7"},
                                                       {"brate 320", "quality 2"}};
  const std::vector<std::uint64_t> codes{0, 1, 2, 5};
  for (std::size_t i = 0; i < codes.size(); ++i) {
    g_calls.clear();
    record(kMp3, codes[i]);
    ASSERT_GE(g_calls.size(), 5U);
    EXPECT_EQ(std::vector(g_calls.begin() + 3, g_calls.begin() + 5), expected[i]);
    recorder->stopRecord();
    memory.runLoop.settle();
  }
}

TEST_F(LameCallsTest, RoundsTheRateToTheNearestIntegerHalvesAwayFromZero) {
  const std::vector<std::pair<double, std::string>> expected{{44099.6, "in_samplerate 44100"},
                                                             {44100.4, "in_samplerate 44100"},
                                                             {44100.5, "in_samplerate 44101"},
                                                             {96000, "in_samplerate 96000"}};
  for (const auto& [rate_hz, call] : expected) {
    addInputDevice(memory.audioHardware, kMicId, kMicUID, 2, rate_hz);
    g_calls.clear();
    record(kMp3);
    ASSERT_GE(g_calls.size(), 3U);
    EXPECT_EQ(g_calls[2], call);
    recorder->stopRecord();
    memory.runLoop.settle();
  }
}

// The layout is read into a record with room for one description, but it has the full count.
TEST_F(LameCallsTest, TakesTheChannelsFromTheNumberOfDescriptionsOfTheCutLayout) {
  for (const std::uint32_t channels : {1U, 2U, 6U}) {
    addInputDevice(memory.audioHardware, kMicId, kMicUID, channels);
    g_calls.clear();
    record(kMp3);
    ASSERT_GE(g_calls.size(), 2U);
    EXPECT_EQ(g_calls[1], "num_channels " + std::to_string(channels));
    recorder->stopRecord();
    memory.runLoop.settle();
  }
}

TEST_F(LameCallsTest, MakesNoEncoderWhenTheDeviceCannotBeRead) {
  memory.audioHardware.fail(kMicId, platform::kAudioDevicePropertyPreferredChannelLayout,
                            platform::kAudioDevicePropertyScopeInput,
                            platform::kAudioHardwareUnspecifiedError);
  record(kMp3);
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(LameCallsTest, ReportsAnEncoderThatCannotBeMade) {
  g_failInit = true;
  record(kMp3);
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, ElementsAre("init"));
  EXPECT_THAT(memory.suite.logLines, ElementsAre("En error occured while initializing lame"));
  EXPECT_EQ(errorCount, 1);
}

TEST_F(LameCallsTest, EncodesFloatWordsUnchangedAsBothChannels) {
  record(kMp3);
  g_calls.clear();
  deliverBuffer(memory_host::floatSampleBuffer({{0.5F, -1.0F, 0.25F}, {9.0F, 9.0F, 9.0F}}));
  EXPECT_THAT(g_calls, ElementsAre("encode_float 3 7206"));
  EXPECT_TRUE(g_sameChannels);
  EXPECT_THAT(g_words, ElementsAre(0x3F000000U, 0xBF800000U, 0x3E800000U));
}

TEST_F(LameCallsTest, EncodesIntegersOfEveryWidthAsIntegers) {
  record(kMp3);
  g_calls.clear();
  deliverBuffer(samples(8, 1, 0, {0x80, 0x01}));
  EXPECT_THAT(g_words, ElementsAre(0x80000000U, 0x01000000U));
  deliverBuffer(samples(16, 2, 0, {0xFF, 0xFF}));
  EXPECT_THAT(g_words, ElementsAre(0xFFFF0000U));
  deliverBuffer(samples(24, 3, 0, {0xFF, 0xFF, 0x7F}));
  EXPECT_THAT(g_words, ElementsAre(0x7FFFFF00U));
  deliverBuffer(samples(32, 4, 0, {1, 2, 3, 4}));
  EXPECT_THAT(g_words, ElementsAre(0x04030201U));
  EXPECT_THAT(g_calls, ElementsAre("encode_int 2 7204", "encode_int 1 7202", "encode_int 1 7202",
                                   "encode_int 1 7202"));
}

// The flag alone decides. No device delivers such samples.
TEST_F(LameCallsTest, EncodesNarrowSamplesWithTheFloatFlagAsFloats) {
  record(kMp3);
  g_calls.clear();
  deliverBuffer(samples(16, 2, platform::kAudioFormatFlagIsFloat, {0x80, 0x3F}));
  EXPECT_THAT(g_calls, ElementsAre("encode_float 1 7202"));
  EXPECT_THAT(g_words, ElementsAre(0x3F800000U));
}

TEST_F(LameCallsTest, EncodesNothingOfUnsupportedSamples) {
  record(kMp3);
  g_calls.clear();
  deliverBuffer(samples(64, 8, platform::kAudioFormatFlagIsFloat, {1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_THAT(g_calls, IsEmpty());
}

// LAME answers 0 while it is still collecting; one bad block must not end a recording.
TEST_F(LameCallsTest, WritesAsManyBytesAsTheEncoderAnswersAndNothingForZeroOrAnError) {
  record(kMp3);
  for (const int result : {-3, 0, 1}) {
    g_encodeResult = result;
    deliver(sine(440, 0.5, 1024));
  }
  EXPECT_THAT(writes(), ElementsAre(EndsWith(" 1")));
  EXPECT_TRUE(recorder->isRecording());
  EXPECT_THAT(memory.suite.logLines, IsEmpty());
}

TEST_F(LameCallsTest, WritesAsManyBytesAsTheFlushAnswersAndNothingForZeroOrAnError) {
  for (const int result : {-3, 0, 1}) {
    g_flushResult = result;
    record(kMp3);
    recorder->stopRecord();
    memory.runLoop.settle();
  }
  EXPECT_THAT(writes(), ElementsAre(EndsWith(" 1")));
}

TEST_F(LameCallsTest, FlushesClosesTheFileAndThenTheEncoder) {
  record(kMp3);
  memory.runLoop.settle();
  g_calls.clear();
  recorder->stopRecord();
  EXPECT_THAT(g_calls, IsEmpty());
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, ElementsAre("flush 7200", "close"));
  recorder.reset();
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, ElementsAre("flush 7200", "close"));
}

// A stop must not wait for the encoder, and it drops only hundredths of a second.
TEST_F(LameCallsTest, EncodesNothingThatWaitsAtTheStop) {
  record(kMp3);
  memory.runLoop.settle();
  g_calls.clear();
  encodeQueue().stalled = true;
  deliver(sine(440, 0.5, 4096));
  recorder->stopRecord();
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, ElementsAre("flush 7200", "close"));
}

TEST_F(LameCallsTest, NeitherEncodesNorFlushesAfterAFailedWrite) {
  record(kMp3);
  memory.runLoop.settle();
  encodeQueue().stalled = true;
  deliver(sine(440, 0.5, 10 * 1024));
  memory.fileManager.freeSpace_bytes = 0;
  g_calls.clear();
  g_encodeResult = 10;  // so the first block fails to be written
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  EXPECT_THAT(g_calls, ElementsAre("encode_float 1024 9248", "close"));
  EXPECT_EQ(errorCount, 1);
}

TEST_F(LameCallsTest, ClosesTheEncoderOfAFailedRecordingOnce) {
  record(kMp3);
  session().reportError("gone");
  memory.runLoop.settle();
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), "close"), 2);
  EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), "init"), 2);
}

}  // namespace
