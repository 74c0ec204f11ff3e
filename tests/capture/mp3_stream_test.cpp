// SPDX-License-Identifier: MIT
// Decodes the MP3 file and compares it with what was captured.

#include "tests/capture/mp3_decoding.h"
#include "tests/capture/recorder_fixture.h"

namespace {

using namespace capture_test;

class Mp3StreamTest : public RecorderFixture {
 protected:
  // The finished file of one recording of `samples`.
  std::string recorded(const std::vector<float>& samples, std::uint64_t quality = 0) {
    record(kMp3, quality);
    deliver(samples);
    recorder->stopRecord();
    memory.runLoop.settle();
    return memory.fileManager.contents(recorder->outputFilePath());
  }
};

// The frame sync of MPEG-1 layer III is at the very beginning.
void expectFrameAtFirstByte(const std::string& stream) {
  ASSERT_GE(stream.size(), 4U);
  EXPECT_EQ(static_cast<unsigned char>(stream[0]), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(stream[1]) & 0xFE, 0xFA);
}

TEST_F(Mp3StreamTest, HoldsTheToneOnBothChannelsFromItsFirstByte) {
  const auto stream = recorded(sine(1000, 0.5, 2 * 48000));
  expectFrameAtFirstByte(stream);
  const auto decoded = decodeMp3(stream);
  EXPECT_EQ(decoded.sampleRate_hz, 48000);
  EXPECT_EQ(decoded.channels, 2);
  EXPECT_EQ(decoded.bitrate, 320);
  for (const auto& channel : {decoded.left, decoded.right}) {
    const auto part = middle(channel);
    EXPECT_NEAR(rms(part), 0.5 / std::numbers::sqrt2, 0.003);
    EXPECT_GT(shareAt(part, 1000, 48000), 0.999);
  }
}

TEST_F(Mp3StreamTest, LosesNoMoreThanTheEncodersDelay) {
  const auto decoded = decodeMp3(recorded(sine(1000, 0.5, 2 * 48000)));
  // With the flush the file is complete. LAME and the decoder add their own delays.
  EXPECT_GE(decoded.left.size(), 2U * 48000);
  EXPECT_LE(decoded.left.size(), 2U * 48000 + 4 * 1152);
}

TEST_F(Mp3StreamTest, EncodesAMonoDeviceAsMono) {
  addInputDevice(memory.audioHardware, kMicId, kMicUID, 1);
  const auto decoded = decodeMp3(recorded(sine(440, 0.25, 48000)));
  EXPECT_EQ(decoded.channels, 1);
  EXPECT_NEAR(rms(middle(decoded.left)), 0.25 / std::numbers::sqrt2, 0.002);
  EXPECT_GT(shareAt(middle(decoded.left), 440, 48000), 0.999);
}

TEST_F(Mp3StreamTest, EncodesALayoutOfManyChannelsAsStereo) {
  addInputDevice(memory.audioHardware, kMicId, kMicUID, 6);
  const auto decoded = decodeMp3(recorded(sine(440, 0.25, 48000)));
  EXPECT_EQ(decoded.channels, 2);
  EXPECT_GT(shareAt(middle(decoded.right), 440, 48000), 0.999);
}

TEST_F(Mp3StreamTest, KeepsTheDevicesRate) {
  addInputDevice(memory.audioHardware, kMicId, kMicUID, 2, 44099.6);
  const auto decoded = decodeMp3(recorded(sine(1000, 0.5, 44100, 44100)));
  EXPECT_EQ(decoded.sampleRate_hz, 44100);
  EXPECT_GT(shareAt(middle(decoded.left), 1000, 44100), 0.999);
}

TEST_F(Mp3StreamTest, UsesTheBitRateOfEachQuality) {
  const std::vector<std::pair<std::uint64_t, int>> expected{{0, 320}, {1, 192}, {2, 96}, {5, 320}};
  for (const auto& [quality, bitrate] : expected) {
    EXPECT_EQ(decodeMp3(recorded(sine(440, 0.5, 24000), quality)).bitrate, bitrate)
        << "quality " << quality;
    memory.runLoop.advance(1);
  }
}

// What LAME makes of a sample rate and a bit rate, in figures. With few bits it lowers the level.
// The lower the sample rate, the longer are its delay and the padding of its last packets.
struct Reached {
  int rate_hz;
  std::uint64_t quality;
  int fileRate_hz;
  int bitrate;      // kbit/s
  double level;     // relative to what was captured
  double longer_s;  // than what was captured
};

TEST_F(Mp3StreamTest, HasTheRateTheLevelAndTheLengthThatLameGives) {
  for (const Reached& reached :
       {Reached{48000, 0, 48000, 320, 1.00, 0.05}, Reached{48000, 1, 48000, 192, 0.97, 0.05},
        Reached{48000, 2, 32000, 96, 0.95, 0.07}, Reached{16000, 0, 16000, 160, 0.95, 0.13},
        Reached{8000, 0, 8000, 64, 0.95, 0.24}}) {
    SCOPED_TRACE(std::to_string(reached.rate_hz) + " Hz, quality " +
                 std::to_string(reached.quality));
    addInputDevice(memory.audioHardware, kMicId, kMicUID, 2, reached.rate_hz);
    const auto tone =
        sine(1000, 0.5, 3 * static_cast<std::size_t>(reached.rate_hz), reached.rate_hz);
    const auto stream = recorded(tone, reached.quality);
    const auto decoded = decodeMp3(stream);
    EXPECT_EQ(decoded.sampleRate_hz, reached.fileRate_hz);
    const double length_s = static_cast<double>(decoded.left.size()) / reached.fileRate_hz;
    EXPECT_NEAR(static_cast<double>(stream.size()) * 8 / length_s / 1000, reached.bitrate,
                0.02 * reached.bitrate);
    EXPECT_NEAR(rms(middle(decoded.left)) * std::numbers::sqrt2 / 0.5, reached.level, 0.003);
    EXPECT_GT(shareAt(middle(decoded.left), 1000, reached.fileRate_hz), 0.999);
    EXPECT_NEAR(length_s - 3, reached.longer_s, 0.03);
    memory.runLoop.advance(1);
  }
}

// LAME alone is the cause: without the recorder it makes the same file of the same samples.
TEST_F(Mp3StreamTest, IsWhatLameAloneMakesOfTheSameSamples) {
  addInputDevice(memory.audioHardware, kMicId, kMicUID, 1, 8000);
  const auto tone = sine(1000, 0.5, 3 * 8000, 8000);
  const auto stream = recorded(tone);

  const std::unique_ptr<lame_global_flags, int (*)(lame_t)> lame(lame_init(), lame_close);
  lame_set_num_channels(lame.get(), 1);
  lame_set_in_samplerate(lame.get(), 8000);
  lame_set_brate(lame.get(), 320);
  lame_set_quality(lame.get(), 2);
  ASSERT_EQ(lame_init_params(lame.get()), 0);
  EXPECT_EQ(lame_get_out_samplerate(lame.get()), 8000);  // nothing is resampled
  std::vector<unsigned char> alone(2 * tone.size() + 7200);
  const int room = static_cast<int>(alone.size());
  const int encoded = lame_encode_buffer_ieee_float(
      lame.get(), tone.data(), tone.data(), static_cast<int>(tone.size()), alone.data(), room);
  ASSERT_GT(encoded, 0);
  const int rest = lame_encode_flush(lame.get(), alone.data() + encoded, room - encoded);
  ASSERT_GT(rest, 0);
  EXPECT_TRUE(
      std::equal(stream.begin(), stream.end(), alone.begin(), alone.begin() + encoded + rest,
                 [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }));
}

TEST_F(Mp3StreamTest, EncodesIntegersAtTheLevelTheyHave) {
  record(kMp3);
  const auto tone = sine(1000, 0.5, 48000);
  std::vector<std::byte> data;
  for (const float sample : tone) {
    const auto value = static_cast<std::int16_t>(std::lround(sample * 32767));
    data.push_back(static_cast<std::byte>(value & 0xFF));
    data.push_back(static_cast<std::byte>((value >> 8) & 0xFF));
  }
  platform::AudioStreamBasicDescription format;
  format.mFormatFlags = platform::kAudioFormatFlagIsSignedInteger;
  format.mBytesPerFrame = 2;
  format.mChannelsPerFrame = 1;
  format.mBitsPerChannel = 16;
  dataOutput().deliver(
      std::make_shared<memory_host::MemorySampleBuffer>(format, 48000, std::move(data)));
  memory.runLoop.settle();
  recorder->stopRecord();
  memory.runLoop.settle();
  const auto decoded = decodeMp3(memory.fileManager.contents(recorder->outputFilePath()));
  EXPECT_NEAR(rms(middle(decoded.left)), 0.5 / std::numbers::sqrt2, 0.003);
  EXPECT_GT(shareAt(middle(decoded.right), 1000, 48000), 0.999);
}

TEST_F(Mp3StreamTest, LosesNothingWhenTheEncodeQueueStallsAndGoesOn) {
  const auto tone = sine(1000, 0.5, 5 * 48000);
  record(kMp3);
  deliver(tone);
  const std::size_t smooth_bytes = writtenBytes();
  recorder->stopRecord();
  memory.runLoop.settle();
  const auto smooth = memory.fileManager.contents(recorder->outputFilePath());

  memory.runLoop.advance(60);
  memory.fileManager.journal.clear();
  ASSERT_TRUE(recorder->startRecord(mic, 0, kMp3));
  session().reportStarted();
  encodeQueue().stalled = true;
  deliver(tone);
  EXPECT_EQ(writtenBytes(), 0U);
  encodeQueue().stalled = false;
  memory.runLoop.settle();
  EXPECT_EQ(writtenBytes(), smooth_bytes);
  recorder->stopRecord();
  memory.runLoop.settle();
  EXPECT_EQ(memory.fileManager.contents(recorder->outputFilePath()), smooth);
}

TEST_F(Mp3StreamTest, StaysReadableAfterARuntimeErrorWithAllThatWasCaptured) {
  record(kMp3);
  deliver(sine(1000, 0.5, 48000));
  session().reportError("the source is gone");
  memory.runLoop.settle();
  const auto decoded = decodeMp3(memory.fileManager.contents(recorder->outputFilePath()));
  EXPECT_GE(decoded.left.size(), 48000U);
  EXPECT_GT(shareAt(middle(decoded.left), 1000, 48000), 0.999);
}

}  // namespace
