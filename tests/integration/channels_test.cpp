// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <optional>
#include <span>
#include <sstream>

#include "platform/file_url.h"
#include "tests/integration/capture_fixture.h"
#include "tests/support/amplitude_at.h"
#include "tests/support/child_process.h"

// Every channel of a source is found again where it belongs, by two decoders that share only the
// codec: each has its own demuxer and channel orders.

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using test_support::amplitudeAt;
using test_support::ChildProcess;
using test_support::SignalFeed;

constexpr double kRate_Hz = 48000;
constexpr double kLevel = 0.25;
constexpr double kOneDecibelLess = 0.891;
// A tenth of a second contains whole periods of every tone.
constexpr std::size_t kPeriod_frames = 4800;
constexpr double kDeepTone_Hz = 60;

// The low-frequency channel; past the last one where there is none.
std::atomic<std::uint32_t> deepChannel{0};

double tone_Hz(std::uint32_t channel) {
  return channel == deepChannel ? kDeepTone_Hz : 300 + 170.0 * channel;
}

float toneOfItsOwn(std::uint64_t frame, std::uint32_t channel) {
  const double turns = std::fmod(static_cast<double>(frame) * tone_Hz(channel) / kRate_Hz, 1.0);
  return static_cast<float>(kLevel * std::sin(2 * std::numbers::pi * turns));
}

// The bits of a WAVE file's channel mask.
enum Bit : std::uint32_t {
  kFL = 0x1,
  kFR = 0x2,
  kFC = 0x4,
  kLFE = 0x8,
  kBL = 0x10,
  kBR = 0x20,
  kBC = 0x100,
  kSL = 0x200,
  kSR = 0x400,
};

struct ChannelSet {
  const char* name;
  const char* positions;  // of the source, in its order
  // Where each channel of the source is found; 0: at its own index.
  std::vector<std::uint32_t> places;
  std::uint32_t mask;  // of all channels of the file; 0: not checked
};

const ChannelSet kSets[] = {
    {"Mono", "MONO", {0}, 0},
    {"Stereo", "FL,FR", {0, 0}, 0},
    {"TwoPointOne", "FL,FR,LFE", {kFL, kFR, kLFE}, kFL | kFR | kLFE},
    {"Quad", "FL,FR,RL,RR", {kFL, kFR, kBL, kBR}, kFL | kFR | kBL | kBR},
    {"FivePointZero", "FL,FR,FC,RL,RR", {kFL, kFR, kFC, kBL, kBR}, kFL | kFR | kFC | kBL | kBR},
    {"FivePointOneOfFilms", "FL,FR,FC,LFE,RL,RR", {kFL, kFR, kFC, kLFE, kBL, kBR}, 0x3F},
    {"FivePointOneOfCards", "FL,FR,RL,RR,FC,LFE", {kFL, kFR, kBL, kBR, kFC, kLFE}, 0x3F},
    {"FivePointOneWithSides", "FL,FR,FC,LFE,SL,SR", {kFL, kFR, kFC, kLFE, kBL, kBR}, 0x3F},
    {"SevenPointOneOfFilms",
     "FL,FR,FC,LFE,RL,RR,SL,SR",
     {kFL, kFR, kFC, kLFE, kBL, kBR, kSL, kSR},
     0x63F},
    {"SevenPointOneOfCards",
     "FL,FR,RL,RR,FC,LFE,SL,SR",
     {kFL, kFR, kBL, kBR, kFC, kLFE, kSL, kSR},
     0x63F},
    {"SixInputs", "AUX0,AUX1,AUX2,AUX3,AUX4,AUX5", {kFL, kFR, kFC, kBL, kBR, kSL}, 0x63F},
    {"EightInputs", "AUX0,AUX1,AUX2,AUX3,AUX4,AUX5,AUX6,AUX7", {0, 0, 0, 0, 0, 0, 0, 0}, 0},
};

void PrintTo(const ChannelSet& set, std::ostream* out) {
  *out << set.positions;
}

struct Wave {
  std::uint32_t mask = 0;
  std::vector<std::vector<float>> planes;

  // The index of the channel with that mask bit, else its own index.
  [[nodiscard]] std::size_t placeOf(std::uint32_t bit, std::size_t number) const {
    return bit == 0 ? number : static_cast<std::size_t>(std::popcount(mask & (bit - 1)));
  }
};

template <typename Number>
Number numberAt(std::span<const char> bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size()) {
    std::memcpy(&number, bytes.data() + offset, sizeof number);
  }
  return number;
}

std::string contentsOf(const std::string& path) {
  std::ostringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return contents.str();
}

// A file of 32-bit float samples; without planes if it is anything else.
Wave readWave(const std::string& path) {
  const std::string bytes = contentsOf(path);
  constexpr std::size_t kFirstChunk = 12;
  constexpr std::size_t kChunkHeader = 8;
  constexpr std::uint16_t kExtensible = 0xFFFE;
  Wave wave;
  std::uint16_t channels = 0;
  for (std::size_t at = kFirstChunk; at + kChunkHeader <= bytes.size();) {
    const std::string_view name(bytes.data() + at, 4);
    const std::size_t begin = at + kChunkHeader;
    const std::size_t size =
        std::min<std::size_t>(numberAt<std::uint32_t>(bytes, at + 4), bytes.size() - begin);
    if (name == "fmt ") {
      channels = numberAt<std::uint16_t>(bytes, begin + 2);
      if (numberAt<std::uint16_t>(bytes, begin) == kExtensible) {
        wave.mask = numberAt<std::uint32_t>(bytes, begin + 20);
      }
    } else if (name == "data" && channels > 0) {
      wave.planes.resize(channels);
      for (std::size_t i = 0; i < size / sizeof(float); ++i) {
        wave.planes[i % channels].push_back(numberAt<float>(bytes, begin + i * sizeof(float)));
      }
    }
    at = begin + size + size % 2;
  }
  return wave;
}

class FinishedFile : public platform::CaptureFileOutputRecordingDelegate {
 public:
  void captureOutputDidStartRecording(platform::CaptureOutput&, const std::string&) override {}
  void captureOutputDidFinishRecording(platform::CaptureOutput&, const std::string&,
                                       const std::string& error) override {
    result = error;
  }
  std::optional<std::string> result;
};

class ChannelsTest : public CaptureFixture, public testing::WithParamInterface<ChannelSet> {
 protected:
  // Records half a second of the microphone; returns what went wrong.
  std::string record() {
    const auto finished = std::make_shared<FinishedFile>();
    std::shared_ptr<platform::CaptureAudioFileOutput> output;
    const auto session = fileSession("mic", platform::kCaptureSessionPresetHigh, &output);
    if (!start(session)) return "nothing came in";
    output->startRecordingToOutputFileURL(platform::fileURLWithPath(path), platform::kFileTypeMPEG4,
                                          finished);
    mainLoop.runUntil([] { return false; }, 600ms);
    output->stopRecording();
    session->stopRunning();
    mainLoop.runUntil([&] { return finished->result.has_value(); });
    return finished->result.value_or("the file was not finished");
  }

  Wave decode(std::vector<std::string> command) {
    std::filesystem::remove(wavePath);
    ChildProcess decoder({std::move(command), {}, logPath});
    EXPECT_EQ(decoder.waitForExit(30s), 0);
    return readWave(wavePath);
  }
  Wave decodeByFFmpeg() {
    return decode({"ffmpeg", "-v", "error", "-guess_layout_max", "0", "-i", path, "-c:a",
                   "pcm_f32le", "-f", "wav", wavePath});
  }
  // Its WAVE files do not contain the positions, but its log does.
  Wave decodeByGStreamer() {
    Wave wave = decode({"gst-launch-1.0", "-v", "filesrc", "location=" + path, "!", "decodebin",
                        "!", "audioconvert", "!", "audio/x-raw,format=F32LE", "!", "wavenc", "!",
                        "filesink", "location=" + wavePath});
    const std::string log = contentsOf(logPath);
    constexpr std::string_view kMask = "channel-mask=(bitmask)";
    const std::size_t at = log.rfind(kMask);
    const std::uint32_t mask =
        at == std::string::npos
            ? 0
            : static_cast<std::uint32_t>(std::stoul(log.substr(at + kMask.size()), nullptr, 16));
    // Here a second low-frequency channel has a bit before the sides.
    constexpr std::uint32_t kSides = 0xC00;
    wave.mask = (mask & ~kSides) | (mask & kSides) >> 1;
    return wave;
  }

  // What is misplaced; empty if nothing is.
  static std::string misplaced(const Wave& wave) {
    const ChannelSet& set = GetParam();
    if (wave.planes.empty() || wave.planes[0].size() < 3 * kPeriod_frames) return "no sound";
    if (set.mask != 0 && wave.mask != set.mask) return "mask " + std::to_string(wave.mask);
    std::string problems;
    for (std::uint32_t channel = 0; channel < set.places.size(); ++channel) {
      const std::size_t place = wave.placeOf(set.places[channel], channel);
      for (std::size_t other = 0; other < wave.planes.size(); ++other) {
        const std::span sound(wave.planes[other].data() + 2 * kPeriod_frames, kPeriod_frames);
        const double level = amplitudeAt(sound, tone_Hz(channel), kRate_Hz) / kLevel;
        if (other == place ? level < kOneDecibelLess : level > 0.05) {
          problems += "channel " + std::to_string(channel) + " in " + std::to_string(other) +
                      " at " + std::to_string(level) + "; ";
        }
      }
    }
    return problems;
  }

  const std::string path = server.directory() + "/recording";
  const std::string wavePath = server.directory() + "/decoded.wav";
  const std::string logPath = server.directory() + "/decoder.log";
};

TEST_P(ChannelsTest, EachIsFoundInItsPlaceAtItsLevel) {
  const ChannelSet& set = GetParam();
  const auto channels = static_cast<std::uint32_t>(set.places.size());
  const auto deep = std::ranges::find(set.places, std::uint32_t{kLFE}) - set.places.begin();
  deepChannel = static_cast<std::uint32_t>(deep);
  // In brackets: without them PipeWire 1.4 drops the last of an odd number.
  control.createMicrophone("mic", {{"audio.position", "[ " + std::string(set.positions) + " ]"},
                                   {"audio.channels", std::to_string(channels)}});
  SignalFeed feed("feed", channels, toneOfItsOwn);
  control.link("feed", "mic");
  repeatOnSlowMachine([&]() -> std::string {
    if (std::string error = record(); !error.empty()) return error;
    if (std::string error = misplaced(decodeByFFmpeg()); !error.empty()) return "FFmpeg: " + error;
    if (std::string error = misplaced(decodeByGStreamer()); !error.empty()) {
      return "GStreamer: " + error;
    }
    return {};
  });
}

INSTANTIATE_TEST_SUITE_P(Sets, ChannelsTest, testing::ValuesIn(kSets),
                         [](const auto& set) { return std::string(set.param.name); });

}  // namespace
}  // namespace linux_host
